// What the machines of the drives share: one refresh's sample, state and output. All of it is pure. Any
// thread.
#pragma once

#include "base/trace.h"
#include "power_board/motor.h"
#include "power_board/readings.h"

struct machine {
  motor_state& motors;
  const motor_sample& sample;
  motor_output& output;
};

inline constexpr float kMovingAmps = 0.125F;  // below it a drive at full speed stands

// A line of the height motor's trace.
[[gnu::format(printf, 2, 3)]] void say(const machine& m, const char* format, ...);

// The run command with its speed, the run command alone, and the stop.
void run(const machine& m, int pwm);
void run_on(const machine& m);
void stop(const machine& m);

void start_homing(const machine& m);
void step_homing(const machine& m);
// Leaves the mast not homed.
void abandon_homing(const machine& m, const char* reason);

void start_move(const machine& m);
void step_move(const machine& m);
void end_move(const machine& m, const char* reason);
