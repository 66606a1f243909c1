// The mast, stepped refresh by refresh against a drive that really travels: no bus, no clock.

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <fstream>
#include <sstream>

#include "app/application.h"
#include "app/trace.h"
#include "base/paths.h"
#include "power_board/power_board.h"
#include "sim/board/board_model.h"
#include "store/settings.h"

namespace {

constexpr double kTolerance = 2825.75;  // half an inch

class mast : public testing::Test {
 protected:
  static inline orb_power_board board_;
  static inline orb_application application_;
  board_model model_;
  std::ifstream trace_;
  std::string written_;  // "3 c4" and the like, since the last look
  int since_run_ = 0;    // refreshes
  bool idle_ = true;     // before the last refresh: no run command may follow without a request
  int longest_gap_ = 0;  // between run commands while moving inside the limits

  motor_state& motors() { return board_.motors; }

  void SetUp() override {
    set_trace_mask(1U << kTraceHeightMotor | 1U << kTracePowerBoard);
    init_trace();
    orb_init_nv();
    orb_power_board_init(&board_, &application_, 1);
    trace_.open(paths::kTrace);
    refresh(5);
    EXPECT_EQ(motors().motor_type, kMotorHeight);
  }

  void refresh_once() {
    const board_readings& now = model_.readings;
    const bool outside = now.encoder_1 < motors().lower_limit || now.encoder_1 > motors().upper_limit;
    const int state = motors().homing_state == kHomed ? motors().move_state.load() : kMoveIdle;
    motor_writes writes;
    step_motors(motors(),
                {.reported_type = static_cast<int>(now.motor_type),
                 .encoder = static_cast<int>(now.encoder_1),
                 .amps = static_cast<float>(now.motor_amps),
                 .overcurrent = (model_.status & (kBoardDriveOvercurrent | kBoardTiltOvercurrent)) != 0,
                 .extended = true},
                writes);
    ++since_run_;
    for (const motor_write& write : writes.all()) {
      board_write(model_, write.number, std::span(write.data).first(write.length));
      if (write.number != 6) continue;
      written_ += write.data[0] == kMotorStop ? "stop " : "run ";
      if (write.data[0] == kMotorStop) continue;
      EXPECT_FALSE(outside && state >= kMoveOutFast && state <= kMoveCheck)
          << "a run command outside the limits";
      if (state >= kMoveOutFast && state <= kMoveInSlow) longest_gap_ = std::max(longest_gap_, since_run_);
      since_run_ = 0;
    }
    board_advance(model_, 0.1);
  }

  void refresh(int count) {
    for (int i = 0; i < count; ++i) refresh_once();
  }

  // Until the mast rests; the number of refreshes.
  int run_to_rest(int most = 1000) {
    int count = 0;
    do refresh_once();
    while (++count < most && !(motors().homing_state == kHomed && motors().move_state == kMoveIdle));
    return count;
  }

  bool is_driven() const { return motor_running(model_.motor); }

  void home() {
    EXPECT_EQ(orb_power_board_home_height(&board_), 0);
    EXPECT_LT(run_to_rest(), 450);
    refresh(20);
  }

  void go(int preset) {
    orb_power_board_set_height_preset(&board_, preset);
    run_to_rest();
  }

  // The last line since the last look that begins with "HTMT: " or "PWRB: ", without its tag and time.
  std::string last_trace() {
    trace_.clear();
    std::string last;
    for (std::string line; std::getline(trace_, line);) last = line.substr(6, line.rfind(" [") - 6);
    return last;
  }

