// What each refresh derives from the readings, stepped without a bus.
#include "power_board/rig.h"

namespace {

class events : public rig {
 public:
  void status(int value, int times = 1) {
    const power_board_readings readings{.status = static_cast<uint8_t>(value)};
    for (int i = 0; i < times; ++i) detect_events(&board_, readings);
  }
  void pressure(int value, int times) {
    const power_board_readings readings{.bme280_pressure = static_cast<uint32_t>(value)};
    for (int i = 0; i < times; ++i) average_pressure(&board_, readings);
  }
  void humidity(int value, int times) {
    const power_board_readings readings{.bme280_humidity = static_cast<float>(value)};
    for (int i = 0; i < times; ++i) average_humidity(&board_, readings);
  }
  int battery(float volts, int times = 64) {
    const power_board_readings readings{.monitor_vin_volts = volts};
    for (int i = 0; i < times; ++i) average_battery(&board_, readings);
    return board_.battery_level;
  }
};

TEST_F(events, the_shutdown_request_is_latched) {
  for (const int value : {0x00, 0x02, 0x01, 0x21, 0x23}) status(value);  // none of them asks
  traced();
  for (const int value : {0x03, 0x03, 0x01, 0x03, 0x43}) status(value);
  EXPECT_EQ(traced(), texts{"PWRB: shutdown request"});
}

TEST_F(events, a_drive_warning_is_held_for_30_refreshes) {
  traced();
  for (const auto& [bit, name, begin] : {std::tuple{0x04, "tilt overcurrent", " begin"},
                                         std::tuple{0x08, "pan/height overcurrent", " start"}}) {
    status(bit, 3);  // not the extended board: nothing of it counts
    status(0x01 | bit, 3);
    status(0x01, 29);
    status(0x01 | bit);
    status(0x01, 29);
    const std::string tag = "PWRB: ";
    EXPECT_EQ(traced(), (texts{tag + "overcurrent", tag + name + begin, tag + "no overcurrent",
                               tag + "overcurrent", tag + "no overcurrent"}));
    status(bit);
    status(0x01, 31);
    EXPECT_EQ(traced(), texts{tag + name + " end"});
  }
}

TEST_F(events, the_battery_level_is_unknown_for_64_refreshes) {
  for (const auto& [volts, level] :
       {std::pair{19.5F, 4}, {19.375F, 3}, {18.5F, 3}, {18.0F, 2}, {17.5F, 2}, {17.375F, 1}, {0.0F, 1}}) {
    orb_power_board_init(&board_, &application_, 1);
    EXPECT_EQ(battery(volts), 0) << volts;
    EXPECT_EQ(battery(volts, 1), level) << volts;
  }
}

TEST_F(events, the_battery_level_has_hysteresis) {
  battery(16.5F, 65);
  for (const auto& [volts, level] : {std::pair{17.5F, 1},
                                     {17.625F, 2},
                                     {18.5F, 2},
                                     {18.625F, 3},
                                     {19.5F, 3},
                                     {19.625F, 4},
                                     {18.5F, 4},
                                     {18.375F, 3},
                                     {17.5F, 3},
                                     {17.375F, 2},
                                     {16.5F, 2},
                                     {16.375F, 1}}) {
    EXPECT_EQ(battery(volts), level) << volts;
  }
}

// Above `high` begins, below `low` counts down, in periods of 50 refreshes after a delay of 150.
TEST_F(events, pressure_and_humidity_warn_with_a_hold) {
  struct average {
    void (events::*feed)(int value, int times);
    const std::atomic<int>& hold;
    int high, low;
    std::string name;
  };
  for (const auto& [feed, hold, high, low, name] :
       {average{&events::pressure, board_.high_pressure_hold, 1200, 1100, "PWRB: high pressure"},
        average{&events::humidity, board_.high_humidity_hold, 9500, 9000, "PWRB: high rh"}}) {
    traced();
    (this->*feed)(60'000, 150);  // not counted
    (this->*feed)(high, 50);
    (this->*feed)(high + 1, 49);
    EXPECT_EQ(traced(), texts{});
    (this->*feed)(high + 1, 1);
    EXPECT_EQ(traced(), texts{name + " begin"});
    (this->*feed)(low - 1, 10 * 50);
    (this->*feed)(low, 50);
    (this->*feed)(high, 50);  // neither raises nor counts down
    EXPECT_EQ(hold, 20);
    (this->*feed)(high + 1, 50);
    (this->*feed)(low - 1, 30 * 50 - 1);
    EXPECT_EQ(traced(), texts{});
    (this->*feed)(low - 1, 1);
    EXPECT_EQ(traced(), texts{name + " end"});
  }
  pressure(1201, 49);
  pressure(1200, 1);
  EXPECT_EQ(traced(), texts{});  // an average of 1200 in whole units
}

}  // namespace
