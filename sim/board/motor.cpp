#include "sim/board/motor.h"

#include <algorithm>

void motor_set_speed(board_motor& motor, int8_t pwm, uint16_t duration_ms) {
  motor.pwm = pwm;
  motor.duration_ms = duration_ms;
}

void motor_run(board_motor& motor, uint8_t command) {
  const bool run = command == kBoardMotorTilt || command == kBoardMotorDrive;
  motor.command = command;
  motor.run_left_s = run ? motor.duration_ms / 1000.0 : 0;
}

void motor_advance(board_motor& motor, double seconds) {
  motor.run_left_s = std::max(0.0, motor.run_left_s - seconds);
}

bool motor_running(const board_motor& motor) { return motor.run_left_s > 0 && motor.pwm != 0; }
