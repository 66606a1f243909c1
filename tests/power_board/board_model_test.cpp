// The simulated board itself: its frames byte by byte, the registers, and the
// checks of the bus.
#include "sim/board/board_model.h"

#include <gtest/gtest.h>
#include <mraa/gpio.h>
#include <mraa/spi.h>
#include <time.h>

#include <chrono>
#include <functional>
#include <numeric>
#include <string>
#include <vector>

#include "sim/board/bus.h"
#include "sim/board/control.h"

namespace {

using bytes = std::vector<uint8_t>;

std::vector<std::string>& violations() {
  static auto& seen = *new std::vector<std::string>;
  return seen;
}

void pause_us(long us) {
  const timespec time{.tv_sec = 0, .tv_nsec = us * 1000};
  nanosleep(&time, nullptr);
}

// A controller that keeps every rule unless told otherwise.
struct controller {
  mraa_gpio_context select = nullptr, boot = nullptr, reset = nullptr;
  mraa_spi_context spi = nullptr;
  long command_gap = 10, data_gap = 10, idle_gap = 50;  // microseconds

  static mraa_gpio_context line(int pin, int level) {
    auto* const made = mraa_gpio_init(pin);
    mraa_gpio_dir(made, MRAA_GPIO_OUT);
    mraa_gpio_write(made, level);
    return made;
  }

  controller() {
    select = line(kChipSelectPin, 1);
    boot = line(kBootPin, 0);
    reset = line(kResetPin, 0);
    spi = mraa_spi_init(0);
    mraa_spi_mode(spi, MRAA_SPI_MODE2);
    mraa_spi_frequency(spi, 100000);
    mraa_spi_lsbmode(spi, 0);
  }

  void transaction(uint8_t command, const std::function<void()>& data) const {
    mraa_gpio_write(select, 0);
    mraa_spi_write(spi, command);
    if (command_gap > 0) pause_us(command_gap);
    data();
    if (data_gap > 0) pause_us(data_gap);
    mraa_gpio_write(select, 1);
    if (idle_gap > 0) pause_us(idle_gap);
  }

  void write(uint8_t reg, bytes data) const {
    for (uint8_t& byte : data) byte = mirror_bits(byte);
    transaction(mirror_bits(reg | 0x80), [&] {
      if (!data.empty()) mraa_spi_transfer_buf(spi, data.data(), nullptr, static_cast<int>(data.size()));
    });
  }

