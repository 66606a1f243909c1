// The mast, stepped refresh by refresh against a drive that really travels: no bus, no clock.

#include "power_board/rig.h"
#include "store/settings.h"

namespace {

constexpr double kTolerance = 2825.75;  // half an inch
constexpr double kCountsPerInch = 5651.5;

bool contains_any(const std::string& line, std::initializer_list<const char*> texts) {
  return std::ranges::any_of(texts, [&](const char* text) { return contains(line, text); });
}

// What is wrong with the drive, from the start or from a random moment on.
struct move_variant {
  const char* end = "move done";  // the other way in which such a move may end
  double inertia_s = 0.15, full_speed = 9000;
  encoder_fault fault = encoder_fault::none, later_fault = encoder_fault::none;
  bool later_jam = false;
  int later_astray = 0;
};

// With an inertia above some 0.9 s the mast would roll on too far behind its target, which no check looks at.
constexpr move_variant kMoveVariants[] = {
    {},
    {.fault = encoder_fault::noisy},
    {.inertia_s = 0.02},
    {.inertia_s = 0.8, .fault = encoder_fault::noisy},
    {.end = "timeout", .full_speed = 4500},
    {.end = "no movement stop", .fault = encoder_fault::slipping},
    {.end = "no movement stop", .later_fault = encoder_fault::frozen},
    {.end = "overcurrent stop", .later_jam = true},
    {.end = "no movement stop", .later_astray = 1'000'000},
    {.end = "no movement stop", .inertia_s = 0.5, .later_astray = -1'000'000}};

class mast : public rig {
 protected:
  board_model model_;
  std::string last_;  // traced line, without its tag and time
  std::string log_;   // since the last look: lines traced and register writes, without what is only repeated
  int since_run_ = 0, astray_ = 0;  // refreshes; counts that the encoder is off
  bool ended_ = false;              // an end was traced, and nothing has been requested since
  bool late_ = false;               // the next refresh is
  std::mt19937 random_{1};

  motor_state& motors() { return board_.motors; }

  mast() { trace_mask_ = 1U << kTraceHeightMotor | 1U << kTracePowerBoard; }

  void SetUp() override {
    orb_init_nv();
    rig::SetUp();
    refresh(5);
    EXPECT_EQ(motors().motor_type, kMotorHeight);
  }

  void take_line(const std::string& line) {
    last_ = line;
    // After its end nothing runs until the next request.
    if (contains_any(last_, {" stop ", " cancel", " timeout", "move done"})) ended_ = true;
    if (last_ == "homing start") ended_ = false;
    const bool sample = std::isdigit(last_[0]) != 0 || last_[0] == '-';
    if (!sample &&
        !contains_any(last_, {" amps ", " sample ", " continue", "adjust", " moving ", " stopping "}))
      log_ += last_ + ",";
  }

  void read_trace() {
    for (const std::string& line : traced()) take_line(line.substr(6));
  }

  static std::string described(uint8_t number, std::span<const uint8_t> data) {
    if (number == kSpeedRegister) return std::to_string(static_cast<int8_t>(data[0])) + ",";
    return data[0] == kMotorStop ? "stop," : "run,";
  }

  bool perform(const motor_write& write) {
    board_write(model_, write.number, std::span(write.data).first(write.length));
    EXPECT_TRUE(write.number != kSpeedRegister || (write.data[1] | write.data[2] << 8) == 1000);
    const std::string text = described(write.number, write.data);
    const bool run = text == "run,";
    if (!run || !log_.ends_with(text)) log_ += text;
    return run;
  }

  // One refresh, and what must hold in each.
  void refresh_once() {
    const board_readings& now = model_.readings;
    const int encoder = static_cast<int>(now.encoder_1) + astray_;
    const bool inside = encoder >= motors().lower_limit && encoder <= motors().upper_limit;
    const int state = motors().move_state;
    motor_output output;
    step_motors(motors(),
                {.reported_type = static_cast<int>(now.motor_type),
                 .encoder = encoder,
                 .amps = static_cast<float>(now.motor_amps),
                 .overcurrent = (model_.status & (kBoardDriveOvercurrent | kBoardTiltOvercurrent)) != 0,
                 .extended = true,
                 .late = std::exchange(late_, false)},
                output);
    read_trace();
    for (const motor_line& line : output.lines()) take_line(line.text.data());
    bool ran = false;
    for (const motor_write& write : output.writes()) ran |= perform(write);
    since_run_ = ran ? 0 : since_run_ + 1;
    const bool homing = motors().homing_state == kHomingStart || motors().homing_state == kHomingDrive;
    const bool moving = inside && motors().move_state >= kMoveOutFast && motors().move_state <= kMoveInSlow;
    EXPECT_FALSE((homing && since_run_ >= 8) || (moving && since_run_ >= 9)) << "no run command: " << last_;
    EXPECT_FALSE(ran && !inside && state >= kMoveOutFast && state <= kMoveCheck) << "outside the limits";
    EXPECT_FALSE(ended_ && motor_running(model_.motor)) << "runs after its end: " << last_;
    board_advance(model_, 0.1);
  }

