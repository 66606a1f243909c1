#include "visca/reply.h"

visca_reply_step visca_parse_reply_byte(visca_reply_parser* parser, uint8_t byte) {
  const bool ends = byte == kViscaTerminator;
  if (parser->dropping) {
    parser->dropping = !ends;
    return visca_reply_step::more;
  }
  // A count that ended with a terminator belongs to the packet before.
  if (parser->count != 0 && parser->packet[parser->count - 1] == kViscaTerminator) parser->count = 0;
  parser->packet[parser->count++] = byte;
  if (ends) return visca_reply_step::complete;
  if (parser->count < parser->packet.size()) return visca_reply_step::more;
  parser->count = 0;
  parser->dropping = true;
  return visca_reply_step::overrun;
}

uint16_t visca_read_position(std::span<const uint8_t, 4> nibbles) {
  unsigned value = 0;
  for (const uint8_t nibble : nibbles) value = value << 4 | (nibble & 0x0F);
  return static_cast<uint16_t>(value);
}