  bytes read(uint8_t command, int size) const {
    bytes frame(static_cast<size_t>(size), 0xEE);
    transaction(command, [&] { mraa_spi_transfer_buf(spi, nullptr, frame.data(), size); });
    for (uint8_t& byte : frame) byte = mirror_bits(byte);
    return frame;
  }
};

class board : public testing::Test {
 protected:
  void SetUp() override {
    reset_board();
    set_wire_time(false);
    violations().clear();
    set_violation_handler([](const char* text) { violations().emplace_back(text); });
  }
};

uint8_t sum(const bytes& frame) { return std::accumulate(frame.begin(), frame.end(), uint8_t{0}); }
uint32_t u16(const bytes& f, size_t at) { return f[at] + 256U * f[at + 1]; }
uint32_t u32(const bytes& f, size_t at) { return u16(f, at) | u16(f, at + 2) << 16; }

TEST_F(board, advanced_frame_shows_what_was_set) {
  with_board([](board_model& b) {
    b.power_enable = kBoardPowerMain | kBoardPowerCamera | kBoardPowerLaser;
    b.status = 0x25;
    auto& in = b.readings;
    in.vin_volts = 18.25, in.vin_amps = -1.5, in.camera_volts = 12.1, in.motor_amps = 0.125;
    in.pressure = 101325, in.humidity = 40.5, in.temperature = -10.25;
    in.accel_z = -1.001, in.mag_x = -300, in.encoder_1 = -70000, in.encoder_speed_0 = -2;
    in.laser_distance = 1.25, in.laser_serial = 0xFEDCBA98, in.build_number = 513, in.board_revision = 7;
    in.power_on_events = 9, in.gyro_y = 1e9;
  });
  const bytes f = controller().read(kReadAdvanced, 141);
  const struct {
    const char* what;
    uint32_t got, expected;
  } rows[] = {
      {"power", f[0], 0x0E},
      {"status", f[7], 0x25},
      {"vin", u16(f, 87), 18250},
      {"amps", u16(f, 89), 64036},
      {"watts", u16(f, 91), 38161},
      {"camera", u16(f, 93), 12100},
      {"motor", u16(f, 101), 125},
      {"pressure", u32(f, 12), 101325},
      {"humidity", u16(f, 16), 4050},
      {"temp", u16(f, 18), 64511},
      {"gyro, clamped", u16(f, 22), 32767},
      {"accel", u16(f, 30), 64535},
      {"mag", u16(f, 32), 65236},
      {"encoder", u32(f, 109), 4294897296},
      {"speed", u16(f, 113), 65534},
      {"laser", u32(f, 117), 1250},
      {"type", f[126], 1},
      {"revision", f[129], 7},
      {"build", u16(f, 131), 513},
      {"serial", u32(f, 133), 0xFEDCBA98},
      {"starts", u32(f, 83), 9},
  };
  for (const auto& row : rows) EXPECT_EQ(row.got, row.expected) << row.what;
  EXPECT_EQ(sum(f), 0);
  EXPECT_NE(f[127], 0);
  EXPECT_EQ(violations(), std::vector<std::string>{});
}

TEST_F(board, basic_frame_has_checksum_and_identity_only_when_extended) {
  const controller c;
  with_board([](board_model& b) { b.readings.vin_volts = 16.5, b.readings.temperature = 31.5; });
  for (const bool extended : {true, false}) {
    with_board([extended](board_model& b) { set_status_bit(b, 0, extended); });
    const bytes f = c.read(kReadBasic, 64);
    EXPECT_EQ(u16(f, 8), 16500U);
    EXPECT_EQ(u16(f, 10), 3150U);
    EXPECT_EQ(f[7], extended ? 1 : 0);
    EXPECT_EQ(f[58], extended ? 3 : 0);
    EXPECT_EQ(u16(f, 60), extended ? 42U : 0U);
    EXPECT_EQ(sum(f) == 0, extended);
  }
}

TEST_F(board, frames_can_be_spoilt) {
  const controller c;
  const bytes good = c.read(kReadAdvanced, 141);
  for (int round = 0; round < 300; ++round) {
    with_board([](board_model& b) { b.mode = frame_mode::noise; });
    ASSERT_NE(sum(c.read(kReadAdvanced, 141)), 0) << round;
  }
  with_board([](board_model& b) { b.mode = frame_mode::zeros; });
  EXPECT_EQ(c.read(kReadAdvanced, 141), bytes(141, 0));
  with_board([](board_model& b) { b.mode = frame_mode::bad_checksum; });
  EXPECT_EQ(sum(c.read(kReadAdvanced, 141)), 1);
  EXPECT_EQ(sum(c.read(kReadBasic, 64)), 1);
  with_board([](board_model& b) { b.mode = frame_mode::good; });
  EXPECT_EQ(c.read(kReadAdvanced, 141), good);
  for (const uint8_t unknown : bytes{0x11, 0x89, 0xFF}) EXPECT_EQ(c.read(unknown, 20), bytes(20, 0));
  EXPECT_EQ(with_board([](board_model& b) { return b.counts.unknown_reads; }), 3UL);
  EXPECT_EQ(violations(), std::vector<std::string>{});
}

TEST_F(board, registers_come_back_in_the_frame) {
  const controller c;
  EXPECT_EQ(u32(c.read(kReadAdvanced, 141), 117), 0U) << "laser supply still off";
  c.write(0, {0x0A});
  c.write(1, {0x24, 77});
  c.write(3, {static_cast<uint8_t>(-60), 0xE8, 0x03});
  c.write(6, {2});
  c.write(9, {1, 2, 3, 4});  // unknown
  c.write(6, {});            // only the command byte
  const bytes f = c.read(kReadAdvanced, 141);
  EXPECT_EQ(bytes(f.begin(), f.begin() + 7), (bytes{0x0A, 0x24, 77, 0xC4, 0xE8, 0x03, 2}));
  EXPECT_EQ(u32(f, 117), 1500U);
  EXPECT_EQ(violations(), std::vector<std::string>{});
  with_board([](board_model& b) {
    EXPECT_TRUE(motor_running(b.motor));
    board_advance(b, 0.999);
    EXPECT_TRUE(motor_running(b.motor));
    board_advance(b, 0.5);
    EXPECT_FALSE(motor_running(b.motor)) << "dead-man time of 1000 ms";
    EXPECT_NEAR(b.readings.motor_time, 1.0, 1e-9);
    EXPECT_NEAR(b.readings.laser_time, 1.499, 1e-9);
    EXPECT_EQ(b.readings.camera_time, 0);
    EXPECT_EQ(b.counts.unknown_writes, 1UL);
    EXPECT_EQ(b.counts.empty_writes, 1UL);
    EXPECT_FALSE(b.power_cut);
    EXPECT_EQ(b.log.size(), 6U);
    EXPECT_EQ(b.log[2].reg, 3);
    EXPECT_EQ(b.log[2].data[1], 0xE8);
  });
  for (size_t i = 0; i < kMaxLoggedWrites + 2; ++i) c.write(0, {0x03});
  with_board([](board_model& b) {
    EXPECT_TRUE(b.power_cut);
    EXPECT_NEAR(b.power_cut_time_s, 1.499, 1e-9);
    EXPECT_EQ(b.log.size(), kMaxLoggedWrites);
  });
}

TEST_F(board, each_violation_is_reported_once) {
  const struct {
    const char* expected;  // part of the message
    void (*act)(controller& c);
  } rows[] = {
      {"SPI mode 0", [](controller& c) { mraa_spi_mode(c.spi, MRAA_SPI_MODE0), c.write(6, {1}); }},
      {"50000 Hz", [](controller& c) { mraa_spi_frequency(c.spi, 50000), c.write(6, {1}); }},
      {"lsb first 1", [](controller& c) { mraa_spi_lsbmode(c.spi, 1), c.write(6, {1}); }},
      {"lsb first -1", [](controller& c) { c.spi = mraa_spi_init(0), c.write(6, {1}); }},
      {"GPIO 13 driven high", [](controller& c) { mraa_gpio_write(c.boot, 1); }},
      {"while GPIO 15 is not", [](controller& c) { mraa_gpio_close(c.reset), c.write(6, {1}); }},
      {"before it is an output", [](controller&) { mraa_gpio_write(mraa_gpio_init(kResetPin), 0); }},
      {"chip select high", [](controller& c) { mraa_spi_write(c.spi, 0x88); }},
      {"after the command byte", [](controller& c) { c.command_gap = 0, c.write(6, {1}); }},
      {"after the last byte", [](controller& c) { c.data_gap = 0, c.write(6, {1}); }},
      {"after the last transaction", [](controller& c) { c.idle_gap = 0, c.write(6, {1}), c.write(6, {1}); }},
      {"register 0x03 with 2",
       [](controller& c) {
         c.write(3, {1, 2});
       }},
      {"register 0x06 with 17", [](controller& c) { c.write(6, bytes(17, 1)); }},
      {"write with 17", [](controller& c) { c.write(9, bytes(17, 1)); }},
      {"read 0x88 with 64", [](controller& c) { c.read(kReadAdvanced, 64); }},
      {"read 0x00 with 65", [](controller& c) { c.read(kReadBasic, 65); }},
      {"inside read 0x88",
       [](controller& c) {
         c.transaction(kReadAdvanced, [&] { mraa_spi_write(c.spi, 1), mraa_spi_write(c.spi, 1); });
       }},
      {"one command byte",
       [](controller& c) {
         uint8_t two[2] = {mirror_bits(0x86), 1};
         mraa_gpio_write(c.select, 0);
         mraa_spi_transfer_buf(c.spi, two, nullptr, 2);
         pause_us(10);
         mraa_gpio_write(c.select, 1);
       }},
      {"without a command",
       [](controller& c) { mraa_gpio_write(c.select, 0), mraa_gpio_write(c.select, 1); }},
      {"closed SPI bus", [](controller& c) { mraa_spi_stop(c.spi), mraa_spi_write(c.spi, 0); }},
      {"closed GPIO line", [](controller& c) { mraa_gpio_close(c.select), mraa_gpio_write(c.select, 1); }},
  };
  for (const auto& row : rows) {
    // A pause left out can still be made by the scheduler, so a row has some attempts.
    for (int attempt = 0; attempt == 0 || (violations().empty() && attempt < 20); ++attempt) {
      SetUp();
      controller c;
      row.act(c);
    }
    ASSERT_EQ(violations().size(), 1U) << row.expected;
    EXPECT_NE(violations()[0].find(row.expected), std::string::npos) << violations()[0];
  }
}

TEST_F(board, odd_lengths_pass_when_not_strict) {
  const controller c;
  with_board([](board_model& b) { b.strict = false; });
  c.write(1, {1, 2, 3});
  const bytes f = c.read(kReadBasic, 141);
  EXPECT_EQ(bytes(f.begin() + 64, f.end()), bytes(77, 0));
  EXPECT_EQ(f[1], 0) << "a write of the wrong length changes nothing";
  EXPECT_EQ(with_board([](board_model& b) { return b.counts.odd_lengths; }), 2UL);
  EXPECT_EQ(violations(), std::vector<std::string>{});
}

TEST_F(board, a_violation_without_handler_aborts) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  set_violation_handler(nullptr);
  EXPECT_EXIT(controller().write(3, {1}), testing::KilledBySignal(SIGABRT),
              "board: violation: write to register 0x03");
}

