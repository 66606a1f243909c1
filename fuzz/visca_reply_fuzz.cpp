// Feeds the camera's bytes to the reply parser: what it hands out is a packet that ends with its only
// terminator, and no byte but those of an overrun is lost.
#include <algorithm>
#include <cstdlib>

#include "visca/reply.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  visca_reply_parser parser;
  size_t pending = 0;  // bytes since the last packet
  for (size_t i = 0; i < size; ++i) {
    const bool dropped = parser.dropping;
    const visca_reply_step step = visca_parse_reply_byte(&parser, data[i]);
    pending = dropped ? 0 : pending + 1;
    if (parser.count > parser.packet.size()) abort();
    if (step == visca_reply_step::overrun && pending != parser.packet.size()) abort();
    if (step != visca_reply_step::complete) continue;
    if (parser.count != pending || data[i] != kViscaTerminator) abort();
    if (!std::equal(data + i + 1 - pending, data + i + 1, parser.packet.begin())) abort();
    if (std::find(data + i + 1 - pending, data + i, kViscaTerminator) != data + i) abort();
    pending = 0;
  }
  return 0;
}
