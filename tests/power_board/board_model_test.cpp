// The simulated board itself: its frames, the registers, and the checks of the bus.
#include <numeric>

#include "power_board/rig.h"

namespace {

using bytes = std::vector<uint8_t>;

// A controller that keeps every rule unless told otherwise.
struct controller {
  mraa_gpio_context select = line(kChipSelectPin, 1), boot = line(kBootPin, 0), reset = line(kResetPin, 0);
  mraa_spi_context spi = mraa_spi_init(0);
  int64_t command_gap = 10'000, data_gap = 10'000, idle_gap = 50'000;  // ns

  static mraa_gpio_context line(int pin, int level) {
    auto* const made = mraa_gpio_init(pin);
    mraa_gpio_dir(made, MRAA_GPIO_OUT);
    mraa_gpio_write(made, level);
    return made;
  }

  controller() {
    mraa_spi_mode(spi, MRAA_SPI_MODE2);
    mraa_spi_frequency(spi, 100000);
    mraa_spi_lsbmode(spi, 0);
  }

  // One transaction of a command byte and data, sent or else clocked in.
  bytes transfer(uint8_t command, bytes data, bool send) const {
    mraa_gpio_write(select, 0);
    mraa_spi_write(spi, command);
    if (command_gap > 0) sleep_ns(command_gap);
    std::transform(data.begin(), data.end(), data.begin(), mirror_bits);
    mraa_spi_transfer_buf(spi, send ? data.data() : nullptr, send ? nullptr : data.data(),
                          static_cast<int>(data.size()));
    std::transform(data.begin(), data.end(), data.begin(), mirror_bits);
    if (data_gap > 0) sleep_ns(data_gap);
    mraa_gpio_write(select, 1);
    if (idle_gap > 0) sleep_ns(idle_gap);
    return data;
  }
  void write(uint8_t reg, const bytes& data) const { transfer(mirror_bits(reg | 0x80), data, true); }
  bytes read(uint8_t command, size_t size) const { return transfer(command, bytes(size), false); }
};

class board : public testing::Test {
 protected:
  void SetUp() override { fresh_bus(); }
};

uint8_t sum(const bytes& frame) { return std::accumulate(frame.begin(), frame.end(), uint8_t{0}); }

// The field of so many bytes, least significant first.
uint32_t field(const bytes& frame, size_t at, size_t size) {
  uint32_t value = 0;
  for (size_t i = size; i-- > 0;) value = value << 8 | frame[at + i];
  return value;
}

TEST_F(board, the_frames_show_what_was_set_and_written) {
  const controller c;
  for (const bytes& one : {bytes{0, 0x0E}, {1, 0x24, 77}, {3, 0xC4, 0xE8, 0x03}, {6, 2}, {9, 1, 2, 3}, {6}}) {
    c.transfer(mirror_bits(one[0] | 0x80), bytes(one.begin() + 1, one.end()), true);
  }
  with_board([](board_model& b) {
    b.status = 0x25;
    auto& in = b.readings;
    in.vin_volts = 18.25, in.vin_amps = -1.5, in.camera_volts = 12.1, in.motor_amps = 0.125;
    in.pressure = 101325, in.humidity = 40.5, in.temperature = -10.25, in.gyro_y = 1e9;
    in.accel_z = -1.001, in.mag_x = -300, in.encoder_1 = -70000, in.encoder_speed_0 = -2;
    in.laser_distance = 1.25, in.laser_serial = 0xFEDCBA98, in.build_number = 513, in.power_on_events = 9;
  });
  const bytes advanced = c.read(kReadAdvanced, 141);
  const struct {
    size_t at, size;
    uint32_t expected;
  } fields[] = {{0, 4, 0xC44D240E},  {4, 4, 0x250203E8}, {12, 4, 101325}, {16, 2, 4050}, {18, 2, 64511},
                {22, 2, 32767},      {30, 2, 64535},     {32, 2, 65236},  {83, 4, 9},    {87, 2, 18250},
                {89, 2, 64036},      {91, 2, 38161},     {93, 2, 12100},  {101, 2, 125}, {109, 4, 4294897296},
                {113, 2, 65534},     {117, 4, 1250},     {126, 1, 1},     {129, 1, 3},   {131, 2, 513},
                {133, 4, 0xFEDCBA98}};
  for (const auto& [at, size, expected] : fields) EXPECT_EQ(field(advanced, at, size), expected) << at;
  EXPECT_EQ(sum(advanced), 0);
  EXPECT_EQ(mirror_bits(0x35), 0xAC);
  for (const bool extended : {true, false}) {  // an older board has neither checksum nor identity
    with_board([extended](board_model& b) { set_status_bit(b, 0, extended); });
    const bytes basic = c.read(kReadBasic, 64);
    EXPECT_EQ(field(basic, 8, 4), 18250 + 64511U * 65536);
    EXPECT_EQ(field(basic, 58, 4), extended ? 3 + 513U * 65536 : 0);
    EXPECT_EQ(sum(basic) == 0, extended);
  }
  with_board([](board_model& b) { b.mode = frame_mode::noise; });
  for (int i = 0; i < 300; ++i) ASSERT_NE(sum(c.read(kReadAdvanced, 141)), 0) << i;
  EXPECT_EQ(violations, texts{});
}

TEST_F(board, the_laser_errs_and_the_battery_sags_as_they_were_told) {
  board_model b;
  b.led_enable = 0xFF, b.led_pwm = 100, b.readings.motor_amps = 1;
  const struct {
    const char* line;
    uint8_t power;
    double volts, noise, invalid;  // of 1000 samples
  } rows[] = {{"laser_noise 0.1", 0x0E, 20, 0.1, 0},
              {"laser_noise 0", 0x0E, 20, 0, 0},
              {"laser_invalid 0.3", 0x0E, 20, 0, 300},
              {"battery_ohms 0.5", 0x02, 18.1, 0, 1000},  // the board, a motor, the lights
              {"battery_drain 0.3", 0x0E, 16.575, 0, 300}};
  for (const auto& [line, power, volts, noise, invalid] : rows) {
    EXPECT_EQ(board_command(b, line), "ok\n");
    b.power_enable = power;
    std::vector<double> metres(1000);
    for (double& one : metres) board_advance(b, 0.25), one = shown_readings(b).laser_distance;
    EXPECT_NEAR(shown_readings(b).vin_volts, volts, 1e-6);
    EXPECT_NEAR(static_cast<double>(std::erase(metres, 0)), invalid, 50);
    const auto [least, most] = std::minmax_element(metres.begin(), metres.end());
    if (metres.empty()) continue;
    EXPECT_NEAR(*least, 1.5 - noise, 0.01);
    EXPECT_NEAR(*most, 1.5 + noise, 0.01);
  }
}

TEST_F(board, each_violation_is_reported_once) {
  const struct {
    const char* expected;  // part of the message
    void (*act)(controller& c);
  } rows[] = {
      {"SPI mode 0", [](controller& c) { mraa_spi_mode(c.spi, MRAA_SPI_MODE0), c.write(6, {1}); }},
      {"lsb first -1", [](controller& c) { c.spi = mraa_spi_init(0), c.write(6, {1}); }},
      {"GPIO 13 driven high", [](controller& c) { mraa_gpio_write(c.boot, 1); }},
      {"while GPIO 15 is not", [](controller& c) { mraa_gpio_close(c.reset), c.write(6, {1}); }},
      {"chip select high", [](controller& c) { mraa_spi_write(c.spi, 0x88); }},
      {"after the command byte", [](controller& c) { c.command_gap = 0, c.write(6, {1}); }},
      {"after the last byte", [](controller& c) { c.data_gap = 0, c.write(6, {1}); }},
      {"after the last transaction", [](controller& c) { c.idle_gap = 0, c.write(6, {1}), c.write(6, {1}); }},
      {"register 0x06 with 17", [](controller& c) { c.write(6, bytes(17)); }},
      {"read 0x88 with 64", [](controller& c) { c.read(kReadAdvanced, 64); }},
      {"inside read 0x88", [](controller& c) { c.transfer(kReadAdvanced, {1}, true); }},
      {"without a command",
       [](controller& c) { mraa_gpio_write(c.select, 0), mraa_gpio_write(c.select, 1); }},
  };
  for (const auto& row : rows) {
    // A pause left out can still be made by the scheduler, so a row has some attempts.
    for (int attempt = 0; attempt == 0 || (violations.empty() && attempt < 20); ++attempt) {
      fresh_bus();
      controller c;
      row.act(c);
    }
    ASSERT_EQ(violations.size(), 1U) << row.expected;
    EXPECT_NE(violations[0].find(row.expected), std::string::npos) << violations[0];
  }
}

TEST_F(board, the_wire_takes_its_time) {
  set_wire_time(true);
  const int64_t start = monotonic_ns();
  controller().read(kReadAdvanced, 141);
  EXPECT_GE(monotonic_ns() - start, 142 * 80'000);
}

}  // namespace