  std::string take_written() { return std::exchange(written_, ""); }
};

TEST_F(mast, homes_from_anywhere) {
  for (const double out : {0.0, 300.0, 5000.0, 100'000.0, 270'000.0}) {
    model_.readings.encoder_1 = kMastHome - out;
    home();
    EXPECT_NEAR(motors().home_count, kMastHome, 500) << out;
    EXPECT_EQ(last_trace(), "homing complete " + std::to_string(motors().home_count)) << out;
    EXPECT_FALSE(is_driven());
  }
}

// Every way from one preset to another, with a good and a noisy encoder.
TEST_F(mast, reaches_every_preset_from_every_other) {
  constexpr int kPresets[] = {8, 10, 12, 24, 36, 48};
  for (const encoder_fault fault : {encoder_fault::none, encoder_fault::noisy}) {
    model_.mast.fault = fault;
    home();
    for (const int from : kPresets) {
      for (const int to : kPresets) {
        if (from == to) continue;
        go(from);
        go(to);
        EXPECT_EQ(last_trace(), "move done") << from << " to " << to;
        EXPECT_NEAR(model_.readings.encoder_1, motors().target, kTolerance) << from << " to " << to;
        EXPECT_NEAR(model_.mast.position, kMastHome - (to - 6) * 0.5 * 11303, kTolerance + 500)
            << from << " to " << to;
        refresh(15);
        EXPECT_FALSE(is_driven());
      }
    }
    EXPECT_LE(longest_gap_, 9);
  }
}

struct stop_case {
  const char* reason;  // how the traced line goes on after "move out " or "move in "
  void (*provoke)(orb_power_board& board, board_model& model);
};

TEST_F(mast, each_reason_stops_it_in_both_directions) {
  const stop_case cases[] = {
      {"cancel", [](auto& board, auto&) { orb_power_board_stop_motor(&board); }},
      {"overcurrent stop", [](auto&, auto& model) { model.mast.jammed = true; }},
      {"no movement stop", [](auto&, auto& model) { model.mast.fault = encoder_fault::frozen; }},
      {"timeout", [](auto& board, auto&) { board.motors.timeout_count = 1; }},
  };
  home();
  for (const auto& [reason, provoke] : cases) {
    for (const bool out : {true, false}) {
      model_.mast.jammed = false;
      model_.mast.fault = encoder_fault::none;
      refresh(3);
      go(out ? 8 : 48);
      orb_power_board_set_height_preset(&board_, out ? 48 : 8);
      refresh(30);
      provoke(board_, model_);
      take_written();
      run_to_rest(100);
      EXPECT_EQ(last_trace().rfind(std::string("move ") + (out ? "out " : "in ") + reason, 0), 0U) << reason;
      const std::string writes = take_written();
      EXPECT_EQ(writes.substr(writes.size() - 5), "stop ");
      refresh(30);
      EXPECT_EQ(take_written(), "") << "nothing runs after " << reason;
      EXPECT_FALSE(is_driven());
    }
  }
}

// A stop before the drive has started, or while the result is checked, is not followed by a run command.
TEST_F(mast, is_cancelled_before_the_start_and_during_the_check) {
  home();
  orb_power_board_set_height_preset(&board_, 24);
  refresh(2);
  ASSERT_EQ(motors().move_state, kMoveStart);
  orb_power_board_stop_motor(&board_);
  take_written();
  refresh(20);
  EXPECT_EQ(take_written(), "stop ");
  EXPECT_EQ(last_trace().rfind("move out cancel", 0), 0U);

  orb_power_board_set_height_preset(&board_, 10);
  for (int i = 0; i < 300 && motors().move_state != kMoveCheck; ++i) refresh_once();
  ASSERT_EQ(motors().move_state, kMoveCheck);
  orb_power_board_stop_motor(&board_);
  take_written();
  refresh(20);
  EXPECT_EQ(take_written(), "stop ");
}

TEST_F(mast, ignores_small_changes_and_presets_while_it_moves) {
  home();
  go(12);
  const int target = motors().target;
  model_.readings.encoder_1 = motors().position + 2825.0;
  refresh(2);
  orb_power_board_set_height_preset(&board_, 12);
  EXPECT_EQ(motors().move_state, kMoveIdle);
  orb_power_board_set_height_preset(&board_, 48);
  refresh(20);
  orb_power_board_set_height_preset(&board_, 8);  // only stored
  EXPECT_LT(motors().target, target);
  EXPECT_EQ(motors().height_preset, 8);
}

TEST_F(mast, a_jog_needs_a_home_but_a_tilt_does_not) {
  EXPECT_EQ(orb_power_board_start_motor(&board_, kMotorRunDrive, 100, 500), -1);
  refresh(2);
  EXPECT_EQ(motors().homing_state, kHomingStart);
  run_to_rest();
  EXPECT_EQ(orb_power_board_start_motor(&board_, kMotorRunDrive, 300, 500), 0);
  const mutex_lock lock(board_.queue_lock);
  const work_item speed = board_.queue.take();
  EXPECT_EQ(speed.number, 3);
  EXPECT_EQ(static_cast<int8_t>(speed.data[0]), 100);  // limited; not scaled: no extended frame has been read
  EXPECT_EQ(board_.queue.take().number, 6);
}

// Quick changes of direction: the last speed that was queued counts, not the reading of the last frame.
TEST_F(mast, every_change_of_direction_writes_its_speed) {
  home();
  std::string speeds;
  for (const int pwm : {60, -60, 60, 60}) EXPECT_EQ(orb_power_board_start_motor(&board_, 1, pwm, 500), 0);
  const mutex_lock lock(board_.queue_lock);
  while (!board_.queue.empty()) {
    const work_item item = board_.queue.take();
    speeds += item.number == 3 ? std::to_string(static_cast<int8_t>(item.data[0])) + " " : "run ";
  }
  EXPECT_EQ(speeds, "60 run -60 run 60 run run ");
}

TEST_F(mast, a_stop_finds_a_place_in_a_full_queue) {
  const uint8_t data[] = {1};
  while (orb_power_board_issue_write(&board_, 9, data, 1) == 0) continue;
  for (int i = 0; i < 100; ++i) EXPECT_EQ(orb_power_board_stop_motor(&board_), 0);
  const mutex_lock lock(board_.queue_lock);
  work_item last;
  while (!board_.queue.empty()) last = board_.queue.take();
  EXPECT_TRUE(is_motor_stop(last));
}

TEST_F(mast, shows_its_height) {
  const auto height = [] {
    char text[16];
    orb_power_board_load_height(&board_, text, sizeof text);
    return std::string(text);
  };
  orb_power_board_home_height(&board_);
  EXPECT_EQ(height(), "HOMING");
  run_to_rest();
  EXPECT_EQ(height(), "6.0 in");
  orb_power_board_set_height_preset(&board_, 24);
  EXPECT_EQ(height(), "SETTING");
  run_to_rest();
  EXPECT_NEAR(strtod(height().c_str(), nullptr), 24, 0.5);
  orb_power_board_set_height_extension(&board_, 1);
  const int metric = 0;
  orb_write_nv(kSettingUnits, &metric, sizeof metric);
  EXPECT_NEAR(strtod(height().c_str(), nullptr), 48 * 2.54, 1.3);
  EXPECT_NE(height().find(" cm"), std::string::npos);
}

TEST(tilt, slows_down_with_the_zoom) {
  const std::pair<float, int> rows[] = {{0, 100}, {1, 100}, {1.5F, 98}, {15, 61},
                                        {30, 20}, {31, 20}, {360, 20}};
  for (const auto& [zoom, pwm] : rows) EXPECT_EQ(tilt_jog_pwm(zoom), pwm) << zoom;
}

}  // namespace
