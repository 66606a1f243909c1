// What the operations may ask of the machines. A waiting request counts as begun, a withdrawn one as over.

#include <cmath>

#include "power_board/motor.h"
#include "power_board/readings.h"

namespace {

constexpr double kCountsPerStep = 11303.0;  // 50.8 mm
constexpr double kSmallestMove = 2825.75;

bool homing_runs(const motor_state& motors) {
  return motors.homing_state != kHomingIdle && motors.homing_state != kHomed;
}

}  // namespace

bool is_homing(const motor_state& motors) {
  return motors.requests.home || (homing_runs(motors) && !motors.requests.end);
}

bool is_moving(const motor_state& motors) {
  return motors.requests.move || (motors.move_state != kMoveIdle && !motors.requests.end);
}

bool is_homed(const motor_state& motors) { return motors.homing_state == kHomed && !motors.requests.home; }

bool request_home(motor_state& motors) {
  if (motors.motor_type != kMotorHeight) return false;
  motors.requests.home = true;
  if (motors.requests.move) motors.requests.move = motors.requests.cancel = false;
  return true;
}

std::optional<int> request_move(motor_state& motors, int preset) {
  const int target = motors.home_count - static_cast<int>(preset_steps(preset) * kCountsPerStep);
  if (std::abs(static_cast<double>(motors.position) - target) <= kSmallestMove) return std::nullopt;
  motors.target = target;
  motors.requests.move = true;
  motors.requests.cancel = false;
  return target;
}

bool request_stop(motor_state& motors) {
  if (is_homing(motors)) return false;
  if (!is_moving(motors)) return true;
  motors.requests.cancel = true;
  return false;
}

bool request_jog(motor_state& motors, int command, bool may_home) {
  if (is_homing(motors)) return false;
  if (is_moving(motors)) {
    motors.requests.cancel = true;
    return false;
  }
  if (is_homed(motors) || command == kMotorRunTilt) return true;
  if (may_home) request_home(motors);
  return false;
}

bool withdraw_requests(motor_state& motors) {
  const bool any = is_homing(motors) || is_moving(motors);
  motors.requests = {.end = homing_runs(motors) || motors.move_state != kMoveIdle};
  return any;
}