TEST_F(board, the_wire_takes_its_time) {
  const controller c;
  set_wire_time(true);
  set_real_time(true);
  const auto start = std::chrono::steady_clock::now();
  c.read(kReadAdvanced, 141);
  const std::chrono::duration<double, std::milli> took = std::chrono::steady_clock::now() - start;
  EXPECT_GE(took.count(), 142 * 0.08);
  EXPECT_LT(took.count(), 142 * 0.08 + 100);
  EXPECT_NEAR(with_board([](board_model& b) { return b.time_s; }) * 1000, took.count(), 100);
  EXPECT_EQ(violations(), std::vector<std::string>{});
}

TEST_F(board, bring_up_failures_can_be_provoked) {
  fail_next_gpio_init(kResetPin);
  EXPECT_NE(mraa_gpio_init(kBootPin), nullptr);
  EXPECT_EQ(mraa_gpio_init(kResetPin), nullptr);
  auto* const reset = mraa_gpio_init(kResetPin);
  ASSERT_NE(reset, nullptr);
  fail_next(bus_call::gpio_dir, MRAA_ERROR_NO_RESOURCES, kResetPin);
  EXPECT_EQ(mraa_gpio_dir(reset, MRAA_GPIO_OUT), MRAA_ERROR_NO_RESOURCES);
  EXPECT_EQ(mraa_gpio_dir(reset, MRAA_GPIO_OUT), MRAA_SUCCESS);
  fail_next(bus_call::spi_init);
  EXPECT_EQ(mraa_spi_init(0), nullptr);
  auto* const spi = mraa_spi_init(0);
  fail_next(bus_call::spi_frequency, MRAA_ERROR_INVALID_PARAMETER);
  EXPECT_EQ(mraa_spi_mode(spi, MRAA_SPI_MODE2), MRAA_SUCCESS);
  EXPECT_EQ(mraa_spi_frequency(spi, 100000), MRAA_ERROR_INVALID_PARAMETER);
  EXPECT_EQ(open_bus_handles(), 3);
  mraa_spi_stop(spi);
  mraa_gpio_close(reset);
  EXPECT_EQ(open_bus_handles(), 1);
}

