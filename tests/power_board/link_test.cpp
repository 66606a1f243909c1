// Bring-up, and the two transactions on the wire, on the test's own thread where that is enough.
#include "power_board/rig.h"

namespace {

class power_link : public rig {
 protected:
  // Brings the bus up with the next such call failing; returns what was said, without its line number.
  std::string bring_up_failing(bus_call call, int result, int pin) {
    fail_next(call, static_cast<mraa_result_t>(result), pin);
    testing::internal::CaptureStderr();
    EXPECT_EQ(open_bus(&board_), -1);
    EXPECT_EQ(open_bus_handles(), 0);
    return without_line_numbers(testing::internal::GetCapturedStderr());
  }
};

TEST_F(power_link, each_bring_up_failure_says_why_and_closes_all) {
  const auto message = [](const std::string& call, const char* reason) {
    return "orbd: " + call + "() failed at line N" + reason + "\n";
  };
  for (const int pin : {24, 13, 15}) {
    EXPECT_EQ(bring_up_failing(bus_call::gpio_init, 99, pin), message("mraa_gpio_init", ""));
    EXPECT_EQ(bring_up_failing(bus_call::gpio_dir, 4, pin), message("mraa_gpio_dir", ": Invalid parameter"));
    EXPECT_EQ(bring_up_failing(bus_call::gpio_write, 5, pin), message("mraa_gpio_write", ": Invalid handle"));
  }
  EXPECT_EQ(bring_up_failing(bus_call::spi_init, 99, kAnyPin), message("mraa_spi_init", ""));
  EXPECT_EQ(bring_up_failing(bus_call::spi_mode, 1, kAnyPin),
            message("mraa_spi_mode", ": Feature not implemented"));
  EXPECT_EQ(bring_up_failing(bus_call::spi_frequency, 2, kAnyPin),
            message("mraa_spi_frequency", ": Feature not supported by hardware"));
  for (const auto& [code, text] : {std::pair{3, ": Invalid verbosity level"},
                                   {12, ": UART OW: Bus short"},
                                   {13, ": UART OW: No devices"},
                                   {14, ": UART OW: Bus error"},
                                   {15, ": Unspecified error"},
                                   {99, ": Unspecified error"}}) {
    EXPECT_EQ(bring_up_failing(bus_call::spi_lsbmode, code, kAnyPin), message("mraa_spi_lsbmode", text));
  }
}

TEST_F(power_link, a_failed_bring_up_leaves_a_board_that_never_works) {
  fail_next(bus_call::spi_init);
  testing::internal::CaptureStderr();
  ASSERT_EQ(orb_power_board_start_service(&board_), 0);
  ASSERT_TRUE(wait_for_state(board_, 255));
  for (int i = 0; i < 3; ++i) tick();  // one refresh waits, not three
  for (int i = 1; i < 256; ++i) ASSERT_EQ(write(0, {2}), 0);
  EXPECT_EQ(write(0, {2}), -1);
  EXPECT_EQ(orb_power_board_start_service(&board_), -1);
  orb_power_board_stop_service(&board_);
  EXPECT_EQ(orb_power_board_start_service(&board_), -1);
  const std::string again =
      "orbd: orb_power_board_start_service() failed at line N: Operation already in progress\n";
  EXPECT_EQ(without_line_numbers(testing::internal::GetCapturedStderr()),
            "orbd: mraa_spi_init() failed at line N\n" + again + again);
  EXPECT_EQ(written(), texts{});
}

TEST_F(power_link, register_writes_go_out_byte_by_byte) {
  traced();
  testing::internal::CaptureStdout();
  start();
  const std::vector<uint8_t> most{0x80, 0x01, 0x40, 0x02, 0x20, 0x04, 0x10, 0x08,
                                  0xFF, 0,    0x55, 0xAA, 0x33, 0xCC, 0x0F, 0xF1};
  const std::vector<uint8_t> more(17);
  EXPECT_EQ(write(1, {0x12, 0x32}), 0);
  EXPECT_EQ(write(0x55, {}), 0);
  EXPECT_EQ(write(0x56, most), 0);
  EXPECT_EQ(write(1, more), -2);
  EXPECT_EQ(write(0x80, {1}), -2);
  EXPECT_EQ(write(0xFF, {1}), -2);
  orb_power_board_destroy(&board_);
  EXPECT_EQ(written(), (texts{"1:1232", "85:", "86:8001400220041008ff0055aa33cc0ff1"}));
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "WRITE: (1) 1232\nWRITE: (85) \nWRITE: (86) 8001400220041008ff0055aa33cc0ff1\n");
  const texts lines = traced();
  ASSERT_GE(lines.size(), 4U);
  EXPECT_EQ(lines[0], "PWRB: start");
  EXPECT_EQ(lines[1], "PBRF: write to register 1");
  EXPECT_EQ(lines[2], "PBRF: write data:");
  EXPECT_TRUE(lines[3].starts_with("PBRF:  1232 ")) << lines[3];
}

