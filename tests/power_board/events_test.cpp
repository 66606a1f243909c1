// What each refresh derives from the readings, stepped without a bus.
#include "power_board/rig.h"

namespace {

class events : public rig {
 protected:
  void refresh(const power_board_readings& readings, int times = 1) {
    for (int i = 0; i < times; ++i) {
      detect_events(&board_, readings);
      average_battery(&board_, readings);
      average_pressure(&board_, readings);
      average_humidity(&board_, readings);
    }
  }
  void status(int value, int times = 1) { refresh({.status = static_cast<uint8_t>(value)}, times); }
  int battery(float volts, int times = 64) {
    refresh({.monitor_vin_volts = volts}, times);
    return board_.battery_level;
  }
};

TEST_F(events, a_shutdown_request_is_latched_and_drive_warnings_are_held_for_30_refreshes) {
  for (const int none : {0x00, 0x0E, 0x01, 0x21, 0x23}) status(none);
  EXPECT_EQ(traced(), texts{});
  for (const int value : {0x03, 0x03, 0x01, 0x03}) status(value);
  EXPECT_EQ(traced(), texts{"PWRB: shutdown request"});
  const std::string on = "PWRB: overcurrent", off = "PWRB: no overcurrent";
  status(0x05, 3);
  status(0x01, 29);
  status(0x05);
  status(0x09, 29);
  EXPECT_EQ(traced(),
            (texts{on, "PWRB: tilt overcurrent begin", off, on, "PWRB: pan/height overcurrent start"}));
  status(0x09);
  EXPECT_EQ(traced(), texts{"PWRB: tilt overcurrent end"});
  status(0x01, 29);
  EXPECT_EQ(traced(), texts{off});
  status(0x01, 31);
  EXPECT_EQ(traced(), texts{"PWRB: pan/height overcurrent end"});
}

TEST_F(events, the_battery_level_is_unknown_for_64_refreshes_and_then_has_hysteresis) {
  std::vector<int> levels;
  for (const float volts : {19.5F, 19.375F, 18.5F, 18.375F, 17.5F, 17.375F}) {
    orb_power_board_init(&board_, &application_, 1);
    EXPECT_EQ(battery(volts), 0) << volts;
    levels.push_back(battery(volts, 1));
  }
  EXPECT_EQ(levels, (std::vector{4, 3, 3, 2, 2, 1}));
  levels.clear();
  for (const float volts : {17.5F, 17.625F, 18.5F, 18.625F, 19.5F, 19.625F}) levels.push_back(battery(volts));
  for (const float volts : {18.5F, 18.375F, 17.5F, 17.375F, 16.5F, 16.375F}) levels.push_back(battery(volts));
  EXPECT_EQ(levels, (std::vector{1, 2, 2, 3, 3, 4, 4, 3, 3, 2, 2, 1}));
}

// Above the upper limit begins, below the lower one counts down, in periods of 50 refreshes after a delay.
TEST_F(events, pressure_and_humidity_warn_with_a_hold) {
  const auto feed = [&](uint32_t pressure, float humidity, int times) {
    refresh({.bme280_pressure = pressure, .bme280_humidity = humidity}, times);
  };
  feed(60'000, 60'000, 150);  // not counted
  feed(1201, 9500, 49);
  feed(1200, 9500, 1);  // an average of 1200 in whole units
  feed(1201, 9501, 49);
  EXPECT_EQ(traced(), texts{});
  feed(1201, 9501, 1);
  EXPECT_EQ(traced(), (texts{"PWRB: high pressure begin", "PWRB: high rh begin"}));
  feed(1099, 8999, 10 * 50);
  feed(1100, 9000, 50);  // neither raises nor counts down
  feed(1200, 9500, 50);
  feed(1099, 8999, 20 * 50 - 1);
  EXPECT_EQ(traced(), texts{});
  feed(1099, 8999, 1);
  EXPECT_EQ(traced(), (texts{"PWRB: high pressure end", "PWRB: high rh end"}));
}

}  // namespace
