// The drives of the simulated power board: what registers 3 and 6 asked for, and the dead-man time. What
// travels, and the current that it takes, are drive.h's.
#pragma once

#include <cstdint>

inline constexpr uint8_t kBoardMotorTilt = 1;
inline constexpr uint8_t kBoardMotorDrive = 2;  // the mast or the pan drive
inline constexpr uint8_t kBoardMotorStop = 0xFF;

struct board_motor {
  uint8_t command =
      0;  // last one received: kBoardMotorTilt, kBoardMotorDrive, kBoardMotorStop; 0 before the first
  int8_t pwm = 0;            // -100..100, negative is "in"
  uint16_t duration_ms = 0;  // how long one run command lasts
  double run_left_s = 0;     // what is left of the last run command
};

// Register 3: speed and run time of the following run commands. A running drive keeps the time it was started
// with.
void motor_set_speed(board_motor& motor, int8_t pwm, uint16_t duration_ms);

// Register 6: a run command (re)starts the dead-man time, anything else stops.
void motor_run(board_motor& motor, uint8_t command);

// Lets `seconds` (0 or more) pass; the drive stops by itself at the end of its dead-man time.
void motor_advance(board_motor& motor, double seconds);

bool motor_running(const board_motor& motor);
