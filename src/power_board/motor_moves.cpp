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

// Counts left from one to another on the way of the move; they fall on the way out.
int64_t counts_left(const machine& m, int from, int to) { return (int64_t{from} - to) * m.motors.direction; }

// At the limit ahead nothing is told to run.
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

int fast_state(const machine& m) { return m.motors.direction > 0 ? kMoveOutFast : kMoveInFast; }
int slow_state(const machine& m) { return m.motors.direction > 0 ? kMoveOutSlow : kMoveInSlow; }

void change_speed(const machine& m, int state, const char* speed) {
  say(m, "move %s %s", direction_text(m.motors.direction), speed);
  stop(m);
  drive(m, state);
}

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

void start_drive(const machine& m) {
  motor_state& motors = m.motors;
  const char* direction = direction_text(motors.direction);
  if (counts_left(m, motors.position, motors.target) < kSlowDistance) {
    say(m, "move %s slow start", direction);
    motors.slow_point = motors.fast_point = motors.position;
    return drive(m, slow_state(m));
  }
  motors.slow_point = motors.target + motors.direction * kSlowDistance;
  motors.fast_point = static_cast<int>(motors.target + motors.direction * kFastDistance);
  say(m, "move %s fast start %d %d", direction, motors.slow_point, motors.fast_point);
  drive(m, fast_state(m));
}

void choose_direction(motor_state& motors) { motors.direction = motors.position <= motors.target ? -1 : 1; }

void drive_off(const machine& m) {
  motor_state& motors = m.motors;
  motors.position = m.sample.encoder;
  say(m, "encoder %d", m.sample.encoder);
  choose_direction(motors);
  start_drive(m);
  motors.no_movement_count = 0;
  motors.timeout_count = kLongest;
}

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

void start_check(const machine& m) {
  say(m, "move %s check", direction_text(m.motors.direction));
  stop(m);
  m.motors.stable_count = m.motors.resample_count = 0;
  m.motors.move_state = kMoveCheck;
}

void move_fast(const machine& m) {
  if (!keep_moving(m, kMovingAmps) || is_at_limit(m)) return;
  if (counts_left(m, m.motors.position, m.motors.slow_point) < 0) change_speed(m, slow_state(m), "slow");
}

void move_slow(const machine& m) {
  if (!keep_moving(m, kSlowMovingAmps)) return;
  if (counts_left(m, m.motors.position, m.motors.target) < 0) return start_check(m);
  if (counts_left(m, m.motors.position, m.motors.fast_point) > 0) change_speed(m, fast_state(m), "fast");
}

// After a check that found the mast on the near side of its target.
void restart(const machine& m) {
  const bool near = counts_left(m, m.sample.encoder, m.motors.fast_point) <= 0;
  if (near && m.motors.direction > 0) {
    m.output.add(kTracePowerBoard, "move out slow");  // with the board's lines, as it stands
  } else {
    say(m, "move %s %s", direction_text(m.motors.direction), near ? "slow" : "fast");
  }
  drive(m, near ? slow_state(m) : fast_state(m));
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
  if (counts_left(m, m.sample.encoder, motors.target) >= 0) {
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
constexpr state_function kStates[] = {wait_for_encoder, move_fast,  move_slow,     move_fast,
                                      move_slow,        check_move, follow_encoder};

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