  void refresh(int count) {
    for (; count > 0; --count) refresh_once();
  }

  // No refresh for longer than a drive runs by itself.
  void pause() { board_advance(model_, 1.5), late_ = true; }

  int run_to_rest() {
    int count = 0;
    do refresh_once();
    while (++count < 1000 && !(motors().homing_state == kHomed && motors().move_state == kMoveIdle));
    return count;
  }

  void request_home() {
    ended_ = false;
    EXPECT_EQ(orb_power_board_home_height(&board_), 0);
  }

  void await_rest() {
    EXPECT_LT(run_to_rest(), 450);
    refresh(20);
  }

  void home() { request_home(), await_rest(); }

  void request(int preset) { ended_ = false, orb_power_board_set_height_preset(&board_, preset); }

  void go(int preset) { request(preset), run_to_rest(); }

  // A homing from 36 inches, where the encoder stood at 5000.
  void expect_homed(const std::string& what) {
    EXPECT_LT(run_to_rest(), 450);
    EXPECT_NEAR(motors().home_count, 5000 + 30 * kCountsPerInch, 499) << what;
  }

  double count_at(int preset) { return motors().home_count - (preset - 6) * kCountsPerInch; }

  // Gives the resting mast a sound drive, its encoder at `count` while it is at `preset`.
  void place(int preset, double count) {
    model_.mast = make_mast(kMastHome);
    model_.mast.position -= (preset - 6) * kCountsPerInch;
    model_.mast.count = model_.shown_1 = model_.readings.encoder_1 = std::round(count);
    refresh(3);
  }

  void move(int from, int to, const move_variant& v) {
    place(from, count_at(from));
    board_drive& drive = model_.mast;
    drive.inertia_s = v.inertia_s, drive.full_speed = v.full_speed, drive.fault = v.fault;
    drive.noise = static_cast<uint32_t>(random_());
    request(to);
    // After the start, because an encoder that is astray before it is believed.
    refresh(std::uniform_int_distribution(6, 65 + 6 * std::abs(to - from))(random_));
    if (v.later_fault != encoder_fault::none) drive.fault = v.later_fault;
    drive.jammed = v.later_jam;
    astray_ = v.later_astray;
    refresh(std::uniform_int_distribution(1, 25)(random_));
    astray_ = 0;
    await_rest();
  }

  std::string take_log() { return std::exchange(log_, ""); }
  int jog(int pwm, int motor = kMotorRunDrive) {
    return orb_power_board_start_motor(&board_, motor, pwm, 500);
  }

  // What the operations have queued, which the board gets.
  std::string queued() {
    std::string all;
    const mutex_lock lock(board_.queue_lock);
    while (!board_.queue.empty()) {
      const work_item item = board_.queue.take();
      board_write(model_, item.number, std::span(item.data).first(item.length));
      all += described(item.number, item.data);
    }
    return all;
  }