TEST(board_control, commands_set_and_show) {
  board_model b;
  const struct {
    const char *line, *reply;  // the reply's beginning
  } rows[] = {
      {"vin 18.5", "ok\n"},        {"  vin \r", "18.5\n"},
      {"accel 0.5 -1 0", "ok\n"},  {"accel", "0.5\n-1\n0\n"},
      {"accel 1", "error: wrong"}, {"vin 66", "error: vin 66, 0..65.535"},
      {"vin nan", "error: vin"},   {"vin 1x", "error: vin"},
      {"status 2 on", "ok\n"},     {"status 8 on", "error"},
      {"status 0 off", "ok\n"},    {"frame badsum", "ok\n"},
      {"frame", "error"},          {"strict off", "ok\n"},
      {"log", "no writes\n"},      {"warp 9", "error: unknown command warp"},
      {"", "error: no command"},   {"help", "help"},
      {"show", "registers"},
  };
  for (const auto& row : rows) {
    const std::string reply = board_command(b, row.line);
    EXPECT_EQ(reply.substr(0, std::string(row.reply).size()), row.reply) << row.line;
    EXPECT_EQ(reply.back(), '\n') << row.line;
  }
  EXPECT_EQ(b.status, 0x04);
  EXPECT_EQ(b.mode, frame_mode::bad_checksum);
  EXPECT_FALSE(b.strict);
  board_write(b, 3, bytes{0x9C, 0xF4, 0x01});
  EXPECT_EQ(board_command(b, "log"), "0.000 3 9c f4 01\n");
}

}  // namespace
