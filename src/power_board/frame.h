// The board's status frame as it is received. Any thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "power_board/readings.h"

inline constexpr uint8_t kAdvancedReadCommand = 0x88;
inline constexpr uint8_t kAdvancedFrameLength = 141;
inline constexpr uint8_t kBasicReadCommand = 0x00;
inline constexpr uint8_t kBasicFrameLength = 64;
inline constexpr size_t kFrameSize = kAdvancedFrameLength;  // the longer one

// The board sends and expects each byte with its least significant bit first.
uint8_t reverse_bits(uint8_t byte);

// What became of a received frame.
struct frame_check {
  bool all_zero = false;  // every raw byte is 0
  uint8_t sum = 0;        // 0: good
};

// Checks `raw` (as received, bits reversed) and, when it is good, decodes it into `readings`; fields that the
// frame does not fill keep their values. The basic frame is summed only when its status bit 0 is set.
frame_check take_frame(std::span<const uint8_t> raw, bool advanced, power_board_readings* readings);
