// Bring-up and the two transactions on the wire, on the test's own thread where that is enough; and frames.
#include <mraa/gpio.h>
#include <mraa/spi.h>

#include <numeric>

#include "api/api_client.h"
#include "power_board/rig.h"
#include "tests/files.h"

namespace {

using power_link = rig;

// A unit without a board must say so in its log, and leave no line driven.
TEST_F(power_link, each_bring_up_failure_says_why_and_closes_all) {
  const auto expect = [&](bus_call call, int result, int pin, const std::string& said) {
    fail_next(call, static_cast<mraa_result_t>(result), pin);
    EXPECT_EQ(said_by([&] { EXPECT_EQ(open_bus(&board_), -1); }), "orbd: mraa_" + said + "\n");
    EXPECT_EQ(open_bus_handles(), 0);
  };
  expect(bus_call::gpio_dir, 4, 13, "gpio_dir() failed at line N: Invalid parameter");
  expect(bus_call::spi_init, 99, kAnyPin, "spi_init() failed at line N");
  expect(bus_call::spi_frequency, 14, kAnyPin, "spi_frequency() failed at line N: UART OW: Bus error");
  expect(bus_call::spi_lsbmode, 15, kAnyPin, "spi_lsbmode() failed at line N: Unspecified error");
}

// A daemon that hangs or crashes with its board.
TEST_F(power_link, a_failed_bring_up_leaves_a_board_that_never_works) {
  fail_next(bus_call::spi_init);
  said_by([&] {
    ASSERT_EQ(orb_power_board_start_service(&board_), 0);
    ASSERT_TRUE(await([&] { return board_.service_state == kServiceFailed; }));
    for (int i = 0; i < 3; ++i) orb_power_board_resume_refresh(&board_), tick();
    for (int i = 1; i < 256; ++i) ASSERT_EQ(write(0, {2}), 0) << i;  // with one refresh
    EXPECT_EQ(write(0, {2}), -1);
    orb_power_board_stop_service(&board_);
    EXPECT_EQ(orb_power_board_start_service(&board_), -1);
  });
}

// Bits in the wrong order, or more data than a register takes.
TEST_F(power_link, register_writes_go_out_byte_by_byte) {
  start();
  EXPECT_EQ(write(0x56, {0x80, 1, 0x40, 2, 0x20, 4, 0x10, 8, 255, 0, 0x55, 0xAA, 0x33, 0xCC, 15, 0xF1}), 0);
  EXPECT_EQ(write(1, {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16}), -2);
  EXPECT_EQ(write(0x80, {1}), -2);
  orb_power_board_stop_service(&board_);
  EXPECT_EQ(written(), "86 80 01 40 02 20 04 10 08 ff 00 55 aa 33 cc 0f f1\n6 ff\n");
}

// A stop above all, also when chip select is what fails; a dead bus is given up.
TEST_F(power_link, a_write_that_fails_is_sent_again) {
  ASSERT_EQ(open_bus(&board_), 0);
  const auto stop = [this] { return write_register(&board_, stop_item()); };
  for (const auto& [call, after] :
       {std::pair(bus_call::spi_transfer, 0), {bus_call::gpio_write, 0}, {bus_call::gpio_write, 1}}) {
    fail_next(call, MRAA_ERROR_INVALID_RESOURCE, kAnyPin, 1, after);
    EXPECT_TRUE(stop());
  }
  EXPECT_EQ(written(), "6 ff\n6 ff\n6 ff\n");
  mraa_spi_stop(board_.spi);
  EXPECT_FALSE(stop());
  EXPECT_EQ(std::exchange(violations, {}), texts(3, "transfer on a closed SPI bus"));
  close_bus(&board_);
}

// Readings of a damaged frame, or of a board that is silent, taken for the unit's.
TEST_F(power_link, bad_frames_and_failed_transfers_keep_the_readings_and_silence_clears_them) {
  for (const int advanced : {0, 1}) {
    orb_power_board_init(&board_, &application_, advanced);
    ASSERT_EQ(open_bus(&board_), 0);
    const auto volts = [&](double vin, frame_mode mode = frame_mode::good) {
      with_board([&](auto& b) { return b.mode = mode, b.readings.vin_volts = vin; });
      read_status(&board_);
      return readings().monitor_vin_volts;
    };
    EXPECT_EQ(volts(21), 21);
    EXPECT_EQ(volts(1, frame_mode::bad_checksum), 21);
    orb_power_board_set_zero_buffer(&board_, 5);
    EXPECT_EQ(volts(3), 0);
    orb_power_board_set_zero_buffer(&board_, 0x100);  // only the low byte counts
    EXPECT_EQ(volts(4), 4);
    EXPECT_EQ(volts(5, frame_mode::zeros), 0);
    EXPECT_EQ(volts(6), 6);
    traced();
    {
      const mutex_lock lock(board_.readings_lock);
      board_.readings.monitor_vin_volts = 8;  // a frame that is taken once more would show
    }
    mraa_spi_stop(board_.spi);
    EXPECT_EQ(volts(7), 8);
    EXPECT_EQ(std::exchange(violations, {}), texts{"transfer on a closed SPI bus"});
    EXPECT_EQ(traced(), (texts{advanced != 0 ? "PBRF: refresh 88 141 0 0" : "PBRF: refresh 00 64 0 0",
                               "PBRF: refresh failed 5"}));
    close_bus(&board_);
  }
}

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
  std::ranges::transform(frame, frame.begin(), mirror_bits);
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
