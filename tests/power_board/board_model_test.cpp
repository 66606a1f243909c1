// What the simulated bus finds fault with.
#include <mraa/gpio.h>
#include <mraa/spi.h>

#include "power_board/rig.h"

namespace {

using simulated_board = rig;

// A transaction with pauses of its own, and none behind it.
void transfer(orb_power_board& b, uint8_t command, int64_t command_gap_ns, int64_t data_gap_ns) {
  uint8_t data = 1;
  mraa_gpio_write(b.chip_select, 0);
  mraa_spi_transfer_buf(b.spi, &command, nullptr, 1);
  if (command_gap_ns > 0) sleep_ns(command_gap_ns);
  mraa_spi_transfer_buf(b.spi, &data, nullptr, 1);
  if (data_gap_ns > 0) sleep_ns(data_gap_ns);
  mraa_gpio_write(b.chip_select, 1);
}

void stop_motors(orb_power_board& b, size_t length = 1) {
  constexpr uint8_t kStop[] = {kMotorStop, 0};
  write_register(&b, write_item(kMotorRegister, std::span(kStop).first(length)));
}

TEST_F(simulated_board, reports_each_violation_once) {
  constexpr uint8_t kWrite = 0x61;  // to register 6, as it goes out
  const std::pair<const char*, void (*)(orb_power_board&)> rows[] = {
      {"SPI mode 0", [](auto& b) { mraa_spi_mode(b.spi, MRAA_SPI_MODE0), stop_motors(b); }},
      {"lsb first -1", [](auto& b) { b.spi = mraa_spi_init(0), stop_motors(b); }},
      {"GPIO 13 driven high", [](auto& b) { mraa_gpio_write(b.boot_line, 1); }},
      {"while GPIO 15 is not", [](auto& b) { mraa_gpio_close(b.reset_line), stop_motors(b); }},
      {"chip select high", [](auto& b) { mraa_spi_write(b.spi, 0x88); }},
      {"after the command byte", [](auto& b) { transfer(b, kWrite, 0, 10'000); }},
      {"after the last byte", [](auto& b) { transfer(b, kWrite, 10'000, 0); }},
      {"after the last transaction", [](auto& b) { transfer(b, kWrite, 10'000, 10'000), stop_motors(b); }},
      {"register 0x06 with 2", [](auto& b) { stop_motors(b, 2); }},
      {"read 0x88 with 64", [](auto& b) { b.read_length = 64, read_status(&b); }},
      {"inside read 0x88", [](auto& b) { transfer(b, kReadAdvanced, 10'000, 10'000); }},
      {"without a command", [](auto& b) { mraa_gpio_write(b.chip_select, 0), close_bus(&b); }},
  };
  for (const auto& [expected, act] : rows) {
    // A pause left out can still be made by the scheduler, so a row has some attempts.
    for (int attempt = 0; attempt == 0 || (violations.empty() && attempt < 20); ++attempt) {
      fresh_bus();
      ASSERT_EQ(open_bus(&board_), 0);
      act(board_);
    }
    ASSERT_EQ(violations.size(), 1U) << expected;
    EXPECT_NE(violations[0].find(expected), std::string::npos) << violations[0];
  }
  fresh_bus();
}

}  // namespace
