// Motor-type check, homing and moves: one function a state. All of it runs in the service thread, once a
// refresh.

#include <cstdlib>

#include "app/trace.h"
#include "power_board/internal.h"

namespace {

constexpr int kMachineDuration = 1000;  // the board's dead-man time, in its units

constexpr int kFast = 100;
constexpr int kSlow = 25;
constexpr int kHomingPwm = -100;

constexpr float kMovingAmps = 0.125F;
constexpr float kSlowMovingAmps = 0.063F;

// Counts.
constexpr int kSlowDistance = 11303;        // 50.8 mm
constexpr double kFastDistance = 14128.75;  // 1.25 times that
constexpr double kUpperMargin = 2825.75;    // a quarter of it
constexpr double kLowerMargin = 274097.75;  // 24.25 times it
constexpr int kSettleTolerance = 499;
constexpr int kEncoderNoise = 99;

// Samples, of 0.1 s each.
constexpr int kTypeSamples = 3;
constexpr int kHomingKeepAlive = 7;
constexpr int kHomingIgnored = 4;  // at the start of each phase
constexpr int kHomingStable = 2;
constexpr int kHomingNoCurrent = 19;
constexpr int kHomingLongest = 399;
constexpr int kMoveStable = 4;
constexpr int kMoveKeepAlive = 10;
constexpr int kMoveLongest = 400;
constexpr int kMoveNoMovement = 9;
constexpr int kRestartSamples = 5;

struct machine {
  motor_state& motors;
  const motor_sample& sample;
  motor_writes& writes;
};

void write_command(const machine& m, uint8_t command) { m.writes.add({kMotorRegister, {command}, 1}); }

void run(const machine& m, int pwm) {
  m.writes.add(motor_speed_write(adjust_pwm(kTraceHeightMotor, pwm, m.sample.extended), kMachineDuration));
  write_command(m, kMotorRunDrive);
}

void stop(const machine& m) { write_command(m, kMotorStop); }

// --- motor type ---

void confirm_type(const machine& m) {
  motor_state& motors = m.motors;
  if (is_driving(motors)) stop(m);  // nobody looks after it from now on
  motors.motor_type = motors.motor_type_seen;
  if (motors.motor_type == kMotorHeight) {
    trace(kTraceHeightMotor, "height detected");
    motors.homing_requested = 0;
    motors.homing_state = kHomingIdle;
  } else {
    trace(kTraceHeightMotor, "no height");
    motors.move_state = kMoveIdle;
    motors.homing_state = kHomed;
  }
}

void check_type(const machine& m) {
  motor_state& motors = m.motors;
  const int reported = m.sample.reported_type;
  if (reported != motors.motor_type_seen) {
    motors.motor_type_seen = reported;
    motors.motor_type_stable = 0;
    trace(kTraceHeightMotor, "motor pending %d", reported);
  } else if (motors.motor_type_stable < kTypeSamples && ++motors.motor_type_stable == kTypeSamples &&
             reported != motors.motor_type) {
    confirm_type(m);
  }
}

// --- homing ---

void wait_for_homing(const machine& m) {
  motor_state& motors = m.motors;
  // Only a confirmed mast: a pan drive would turn. A jog's speed would take the place of the homing's.
  if (motors.homing_requested == 0 || motors.motor_type != kMotorHeight || m.sample.jog_waiting) return;
  trace(kTraceHeightMotor, "homing start");
  run(m, kHomingPwm);
  motors.homing_state = kHomingStart;
  motors.stable_count = motors.resample_count = motors.keepalive_count = motors.timeout_count = 0;
}

// The two driving states share this: the samples are counted and the run command is sent again.
void keep_homing(const machine& m) {
  motor_state& motors = m.motors;
  trace(kTraceHeightMotor, "homing amps %.3f", static_cast<double>(m.sample.amps));
  ++motors.keepalive_count;
  ++motors.timeout_count;
  if (motors.keepalive_count > kHomingKeepAlive) {
    trace(kTraceHeightMotor, "homing continue");
    write_command(m, kMotorRunDrive);
    motors.keepalive_count = 0;
  }
}

// Counts the samples in a row that are as `wanted`, once the first few have passed.
void count_homing_sample(motor_state& motors, bool wanted, const char* message) {
  if (motors.timeout_count <= kHomingIgnored) return;
  motors.stable_count = wanted ? motors.stable_count + 1 : 0;
  if (wanted) trace(kTraceHeightMotor, "homing %s %d", message, motors.stable_count);
}

void end_homing_drive(const machine& m, const char* reason) {
  stop(m);
  m.motors.homing_state = kHomingSettle;
  m.motors.home_count = m.sample.encoder;
  m.motors.stable_count = m.motors.resample_count = 0;
  trace(kTraceHeightMotor, "homing %s stop %d", reason, m.sample.encoder);
}

void home_until_current(const machine& m) {
  motor_state& motors = m.motors;
  keep_homing(m);
  count_homing_sample(motors, m.sample.amps > kMovingAmps, "moving");
  if (m.sample.overcurrent) {
    end_homing_drive(m, "over-current");
  } else if (motors.stable_count > kHomingStable) {
    motors.homing_state = kHomingDrive;
    motors.stable_count = motors.timeout_count = 0;
  } else if (motors.timeout_count > kHomingNoCurrent) {
    end_homing_drive(m, "e-complete");  // the mast was at its end already
  }
}

void home_until_stall(const machine& m) {
  motor_state& motors = m.motors;
  keep_homing(m);
  count_homing_sample(motors, m.sample.amps < kMovingAmps, "stopping");
  if (m.sample.overcurrent) {
    end_homing_drive(m, "over-current");
  } else if (motors.stable_count > kHomingStable) {
    end_homing_drive(m, "complete");
  } else if (motors.timeout_count > kHomingLongest) {
    end_homing_drive(m, "timeout");
  }
}

void complete_homing(motor_state& motors) {
  const int home = motors.home_count;
  motors.position = home;
  motors.upper_limit = static_cast<int>(home + kUpperMargin);
  motors.lower_limit = static_cast<int>(home - kLowerMargin);
  motors.move_state = kMoveIdle;
  motors.homing_state = kHomed;
  trace(kTraceHeightMotor, "homing complete %d", home);
}

void settle_homing(const machine& m) {
  motor_state& motors = m.motors;
  const int distance = std::abs(m.sample.encoder - motors.home_count);
  trace(kTraceHeightMotor, "homing sample %d", distance);
  if (distance > kSettleTolerance) {
    motors.stable_count = 0;
    if (++motors.resample_count > kHomingStable) {
      motors.home_count = m.sample.encoder;
      trace(kTraceHeightMotor, "homing resample %d", m.sample.encoder);
      motors.resample_count = 0;
    }
    return;
  }
  motors.resample_count = 0;
  if (++motors.stable_count > kHomingStable) complete_homing(motors);
}

// A homing whose request has been withdrawn.
void cancel_homing(const machine& m) {
  trace(kTraceHeightMotor, "homing cancel");
  stop(m);
  m.motors.homing_state = kHomingIdle;
  m.motors.move_state = kMoveIdle;
}

// --- moves ---

bool is_inside(const machine& m) {
  return m.sample.encoder >= m.motors.lower_limit && m.sample.encoder <= m.motors.upper_limit;
}

const char* direction_text(int direction) { return direction > 0 ? "out" : "in"; }

void trace_sample(const machine& m) {
  trace(kTraceHeightMotor, "%d %.3f", m.sample.encoder, static_cast<double>(m.sample.amps));
}

void end_move(const machine& m, int direction, const char* reason) {
  trace(kTraceHeightMotor, "move %s %s %d %d", direction_text(direction), reason, m.motors.timeout_count,
        m.motors.no_movement_count);
  stop(m);
  m.motors.move_state.store(kMoveIdle, std::memory_order_release);
}

// Drives on in another state; the run command starts the keep-alive afresh.
void drive(const machine& m, int state, int pwm) {
  run(m, pwm);
  m.motors.keepalive_count = kMoveKeepAlive;
  m.motors.move_state = state;
}

void change_speed(const machine& m, int state, int pwm, const char* message) {
  trace(kTraceHeightMotor, "%s", message);
  stop(m);
  drive(m, state, pwm);
}

void start_in(const machine& m, int target) {
  motor_state& motors = m.motors;
  motors.direction = -1;
  if (target - motors.position < kSlowDistance) {
    trace(kTraceHeightMotor, "move in slow start");
    motors.slow_point = motors.fast_point = motors.position;
    drive(m, kMoveInSlow, -kSlow);
    return;
  }
  motors.slow_point = target - kSlowDistance;
  motors.fast_point = static_cast<int>(target - kFastDistance);
  trace(kTraceHeightMotor, "move in fast start %d %d", motors.slow_point, motors.fast_point);
  drive(m, kMoveInFast, -kFast);
}

void start_out(const machine& m, int target) {
  motor_state& motors = m.motors;
  motors.direction = 1;
  if (motors.position - target < kSlowDistance) {
    trace(kTraceHeightMotor, "move out slow start");
    motors.slow_point = motors.fast_point = motors.position;
    drive(m, kMoveOutSlow, kSlow);
    return;
  }
  motors.slow_point = target + kSlowDistance;
  motors.fast_point = static_cast<int>(target + kFastDistance);
  trace(kTraceHeightMotor, "move out fast start %d %d", motors.slow_point, motors.fast_point);
  drive(m, kMoveOutFast, kFast);
}

// Waits for a steady encoder, then drives off.
void start_move(const machine& m) {
  motor_state& motors = m.motors;
  const int target = motors.target;
  trace_sample(m);
  if (motors.move_cancel != 0) {
    end_move(m, motors.position <= target ? -1 : 1, "cancel");
    return;
  }
  if (std::abs(m.sample.encoder - motors.position) > kEncoderNoise) {
    motors.stable_count = 0;
    if (++motors.resample_count > kMoveStable) {
      trace(kTraceHeightMotor, "encoder resample %d", m.sample.encoder);
      motors.position = m.sample.encoder;
      motors.resample_count = 0;
    }
    return;
  }
  motors.resample_count = 0;
  if (++motors.stable_count <= kMoveStable) return;
  motors.position = m.sample.encoder;
  trace(kTraceHeightMotor, "encoder %d", m.sample.encoder);
  if (motors.position <= target) {
    start_in(m, target);
  } else {
    start_out(m, target);
  }
  motors.no_movement_count = 0;
  motors.keepalive_count = kMoveKeepAlive;
  motors.timeout_count = kMoveLongest;
}

void count_no_movement(const machine& m, float moving_amps) {
  motor_state& motors = m.motors;
  const bool still = m.sample.amps < moving_amps || m.sample.encoder == motors.previous_count;
  motors.no_movement_count = still ? motors.no_movement_count + 1 : 0;
}

// What the four driving states share. False when the move has ended or the sample is to be ignored.
bool keep_moving(const machine& m, float moving_amps) {
  motor_state& motors = m.motors;
  trace_sample(m);
  --motors.keepalive_count;
  --motors.timeout_count;
  count_no_movement(m, moving_amps);
  if (motors.move_cancel != 0) return end_move(m, motors.direction, "cancel"), false;
  if (m.sample.overcurrent) return end_move(m, motors.direction, "overcurrent stop"), false;
  if (motors.timeout_count < 1) return end_move(m, motors.direction, "timeout"), false;
  if (motors.no_movement_count > kMoveNoMovement) {
    motors.position = m.sample.encoder;  // first: once idle, the next preset measures from it
    end_move(m, motors.direction, "no movement stop");
    return false;
  }
  if (!is_inside(m)) return false;
  motors.position = m.sample.encoder;
  if (motors.keepalive_count < 2) {
    trace(kTraceHeightMotor, "move %s continue", direction_text(motors.direction));
    write_command(m, kMotorRunDrive);
    motors.keepalive_count = kMoveKeepAlive;
  }
  return true;
}

void start_check(const machine& m, const char* message) {
  trace(kTraceHeightMotor, "%s", message);
  stop(m);
  m.motors.stable_count = m.motors.resample_count = 0;
  m.motors.move_state = kMoveCheck;
}

void move_out_fast(const machine& m) {
  if (!keep_moving(m, kMovingAmps)) return;
  if (m.motors.position < m.motors.slow_point) change_speed(m, kMoveOutSlow, kSlow, "move out slow");
}

void move_out_slow(const machine& m) {
  if (!keep_moving(m, kSlowMovingAmps)) return;
  if (m.motors.position < m.motors.target) {
    start_check(m, "move out check");
  } else if (m.motors.position > m.motors.fast_point) {
    change_speed(m, kMoveOutFast, kFast, "move out fast");
  }
}

void move_in_fast(const machine& m) {
  if (!keep_moving(m, kMovingAmps)) return;
  if (m.motors.position > m.motors.slow_point) change_speed(m, kMoveInSlow, -kSlow, "move in slow");
}

void move_in_slow(const machine& m) {
  if (!keep_moving(m, kSlowMovingAmps)) return;
  if (m.motors.position > m.motors.target) {
    start_check(m, "move in check");
  } else if (m.motors.position < m.motors.fast_point) {
    change_speed(m, kMoveInFast, -kFast, "move in fast");
  }
}

// After a check that found the mast on the near side of its target.
void restart(const machine& m) {
  const bool in = m.motors.direction < 0;
  const bool near = in ? m.sample.encoder >= m.motors.fast_point : m.sample.encoder <= m.motors.fast_point;
  if (in) {
    trace(kTraceHeightMotor, near ? "move in slow" : "move in fast");
    drive(m, near ? kMoveInSlow : kMoveInFast, near ? -kSlow : -kFast);
  } else {
    // The slow one is traced with the board's lines, as it stands.
    trace(near ? kTracePowerBoard : kTraceHeightMotor, near ? "move out slow" : "move out fast");
    drive(m, near ? kMoveOutSlow : kMoveOutFast, near ? kSlow : kFast);
  }
}

void check_move(const machine& m) {
  motor_state& motors = m.motors;
  trace_sample(m);
  --motors.timeout_count;
  if (motors.move_cancel != 0) {
    end_move(m, motors.direction, "cancel");
    return;
  }
  if (motors.timeout_count < 1) {
    trace(kTraceHeightMotor, "move check timeout");
    motors.move_state.store(kMoveIdle, std::memory_order_release);
    return;
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
  if (++motors.stable_count > kMoveStable) {
    trace(kTraceHeightMotor, "move done");
    motors.position = m.sample.encoder;
    motors.move_state.store(kMoveIdle, std::memory_order_release);
  }
}

void rest(const machine& m) {
  if (is_inside(m)) m.motors.position = m.sample.encoder;
}

using state_function = void (*)(const machine& m);
constexpr state_function kMoves[] = {start_move,   move_out_fast, move_out_slow, move_in_fast,
                                     move_in_slow, check_move,    rest};

void step_homed(const machine& m) {
  check_type(m);
  if (m.motors.homing_state != kHomed) return;
  kMoves[m.motors.move_state.load(std::memory_order_acquire)](m);
}

constexpr state_function kHoming[] = {wait_for_homing, home_until_current, home_until_stall, settle_homing,
                                      step_homed};

}  // namespace

motor_write motor_speed_write(int pwm, int duration) {
  return {kSpeedRegister,
          {static_cast<uint8_t>(pwm), static_cast<uint8_t>(duration), static_cast<uint8_t>(duration >> 8)},
          3};
}

int adjust_pwm(int level, int pwm, bool extended) {
  if (!extended) return pwm;
  const int adjusted = pwm * 60 / 100;
  trace(level, "pwm adjust %d %d", pwm, adjusted);
  return adjusted;
}

bool is_driving(const motor_state& motors) {
  const int homing = motors.homing_state;
  const int move = motors.move_state;
  return homing == kHomingStart || homing == kHomingDrive ||
         (homing == kHomed && move >= kMoveOutFast && move <= kMoveInSlow);
}

void step_motors(motor_state& motors, const motor_sample& sample, motor_writes& writes) {
  const machine m{motors, sample, writes};
  check_type(m);
  const int state = motors.homing_state;
  if (state != kHomingIdle && state != kHomed && motors.homing_requested == 0) {
    cancel_homing(m);
  } else {
    kHoming[state](m);
  }
  motors.previous_count = sample.encoder;
}
