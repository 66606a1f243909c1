// The machines of the drives, once a refresh: motor type, then what is asked for, then homing or move. They
// are pure: a sample goes in, register writes and traced lines come out, which the service thread performs.
//
// Homing (motor_homing.cpp):
//
//   not homed --> start --> drive --> settle --> homed
//
//   any      -> start      home asked for, a mast confirmed, no jog before it in the queue  [start_homing]
//   start    -> drive      3 samples with current                                     [home_until_current]
//   start    -> settle     2 s without: it is at its end already; over-current; 40 s  [home_until_current]
//   drive    -> settle     3 samples without current: it is stalled; over-current; 40 s [home_until_stall]
//   settle   -> homed      3 samples near the count at the stop                                   [settle]
//   between  -> not homed  withdrawn, disturbed, a write that fails, the bus given away   [abandon_homing]
//   any      -> not homed  another motor type is confirmed; homed when it is not a mast     [confirm_type]
//
// Move, while homed (motor_moves.cpp):
//
//   idle --> start --> fast <--> slow --> check --> idle
//
//   idle     -> start         a move asked for                                                [start_move]
//   start    -> fast or slow  5 samples of a steady encoder; out or in             [wait_for_encoder]
//   fast    <-> slow          within 51 mm of the target; again beyond 64 mm        [move_fast, move_slow]
//   slow     -> check         past the target, with a stop                                   [start_check]
//   check    -> fast or slow  5 samples short of the target                                      [restart]
//   check    -> idle          5 samples past it; or time is up                                [check_move]
//   driving  -> idle          over-current, time is up, no movement                           [keep_moving]
//   any      -> idle          cancelled, disturbed, a write that fails                           [end_move]
//
// What holds:
//
// - Only the machines change a state. A request waits for the next refresh and is looked at again there; a
//   withdrawal takes that refresh for itself, so that what is asked for behind it starts at its beginning.
// - A drive runs while the machines' last word to it is a run with its speed. A speed or run that is not
//   taken, and a motor register that somebody else writes meanwhile, end homing or move with a stop.
// - After 0.3 s without a refresh, or 1 s without a run command, the drive may have stopped by itself: it is
//   told speed and run again, and no sample before that counts.
// - A confirmed type, an update and the service's end write a stop in any case. A stop that is not taken is
//   owed: every refresh tries it again until it, or a newer run, has been taken (service.cpp, link.cpp).

#include "power_board/motor_machine.h"

#include <cstdarg>
#include <cstdio>

#include "base/text.h"

namespace {

constexpr int kMachineDuration = 1000;  // the board's dead-man time, in its units
constexpr int kTypeSamples = 3;
constexpr int64_t kLongestGap_ns = 300'000'000;
constexpr int64_t kDeadMan_ns = 1'000'000'000;  // what kMachineDuration is

bool is_driving(const motor_state& motors) {
  return motors.homing_state == kHomingStart || motors.homing_state == kHomingDrive ||
         (motors.move_state >= kMoveOutFast && motors.move_state <= kMoveInSlow);
}

// Whatever drives is stopped: nobody looks after it from now on.
void confirm_type(const machine& m) {
  motor_state& motors = m.motors;
  stop(m);
  motors.motor_type = motors.motor_type_seen;
  const bool mast = motors.motor_type == kMotorHeight;
  say(m, "%s", mast ? "height detected" : "no height");
  motors.requests = {};
  motors.move_state = kMoveIdle;
  motors.homing_state = mast ? kHomingIdle : kHomed;
}

void check_type(const machine& m) {
  motor_state& motors = m.motors;
  const int reported = m.sample.reported_type;
  if (reported != motors.motor_type_seen) {
    motors.motor_type_seen = reported;
    motors.motor_type_stable = 0;
    say(m, "motor pending %d", reported);
  } else if (motors.motor_type_stable < kTypeSamples && ++motors.motor_type_stable == kTypeSamples &&
             reported != motors.motor_type) {
    confirm_type(m);
  }
}

void abandon(const machine& m, const char* reason) {
  motor_state& motors = m.motors;
  motors.requests.end = false;
  if (motors.move_state != kMoveIdle) return end_move(m, reason);
  abandon_homing(m, reason);
}

// Only with a confirmed mast: a pan drive would turn. A jog's speed would take the place of the homing's, and
// a cancelled move is stopped first.
bool may_home(const machine& m) {
  const motor_requests& requests = m.motors.requests;
  return requests.home && !requests.cancel && !m.sample.jog_waiting && m.motors.motor_type == kMotorHeight;
}

// The type is looked at once more while the mast is homed.
void step_homed(const machine& m) {
  check_type(m);
  if (m.motors.homing_state != kHomed) return;
  if (m.motors.requests.move && m.motors.motor_type == kMotorHeight) start_move(m);
  step_move(m);
}

void step_states(const machine& m) {
  motor_state& motors = m.motors;
  if (motors.requests.end) {
    abandon(m, "cancel");
  } else if (m.sample.disturbed && is_driving(motors)) {
    abandon(m, "disturbed");
  } else if (may_home(m)) {
    start_homing(m);
  } else if (motors.homing_state == kHomed) {
    step_homed(m);
  } else {
    step_homing(m);
  }
}

}  // namespace

void motor_output::add(int level, const char* text) {
  if (line_count_ == lines_.size()) return;
  motor_line& line = lines_[line_count_++];
  line.level = level;
  copy_text(line.text.data(), line.text.size(), text);
}

void say(const machine& m, const char* format, ...) {
  char text[kMotorLineSize];
  va_list arguments;
  va_start(arguments, format);
  vsnprintf(text, sizeof text, format, arguments);
  va_end(arguments);
  m.output.add(kTraceHeightMotor, text);
}

// At the pace of the refreshes so far; a gap is no pace.
motor_timing judge_motor_times(int64_t now, int64_t before, int64_t run) {
  const int64_t gap = now - before;
  const bool late = gap > kLongestGap_ns || now - run > kDeadMan_ns;
  return {late, !late && now - run + gap > kDeadMan_ns};
}

motor_write motor_speed_write(int pwm, int duration) {
  return {kSpeedRegister,
          {static_cast<uint8_t>(pwm), static_cast<uint8_t>(duration), static_cast<uint8_t>(duration >> 8)},
          3};
}

void run(const machine& m, int pwm) {
  const int scaled = scaled_pwm(pwm, m.sample.extended);
  if (m.sample.extended) say(m, "pwm adjust %d %d", pwm, scaled);
  m.output.add(motor_speed_write(scaled, kMachineDuration));
  run_on(m);
}

void run_on(const machine& m) { m.output.add({kMotorRegister, {kMotorRunDrive}, 1}); }

void stop(const machine& m) { m.output.add({kMotorRegister, {kMotorStop}, 1}); }

void step_motors(motor_state& motors, const motor_sample& sample, motor_output& output) {
  const machine m{motors, sample, output};
  check_type(m);
  step_states(m);
  motors.previous_count = sample.encoder;
}

void end_motors(motor_state& motors, const char* reason, motor_output& output) {
  const motor_sample none;
  const machine m{motors, none, output};
  if (motors.move_state != kMoveIdle ||
      (motors.homing_state != kHomingIdle && motors.homing_state != kHomed)) {
    abandon(m, reason);
  } else {
    stop(m);
  }
}