TEST_F(power_link, bad_frames_keep_the_readings_and_silence_clears_them) {
  ASSERT_EQ(open_bus(&board_), 0);
  const auto volts = [&](double vin, frame_mode mode) {
    with_board([&](auto& b) { return b.mode = mode, b.readings.vin_volts = vin; });
    read_status(&board_);
    power_board_readings readings;
    orb_power_board_load_registers(&board_, &readings);
    return readings.monitor_vin_volts;
  };
  EXPECT_FLOAT_EQ(volts(21.5, frame_mode::good), 21.5F);
  EXPECT_EQ(orb_power_board_get_board_type(&board_), 1);
  traced();
  EXPECT_FLOAT_EQ(volts(1, frame_mode::bad_checksum), 21.5F);
  EXPECT_EQ(traced(), (texts{"PBRF: refresh 88 141 0 0", "PBRF: *** bad refresh 01 ***"}));
  EXPECT_FLOAT_EQ(volts(2, frame_mode::noise), 21.5F);
  EXPECT_EQ(volts(3, frame_mode::zeros), 0);
  EXPECT_EQ(orb_power_board_get_board_type(&board_), 0);
  traced();
  EXPECT_FLOAT_EQ(volts(4, frame_mode::good), 4.0F);
  orb_power_board_set_zero_buffer(&board_, 0x105);
  EXPECT_EQ(volts(5, frame_mode::good), 0);
  EXPECT_EQ(traced(), (texts{"PBRF: refresh 88 141 0 1", "PWRB: zero buffer 261", "PBRF: refresh 88 141 5 0",
                             "PBRF: zero buffer"}));
  orb_power_board_set_zero_buffer(&board_, 0x100);  // only the low byte counts
  EXPECT_FLOAT_EQ(volts(6, frame_mode::good), 6.0F);
  orb_power_board_set_read_command(&board_, 0x42);  // the board does not know it
  EXPECT_EQ(orb_power_board_get_read_command(&board_), 0x42);
  EXPECT_EQ(volts(7, frame_mode::good), 0);
  close_bus(&board_);
}

TEST_F(power_link, the_basic_board_has_a_frame_of_its_own) {
  orb_power_board_init(&board_, &application_, 0);
  ASSERT_EQ(open_bus(&board_), 0);
  power_board_readings old_board, new_board;
  for (const auto& [status, readings] : {std::pair{0x40, &old_board}, {0x41, &new_board}}) {
    with_board([s = status](auto& b) { return b.status = static_cast<uint8_t>(s); });
    read_status(&board_);
    orb_power_board_load_registers(&board_, readings);
    EXPECT_EQ(readings->status, status);
    EXPECT_FLOAT_EQ(readings->monitor_vin_volts, 20.0F);
  }
  EXPECT_EQ(old_board.board_revision, 1);
  EXPECT_EQ(old_board.build_number, 0);
  EXPECT_EQ(new_board.board_revision, 3);
  EXPECT_EQ(new_board.build_number, 42);
  close_bus(&board_);
}

}  // namespace
