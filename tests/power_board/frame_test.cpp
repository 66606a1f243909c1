// Frames made by hand, against what is to be read from them.
#include <numeric>

#include "api/api_client.h"
#include "power_board/rig.h"
#include "tests/files.h"

namespace {

using R = power_board_readings;
using bytes = std::vector<uint8_t>;

// Bytes that differ, bit 7 set in all of them: it shows where a field ends, and whether it has a sign.
bytes sample(size_t size) {
  bytes frame;
  for (size_t i = 0; i < size; ++i) frame.push_back(static_cast<uint8_t>(0x80 | (i * 5 + 3)));
  return frame;
}

// Has the frame sum to `sum` by its byte `at`, and decodes it.
uint8_t take(bytes frame, size_t at, int sum, R* readings) {
  frame[at] = static_cast<uint8_t>(frame[at] + sum - std::accumulate(frame.begin(), frame.end(), 0));
  std::transform(frame.begin(), frame.end(), frame.begin(), mirror_bits);
  return take_frame(frame, frame.size() == 141, readings).sum;
}

// A field at the wrong place, of the wrong size or without its sign.
TEST(frame_decoding, advanced_frame_field_by_field) {
  std::string expected = golden("readings.json");  // as it tells them
  std::ranges::replace(expected, '"', '\'');
  EXPECT_EQ(mirror_bits(0x35), 0xAC);
  static orb_power_board board;
  power_board_instance = &board;
  start_api();
  for (const int sum : {0x00, 0x01, 0x80, 0xFF}) {  // only the first is taken
    {
      const mutex_lock lock(board.readings_lock);
      EXPECT_EQ(take(sample(141), sum == 0 ? 128 : 20, sum, &board.readings), sum);
    }
    EXPECT_EQ(ask("GET", "/power_board/readings"), expected);
  }
}

// What a short frame does not have must not be made up from the bytes behind it.
TEST(frame_decoding, a_basic_frame_has_sum_and_identity_only_when_extended) {
  for (const bool extended : {true, false}) {
    bytes frame = sample(64);
    frame[7] = extended ? 0xA1 : 0xA0;
    R r;
    r.checksum = 0x1234;  // not in this frame
    EXPECT_EQ(take(frame, 63, extended ? 0 : 0x80, &r), 0);
    EXPECT_FLOAT_EQ(r.monitor_vin_volts, 45.227F);
    EXPECT_EQ(std::tuple(r.board_revision, r.build_number, r.checksum),
              extended ? std::tuple(165, 46255, 0x1234) : std::tuple(1, 0, 0x1234));
  }
}

}  // namespace
