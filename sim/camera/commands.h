// The command table of the simulated camera: what follows "8x 01 04", what it does, when it is allowed.
#pragma once

#include <array>
#include <cstdint>
#include <span>

#include "sim/camera/block_model.h"

namespace sim_camera {

enum command_error : uint8_t { kNoError = 0, kSyntaxError = 0x02, kBufferFull = 0x03, kNotExecutable = 0x41 };

struct command_outcome {
  command_error error = kNoError;
  unsigned waits_for = 0;  // axes whose arrival completes the command, one bit each; 0 completes at once
};

// What a command asks for, found in the table. `row` is null when no row fits.
struct command_row;
struct parsed_command {
  const command_row* row = nullptr;
  std::array<unsigned, 26> values{};  // by the letter of the row's pattern
  std::span<const uint8_t> body;
};

// Finds the row for the bytes between "8x 01 04" and the terminator.
parsed_command command_find(std::span<const uint8_t> body);

// Whether the camera takes the command in its present state.
bool command_allowed(const block_model& block, const parsed_command& command);

// Does what the command asks for. A value out of its range is a syntax error and changes nothing.
command_outcome command_execute(block_model& block, const parsed_command& command);

// The answer to the inquiry whose bytes stand between "8x 09" and the terminator, without frame ("90 50",
// "FF"); empty when there is no such inquiry.
packet inquiry_answer(const block_model& block, std::span<const uint8_t> body);

// A position as four bytes that carry one nibble each.
std::array<uint8_t, 4> position_nibbles(int position);

}  // namespace sim_camera
