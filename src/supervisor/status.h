// The status record: what it says of what was measured, in pure steps, and its assembly. Main loop.
#pragma once

#include <cstdint>

#include "supervisor/supervisor.h"

// Temperatures in °C; one that is not known warns of nothing.
temperature_warnings judge_temperatures(double board, double processor, const camera_temperatures& camera);

// How far the head looks up, in degrees: of its accelerometer's axes, 0 is vertical when it is level and 2
// looks ahead.
double tilt_angle(double axis_0, double axis_2);

// How fast the running take grows.
struct take_rate {
  bool started = false;
  uint64_t first_kb = 0;
  uint64_t last_kb = 0;
  int seconds = 0;  // recorded since `first_kb`
};
// One second of the recorder; `take_kb` is 0 until the take has a size.
void step_take_rate(take_rate* rate, bool recording, bool paused, uint64_t take_kb);

struct free_stores {
  uint64_t emmc_kb = 0;
  uint64_t usb_kb = 0;
};
// Fills the record's three remaining times; its `post_processing` is set.
void tell_remaining_times(const free_stores& free, const take_rate& rate, supervisor_values* values);

// Assembles the record and publishes it, and asks for a shutdown when the unit is too hot. Every second;
// never waits.
void step_status();

// The record starts afresh, with the release file as it is now. Main thread, before the first step.
void reset_status();
