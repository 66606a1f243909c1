// Reassembly of VISCA replies from the byte stream: bytes in, whole packets out.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

#include "visca/camera.h"

struct visca_reply_parser {
  std::array<uint8_t, kViscaPacketSize> packet{};
  size_t count = 0;       // bytes in `packet`
  bool dropping = false;  // after an overrun, up to and including the next terminator
};

enum class visca_reply_step {
  more,
  complete,  // `packet` holds a reply, `count` bytes with its terminator; read it before the next byte is fed
  overrun,   // 16 bytes without a terminator
};

visca_reply_step visca_parse_reply_byte(visca_reply_parser* parser, uint8_t byte);

// Four nibbles, highest first, as one number.
uint16_t visca_read_position(std::span<const uint8_t, 4> nibbles);
