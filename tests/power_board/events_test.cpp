// What each refresh derives from the readings, stepped without a bus.
#include "log_files/current_readings.h"
#include "osd/osd.h"
#include "power_board/laser.h"
#include "power_board/rig.h"
#include "store/logger.h"

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
  std::string battery(float volts, int times = 64) {
    refresh({.monitor_vin_volts = volts}, times);
    return loaded(
        [this](char* text, size_t size) { orb_power_board_load_battery_level(&board_, text, size); });
  }
  static std::string reported(std::initializer_list<const char*> keys) {
    const json_owner readings = orb_get_logger_current_readings();
    std::string values;
    for (const std::string key : keys) values += json_text(readings.get(), ("present_" + key).c_str()) + " ";
    return values;
  }
};

// The unit ends once for one request, and a warning does not flicker with the current.
TEST_F(events, a_shutdown_request_is_latched_and_drive_warnings_are_held_for_30_refreshes) {
  orb_init_logger();
  static int requests = 0;
  board_.on_shutdown_request = [] { ++requests; };
  for (const int none : {0x00, 0x0E, 0x01, 0x21, 0x23}) status(none);
  EXPECT_EQ(traced(), texts{});
  for (const int value : {0x03, 0x03, 0x01, 0x03}) status(value);
  EXPECT_EQ(traced(), texts{"PWRB: shutdown request"});
  EXPECT_EQ(requests, 1);
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
  for (const uint8_t type : {kMotorHeight, kMotorPan, kMotorPan})
    refresh({.status = 0x09, .motor_type = type}, 2), status(0x01, 30);
  EXPECT_EQ(reported({"tilt_motor_warnings", "height_motor_warnings", "pan_motor_warnings"}), "1 1 2 ");
}

// A level that flickers at a threshold, or is told from a sum that is not full.
TEST_F(events, the_battery_level_is_unknown_for_64_refreshes_and_then_has_hysteresis) {
  texts levels;
  for (const float volts : {19.5F, 19.375F, 18.5F, 18.375F, 17.5F, 17.375F}) {
    orb_power_board_init(&board_, &application_, 1);
    EXPECT_EQ(battery(volts), "?") << volts;
    levels.push_back(battery(volts, 1));
  }
  EXPECT_EQ(levels, (texts{"100%", "75%", "75%", "50%", "50%", "25%"}));
  levels.clear();
  for (const float volts :
       {17.5F, 17.625F, 18.5F, 18.625F, 19.5F, 19.625F, 18.5F, 18.375F, 17.5F, 17.375F, 16.5F, 16.375F})
    levels.push_back(battery(volts));
  EXPECT_EQ(levels,
            (texts{"25%", "50%", "50%", "75%", "75%", "100%", "100%", "75%", "75%", "50%", "50%", "25%"}));
}

// A distance that was measured to something else.
TEST_F(events, a_laser_reading_is_shown_when_it_is_valid_and_asked_for_or_new) {
  const auto mode = [this](int value) { orb_power_board_set_laser_mode(&board_, value); };
  const auto trigger = [this] { return orb_power_board_trigger_laser_reading(&board_); };
  const auto shows = [this](double metres) {
    update_laser(&board_, {.laser_distance = metres});
    return orb_get_osd_item(kOsdLaser) != 0;
  };
  mode(1);
  EXPECT_EQ(trigger(), 0);
  EXPECT_FALSE(shows(0.05));  // none: the trigger waits
  EXPECT_TRUE(shows(0.051));
  orb_power_board_clear_laser_reading(&board_);
  EXPECT_FALSE(shows(0));
  mode(2);
  EXPECT_EQ(trigger(), 0);
  orb_power_board_clear_laser_reading(&board_);
  EXPECT_FALSE(shows(0));
  EXPECT_EQ(board_.laser.distance, 0.051);
  EXPECT_EQ(board_.laser.clear, 1) << "waits for the trigger";
  mode(3);
  EXPECT_EQ(trigger(), -1);
  EXPECT_TRUE(shows(2));
  orb_set_osd_item(kOsdLaser, 0);
  EXPECT_FALSE(shows(2)) << "no new one";
  mode(9);  // none
  EXPECT_TRUE(shows(3));
  mode(0);
  EXPECT_FALSE(shows(4));
}

// Above the upper limit begins, below the lower one counts down, in periods of 50 refreshes after a delay.
TEST_F(events, pressure_and_humidity_warn_with_a_hold) {
  orb_init_logger();
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
  tick_logger();
  EXPECT_EQ(reported({"high_pressure_warnings", "internal_max_pressure", "internal_min_humidity"}),
            "1 1201 mb 8999 % ");
}

}  // namespace
