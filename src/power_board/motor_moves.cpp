// Moves of a homed mast to a target count, one function a state.

#include <cstdlib>

#include "power_board/motor_machine.h"

namespace {

constexpr int kFast = 100;
constexpr int kSlow = 25;

constexpr float kSlowMovingAmps = 0.063F;

// Counts.
constexpr int kSlowDistance = 11303;        // 50.8 mm
constexpr double kFastDistance = 14128.75;  // 1.25 times that
constexpr int kEncoderNoise = 99;

// Samples, of 0.1 s each.
constexpr int kStable = 4;
constexpr int kKeepAlive = 10;
constexpr int kLongest = 400;
constexpr int kNoMovement = 9;
constexpr int kRestartSamples = 5;

bool is_inside(const machine& m) {
  return m.sample.encoder >= m.motors.lower_limit && m.sample.encoder <= m.motors.upper_limit;
}

// Counts fall on the way out. At the limit ahead nothing is told to run.
bool is_at_limit(const machine& m) {
  return m.sample.encoder == (m.motors.direction > 0 ? m.motors.lower_limit : m.motors.upper_limit);
}

const char* direction_text(int direction) { return direction > 0 ? "out" : "in"; }

void say_sample(const machine& m) { say(m, "%d %.3f", m.sample.encoder, static_cast<double>(m.sample.amps)); }

void rest(motor_state& motors) {
  motors.move_state = kMoveIdle;
  motors.requests.cancel = motors.requests.cancel && motors.requests.move;  // of the one that waits
}

// The pwm of a driving state, in which alone it drives.
int pwm_of(int state) {
  const int pwm = state == kMoveOutFast || state == kMoveInFast ? kFast : kSlow;
  return state == kMoveInFast || state == kMoveInSlow ? -pwm : pwm;
}

// Drives on in another state; the run command starts the keep-alive afresh.
void drive(const machine& m, int state) {
  run(m, pwm_of(state));
  m.motors.keepalive_count = kKeepAlive;
  m.motors.move_state = state;
}

void change_speed(const machine& m, int state, const char* message) {
  say(m, "%s", message);
  stop(m);
  drive(m, state);
}

// Sends the run command again when it is time, and after a gap all that the drive must know.
void drive_on(const machine& m) {
  motor_state& motors = m.motors;
  if (m.sample.late) {
    say(m, "move %s again", direction_text(motors.direction));
    drive(m, motors.move_state);
  } else if (motors.keepalive_count < 2 || m.sample.due) {
    say(m, "move %s continue", direction_text(motors.direction));
    run_on(m);
    motors.keepalive_count = kKeepAlive;
  }
}

void start_in(const machine& m) {
  motor_state& motors = m.motors;
  if (motors.target - motors.position < kSlowDistance) {
    say(m, "move in slow start");
    motors.slow_point = motors.fast_point = motors.position;
    return drive(m, kMoveInSlow);
  }
  motors.slow_point = motors.target - kSlowDistance;
  motors.fast_point = static_cast<int>(motors.target - kFastDistance);
  say(m, "move in fast start %d %d", motors.slow_point, motors.fast_point);
  drive(m, kMoveInFast);
}

void start_out(const machine& m) {
  motor_state& motors = m.motors;
  if (motors.position - motors.target < kSlowDistance) {
    say(m, "move out slow start");
    motors.slow_point = motors.fast_point = motors.position;
    return drive(m, kMoveOutSlow);
  }
  motors.slow_point = motors.target + kSlowDistance;
  motors.fast_point = static_cast<int>(motors.target + kFastDistance);
  say(m, "move out fast start %d %d", motors.slow_point, motors.fast_point);
  drive(m, kMoveOutFast);
}

void choose_direction(motor_state& motors) { motors.direction = motors.position <= motors.target ? -1 : 1; }

void drive_off(const machine& m) {
  motor_state& motors = m.motors;
  motors.position = m.sample.encoder;
  say(m, "encoder %d", m.sample.encoder);
  choose_direction(motors);
  motors.direction < 0 ? start_in(m) : start_out(m);
  motors.no_movement_count = 0;
  motors.timeout_count = kLongest;
}

// Waits for a steady encoder, then drives off.
void wait_for_encoder(const machine& m) {
  motor_state& motors = m.motors;
  say_sample(m);
  if (motors.requests.cancel) return end_move(m, "cancel");
  if (std::abs(m.sample.encoder - motors.position) > kEncoderNoise) {
    motors.stable_count = 0;
    if (++motors.resample_count > kStable) {
      say(m, "encoder resample %d", m.sample.encoder);
      motors.position = m.sample.encoder;
      motors.resample_count = 0;
      choose_direction(motors);
    }
    return;
  }
  motors.resample_count = 0;
  if (++motors.stable_count > kStable) drive_off(m);
}

// After a gap there is nothing to compare with: the drive may have stood still.
void count_no_movement(const machine& m, float moving_amps) {
  motor_state& motors = m.motors;
  const bool still = m.sample.amps < moving_amps || m.sample.encoder == motors.previous_count;
  motors.no_movement_count = still && !m.sample.late ? motors.no_movement_count + 1 : 0;
}

// What the four driving states share. False when the move has ended or the sample is to be ignored.
bool keep_moving(const machine& m, float moving_amps) {
  motor_state& motors = m.motors;
  say_sample(m);
  --motors.keepalive_count;
  --motors.timeout_count;
  count_no_movement(m, moving_amps);
  if (motors.requests.cancel) return end_move(m, "cancel"), false;
  if (m.sample.overcurrent) return end_move(m, "overcurrent stop"), false;
  if (motors.timeout_count < 1) return end_move(m, "timeout"), false;
  if (motors.no_movement_count > kNoMovement) {
    motors.position = m.sample.encoder;  // the next preset measures from it
    return end_move(m, "no movement stop"), false;
  }
  if (!is_inside(m)) return false;
  motors.position = m.sample.encoder;
  if (!is_at_limit(m)) drive_on(m);
  return true;
}

void start_check(const machine& m, const char* message) {
  say(m, "%s", message);
  stop(m);
  m.motors.stable_count = m.motors.resample_count = 0;
  m.motors.move_state = kMoveCheck;
}

void move_out_fast(const machine& m) {
  if (!keep_moving(m, kMovingAmps) || is_at_limit(m)) return;
  if (m.motors.position < m.motors.slow_point) change_speed(m, kMoveOutSlow, "move out slow");
}

void move_out_slow(const machine& m) {
  if (!keep_moving(m, kSlowMovingAmps)) return;
  if (m.motors.position < m.motors.target) return start_check(m, "move out check");
  if (m.motors.position > m.motors.fast_point) change_speed(m, kMoveOutFast, "move out fast");
}

void move_in_fast(const machine& m) {
  if (!keep_moving(m, kMovingAmps) || is_at_limit(m)) return;
  if (m.motors.position > m.motors.slow_point) change_speed(m, kMoveInSlow, "move in slow");
}

void move_in_slow(const machine& m) {
  if (!keep_moving(m, kSlowMovingAmps)) return;
  if (m.motors.position > m.motors.target) return start_check(m, "move in check");
  if (m.motors.position < m.motors.fast_point) change_speed(m, kMoveInFast, "move in fast");
}

// After a check that found the mast on the near side of its target.
void restart(const machine& m) {
  const bool in = m.motors.direction < 0;
  const bool near = in ? m.sample.encoder >= m.motors.fast_point : m.sample.encoder <= m.motors.fast_point;
  if (near && !in) {
    m.output.add(kTracePowerBoard, "move out slow");  // with the board's lines, as it stands
  } else {
    say(m, "move %s %s", direction_text(m.motors.direction), near ? "slow" : "fast");
  }
  drive(m, in ? (near ? kMoveInSlow : kMoveInFast) : (near ? kMoveOutSlow : kMoveOutFast));
}

void check_move(const machine& m) {
  motor_state& motors = m.motors;
  say_sample(m);
  --motors.timeout_count;
  if (motors.requests.cancel) return end_move(m, "cancel");
  if (motors.timeout_count < 1) {
    say(m, "move check timeout");
    return rest(motors);
  }
  if (!is_inside(m)) return;
  const bool short_of =
      motors.direction < 0 ? m.sample.encoder <= motors.target : m.sample.encoder >= motors.target;
  if (short_of) {
    motors.stable_count = 0;
    if (++motors.resample_count == kRestartSamples) restart(m);
    return;
  }
  motors.resample_count = 0;
  if (++motors.stable_count > kStable) {
    say(m, "move done");
    motors.position = m.sample.encoder;
    rest(motors);
  }
}

void follow_encoder(const machine& m) {
  if (is_inside(m)) m.motors.position = m.sample.encoder;
}

using state_function = void (*)(const machine& m);
constexpr state_function kStates[] = {wait_for_encoder, move_out_fast, move_out_slow, move_in_fast,
                                      move_in_slow,     check_move,    follow_encoder};

}  // namespace

void start_move(const machine& m) {
  motor_state& motors = m.motors;
  motors.requests.move = false;
  motors.move_state = kMoveStart;
  motors.stable_count = motors.resample_count = 0;
  choose_direction(motors);
}

void step_move(const machine& m) { kStates[m.motors.move_state](m); }

void end_move(const machine& m, const char* reason) {
  say(m, "move %s %s %d %d", direction_text(m.motors.direction), reason, m.motors.timeout_count,
      m.motors.no_movement_count);
  stop(m);
  rest(m.motors);
}
