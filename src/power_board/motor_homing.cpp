// Homing: in until the drive stalls at the retracted end stop, one function a state.

#include <cstdlib>

#include "power_board/motor_machine.h"

namespace {

constexpr int kHomingPwm = -100;

// Counts.
constexpr double kUpperMargin = 2825.75;    // half an inch
constexpr double kLowerMargin = 274097.75;  // 48.5 inches
constexpr int kSettleTolerance = 499;

// Samples, of 0.1 s each.
constexpr int kKeepAlive = 7;
constexpr int kIgnored = 4;  // when the drive has been told to run
constexpr int kStable = 2;
constexpr int kNoCurrent = 19;
constexpr int kLongest = 399;  // of driving, gaps or not

// Sends the run command again when it is time, and after a gap all that the drive must know.
void drive_on(const machine& m) {
  if (m.sample.late && !m.sample.overcurrent) {
    say(m, "homing again");
    run(m, kHomingPwm);
  } else if (++m.motors.keepalive_count > kKeepAlive || m.sample.due) {
    say(m, "homing continue");
    run_on(m);
  } else {
    return;
  }
  m.motors.keepalive_count = 0;
}

// The two driving states share this: keeps the drive running, and counts the samples in a row that are as
// `wanted`, once the first few have passed.
void keep_homing(const machine& m, bool wanted, const char* message) {
  motor_state& motors = m.motors;
  say(m, "homing amps %.3f", static_cast<double>(m.sample.amps));
  ++motors.timeout_count;
  drive_on(m);
  if (m.sample.late) {
    motors.sample_count = motors.stable_count = 0;
  } else if (++motors.sample_count > kIgnored) {
    motors.stable_count = wanted ? motors.stable_count + 1 : 0;
    if (wanted) say(m, "homing %s %d", message, motors.stable_count);
  }
}

void end_drive(const machine& m, const char* reason) {
  stop(m);
  m.motors.homing_state = kHomingSettle;
  m.motors.home_count = m.sample.encoder;
  m.motors.stable_count = m.motors.resample_count = 0;
  say(m, "homing %s stop %d", reason, m.sample.encoder);
}

void home_until_current(const machine& m) {
  motor_state& motors = m.motors;
  keep_homing(m, m.sample.amps > kMovingAmps, "moving");
  if (m.sample.overcurrent) return end_drive(m, "over-current");
  if (motors.stable_count > kStable) {
    motors.homing_state = kHomingDrive;
    motors.stable_count = motors.sample_count = motors.timeout_count = 0;
  } else if (motors.sample_count > kNoCurrent) {
    end_drive(m, "e-complete");  // the mast was at its end already
  } else if (motors.timeout_count > kLongest) {
    end_drive(m, "timeout");  // gap after gap: it has had the time for the longest way
  }
}

void home_until_stall(const machine& m) {
  keep_homing(m, m.sample.amps < kMovingAmps, "stopping");
  if (m.sample.overcurrent) return end_drive(m, "over-current");
  if (m.motors.stable_count > kStable) return end_drive(m, "complete");
  if (m.motors.timeout_count > kLongest) end_drive(m, "timeout");
}

void complete(const machine& m) {
  motor_state& motors = m.motors;
  const int home = motors.home_count;
  motors.position = home;
  motors.upper_limit = static_cast<int>(home + kUpperMargin);
  motors.lower_limit = static_cast<int>(home - kLowerMargin);
  motors.homing_state = kHomed;
  say(m, "homing complete %d", home);
}

void settle(const machine& m) {
  motor_state& motors = m.motors;
  const int distance = std::abs(m.sample.encoder - motors.home_count);
  say(m, "homing sample %d", distance);
  if (distance > kSettleTolerance) {
    motors.stable_count = 0;
    if (++motors.resample_count > kStable) {
      motors.home_count = m.sample.encoder;
      say(m, "homing resample %d", m.sample.encoder);
      motors.resample_count = 0;
    }
    return;
  }
  motors.resample_count = 0;
  if (++motors.stable_count > kStable) complete(m);
}

}  // namespace

void start_homing(const machine& m) {
  motor_state& motors = m.motors;
  say(m, "homing start");
  run(m, kHomingPwm);
  motors.requests = {};
  motors.move_state = kMoveIdle;  // a move gives way without a stop
  motors.homing_state = kHomingStart;
  motors.stable_count = motors.sample_count = motors.keepalive_count = motors.timeout_count = 0;
}

void step_homing(const machine& m) {
  const int state = m.motors.homing_state;
  if (state == kHomingStart) home_until_current(m);
  if (state == kHomingDrive) home_until_stall(m);
  if (state == kHomingSettle) settle(m);
}

void abandon_homing(const machine& m, const char* reason) {
  say(m, "homing %s", reason);
  stop(m);
  m.motors.homing_state = kHomingIdle;
}