  std::string height() {
    return loaded([this](char* text, size_t size) { orb_power_board_load_height(&board_, text, size); });
  }
};

// Every way from one preset to another, thousands of times; refresh_once looks at what must always hold.
TEST_F(mast, ends_and_is_at_its_preset_when_it_is_done) {
  constexpr int kPresets[] = {8, 10, 12, 24, 36, 48};
  for (int round = -5; round < 5; ++round) {
    place(6, round * 400'000'000.0);
    home();
    for (const move_variant& v : kMoveVariants) {
      bool always_done = true;
      for (const int from : kPresets) {
        for (const int to : kPresets) {
          if (from == to) continue;
          move(from, to, v);
          const bool done = last_ == "move done";
          const double off = std::fabs(model_.readings.encoder_1 - count_at(to));
          EXPECT_TRUE(done ? off <= kTolerance : contains(last_, v.end)) << last_ << off;
          always_done &= done;
          ASSERT_FALSE(HasFailure()) << from << " to " << to << ", variant " << &v - kMoveVariants;
        }
      }
      EXPECT_EQ(always_done, std::string(v.end) == "move done") << v.end;
    }
  }
}

// What follows an event so many refreshes after the request (400: while the result is checked): "*" stands
// for the direction, "~" for the sign of the pwm, "#" for counts. A move starts after 5 refreshes, and sends
// its run command again in every ninth.
TEST_F(mast, each_event_of_a_move_in_both_directions) {
  const auto push = [this, &m = motors()](int counts) {
    model_.readings.encoder_1 =
        m.move_state == kMoveCheck ? m.target + m.direction * counts : m.position + counts;
  };
  const auto stop = [this] { orb_power_board_stop_motor(&board_); };
  const std::tuple<int, const char*, std::function<void()>> cases[] = {
      {1, "encoder resample #,encoder #,move * fast start # #,~60,run,", [&] { push(-300); }},
      {3, "move * cancel # #,stop,", stop},
      {30, "move * cancel 374 0,stop,", [this] { EXPECT_EQ(jog(100), -1); }},
      {30, "move * overcurrent stop 373 1,stop,", [&] { model_.mast.jammed = true; }},
      {30, "run,move * no movement stop 364 10,stop,", [&] { model_.mast.fault = encoder_fault::frozen; }},
      {30, "run,move * timeout 0 0,stop,", [&] { model_.mast.full_speed = 1200, refresh(365); }},
      {400, "move * cancel # 0,stop,", stop},
      {400, "move * slow,~15,run,move * check,stop,move done,",
       [&] {
         push(300), refresh(5);
         EXPECT_NE(motors().move_state, kMoveCheck);
       }},
      {400, "move * fast,~60,run,move * slow,stop,~15,run,move * check,stop,move done,",
       [&] { push(20'000); }},
      {400, "move check timeout,", [&] {
         for (int i = 0; i < 400 && !ended_; ++i) push(i % 8 < 4 ? 100 : -100), refresh_once();
       }}};
  home();
  for (const auto& [after, log, provoke] : cases) {
    for (const bool out : {true, false}) {
      place(24, count_at(24));
      request(out ? 48 : 8);
      for (int i = 0; i < after && motors().move_state != kMoveCheck; ++i) refresh_once();
      take_log();
      provoke();
      for (int i = 0; i < 80 && !ended_; ++i) refresh_once();
      std::string expected = log;
      for (const auto& [mark, text] :
           {std::pair("\\*", out ? "out" : "in"), {"~", out ? "" : "-"}, {"#", "-?[0-9]+"}})
        expected = std::regex_replace(expected, std::regex(mark), text);
      const std::string actual = take_log();
      EXPECT_TRUE(std::regex_match(actual, std::regex(expected))) << log << ": " << actual;
      run_to_rest();
      model_.mast.jammed = false, model_.mast.fault = encoder_fault::none, model_.mast.full_speed = 9000;
      refresh(20);
      go(out ? 8 : 48);  // the other way, which is served whatever happened
      EXPECT_EQ(last_, "move done") << "after " << log;
    }
  }
}

// A drive that pushes against its end, or a home that is not where the mast came to rest. After a number of
// refreshes something changes; altogether it takes so many, the settling included.
TEST_F(mast, each_reason_ends_a_homing) {
  const auto retract = [](board_drive& drive) { drive.position = drive.high_stop; };
  const auto jam = [](board_drive& drive) { drive.jammed = true; };
  const auto lose_stop = [](board_drive& drive) { drive.high_stop = 1e9; };
  const std::tuple<int, void (*)(board_drive&), int, const char*> cases[] = {
      {0, retract, 24, "e-complete stop 5000,stop,"},   {0, jam, 5, "over-current stop 5000,stop,"},
      {20, jam, 25, "over-current stop 21695,stop,"},   {20, retract, 27, "complete stop 21695,stop,"},
      {0, lose_stop, 414, "timeout stop 369995,stop,"},  // rolls on
  };
  for (const auto& [after, change, refreshes, end] : cases) {
    place(24, 5000);
    request_home();
    take_log();
    refresh(after);
    change(model_.mast);
    EXPECT_EQ(after + run_to_rest(), refreshes) << end;
    EXPECT_TRUE(take_log().starts_with(std::string("homing start,-60,run,homing ") + end));
    refresh(5);
    EXPECT_NEAR(motors().home_count, model_.readings.encoder_1, 499);
  }
}

TEST_F(mast, ignores_small_changes_and_presets_while_it_moves) {
  home();
  go(12);
  refresh(20);
  model_.readings.encoder_1 = motors().target + 2825.0;
  refresh(2);
  take_log();
  request(12);
  refresh(20);
  EXPECT_EQ(take_log(), "preset 12,offset 3.0,");
  request(10);
  refresh(20);
  orb_power_board_set_height_preset(&board_, 48);  // only stored
  EXPECT_EQ(board_.height_preset, 48);
  run_to_rest();
  EXPECT_EQ(take_log(),
            "preset 10,offset 2.0,move to 77394,encoder 68916,move in slow start,-15,run,preset 48,run,"
            "move in check,stop,move done,");
  orb_power_board_set_height_extension(&board_, 1);
  EXPECT_NEAR(std::stod(height()), 10 + 24, 0.5);
}

// Another drive in its place would run on, without an end stop.
TEST_F(mast, a_drive_that_loses_its_type_is_stopped) {
  for (const bool homes : {false, true}) {
    home();
    request(48);
    refresh(10);
    take_log();
    model_.readings.motor_type = 0;
    for (int i = 0; i < 10; ++i) {
      if (homes) orb_power_board_home_height(&board_);
      refresh(1);
    }
    const std::string started = homes ? "homing start,-60,run," : "";
    EXPECT_EQ(take_log(), "motor pending 0," + started + started + started + "no height,stop,");
    model_.readings.motor_type = kMotorHeight;
    refresh(5);
  }
}

// At a steady pace, however slow, the drive is told to run before it stops by itself.
TEST(motor_times, no_pace_is_late_and_a_gap_is) {
  constexpr int64_t kMs = 1'000'000;
  for (const int pace_ms : {90, 100, 111, 112, 150, 299}) {
    int64_t run = 0;
    for (int64_t now = pace_ms; now < 5000; now += pace_ms) {
      const motor_timing timing = judge_motor_times(now * kMs, (now - pace_ms) * kMs, run * kMs);
      EXPECT_FALSE(timing.late) << pace_ms;
      if (timing.due) run = now;
    }
    EXPECT_GT(run, 0);
  }
  EXPECT_TRUE(judge_motor_times(301 * kMs, 0, 0).late);
  EXPECT_TRUE(judge_motor_times(1001 * kMs, 900 * kMs, 0).late);
  EXPECT_FALSE(judge_motor_times(800 * kMs, 700 * kMs, 0).due) << "the keep-alive's own time comes first";
}

// Resumed an hour later, nothing may drive that was asked for before, and a new request is served.
TEST_F(mast, what_a_suspension_interrupts_must_be_asked_for_again) {
  const auto home_in_a_move = [this] { request(48), refresh(10), request_home(); };
  const std::tuple<std::function<void()>, int, const char*> cases[] = {
      {[this] { request_home(); }, 0, ""},
      {[this] { request_home(); }, 30, "homing cancel,stop,"},
      {[this] { request(48); }, 2, "move out cancel 0 0,stop,"},
      {[this] { request(48); }, 30, "move out cancel 375 0,stop,"},
      {home_in_a_move, 0, "move out cancel 395 0,stop,"}};
  for (const auto& [ask, after, log] : cases) {
    place(24, 5000);
    home();
    place(24, count_at(24));
    motors().timeout_count = motors().no_movement_count = 0;
    ask();
    refresh(after);
    orb_power_board_suspend_refresh(&board_);
    EXPECT_EQ(orb_power_board_home_height(&board_), -1);
    EXPECT_EQ(orb_power_board_set_height_preset(&board_, 8), -1);
    EXPECT_FALSE(contains(height(), "ING")) << height();
    read_trace();
    take_log();
    EXPECT_EQ(queued(), "stop,");
    orb_power_board_resume_refresh(&board_);
    refresh(30);
    EXPECT_EQ(take_log(), std::string("resume refresh,") + log) << after;
    home();
    go(12);
    EXPECT_EQ(last_, "move done");
    EXPECT_EQ(queued(), "");
  }
  // A stop behind a withdrawal and a new request is for that request.
  request(48), refresh(30);
  orb_power_board_suspend_refresh(&board_);
  orb_power_board_resume_refresh(&board_);
  request(48);
  orb_power_board_stop_motor(&board_);
  take_log();
  refresh(30);
  EXPECT_FALSE(contains(take_log(), "run"));
}

// The jog of a mast that is not homed asks for a homing: a new one, not the rest of the one that was
// withdrawn, which would take the drive that stands for a stall, or go on at the speed of the tilt drive.
TEST_F(mast, a_withdrawn_homing_starts_again_at_its_beginning) {
  for (const bool tilt_before : {false, true}) {
    for (const int after : {1, 12}) {
      place(36, 5000);
      request_home();
      refresh(after);
      orb_power_board_suspend_refresh(&board_);
      orb_power_board_resume_refresh(&board_);
      EXPECT_EQ(tilt_before ? jog(100, kMotorRunTilt) : 0, 0);
      EXPECT_EQ(jog(100), -1);
      EXPECT_EQ(height(), "HOMING");
      queued();
      take_log();
      expect_homed(std::to_string(after));
      EXPECT_TRUE(
          take_log().starts_with("suspend refresh,resume refresh,homing cancel,stop,homing start,-60,run,"));
    }
  }
}

// A drive that nobody looked after has stopped by itself: it is told again, and nothing before counts.
TEST_F(mast, a_pause_is_no_evidence) {
  for (const int after : {1, 6, 9, 14, 40}) {
    for (const int pauses : {1, 4, 500}) {
      place(36, 5000);
      request_home();
      refresh(after);
      int left = pauses;
      for (; left > 0 && motors().homing_state < kHomingSettle; --left) pause(), refresh(left % 3 + 1);
      expect_homed(std::to_string(after) + " " + std::to_string(pauses));
    }
  }
  go(8);
  request(48);
  refresh(15);
  take_log();
  std::string again;
  for (int i = 0; i < 12; ++i) pause(), refresh(1), again += "move out again,60,run,";
  EXPECT_EQ(take_log(), again);
  run_to_rest();
  EXPECT_EQ(last_, "move done");
}

// A pan drive that is jogged before its type is known must not turn as if it were homed, and a jog that the
// board has not been told yet would drive a homing at its own speed.
TEST_F(mast, a_homing_waits_for_a_confirmed_mast_and_behind_a_jog) {
  orb_power_board_init(&board_, &application_, 1);
  EXPECT_EQ(jog(100), -1);
  refresh(10);
  EXPECT_EQ(motors().homing_state, kHomingIdle);
  EXPECT_FALSE(is_homing(motors()));
  EXPECT_EQ(jog(-300, kMotorRunTilt), 0);  // needs no home
  EXPECT_EQ(jog(100), -1);                 // asks for one
  EXPECT_EQ(queued(), "-100,run,");        // limited; not scaled: no extended frame has been read
  motor_output output;
  step_motors(motors(), {.reported_type = kMotorHeight, .jog_waiting = true}, output);
  EXPECT_TRUE(output.writes().empty());
  step_motors(motors(), {.reported_type = kMotorHeight}, output);
  EXPECT_EQ(output.writes().size(), 2U);
}

// Quick changes of direction: the last speed that was queued counts, not the reading of the last frame.
TEST_F(mast, every_change_of_direction_writes_its_speed_and_a_stop_finds_a_place) {
  home();
  for (const int pwm : {60, -60, 60, 60}) EXPECT_EQ(jog(pwm, kMotorRunTilt), 0);
  EXPECT_EQ(queued(), "60,run,-60,run,60,run,run,");
  while (write(9, {1}) == 0) continue;  // the queue is full
  for (int i = 0; i < 100; ++i) EXPECT_EQ(orb_power_board_stop_motor(&board_), 0);
  EXPECT_TRUE(queued().ends_with("stop,"));
}

TEST(tilt, slows_down_with_the_zoom) {
  const std::pair<float, int> rows[] = {{0, 100}, {1.5F, 98}, {15, 61}, {30, 20}, {360, 20}};
  for (const auto& [zoom, pwm] : rows) EXPECT_EQ(tilt_jog_pwm(zoom), pwm) << zoom;
}

}  // namespace
