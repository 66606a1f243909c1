// Warnings that a service client has forced on, so that its display of them can be checked on a healthy unit:
// the status object shows a warning when it is real or forced. Off at start, in memory only. HTTP server
// thread.
#pragma once

#include <cstddef>

enum debug_warning : size_t {
  kDebugCriticalTemperature,
  kDebugHighTemperature,
  kDebugLowTemperature,
  kDebugHighPressure,
  kDebugHighHumidity,
  kDebugTiltMotor,
  kDebugPanMotor,
  kDebugHeightMotor,
  kDebugWarningCount,
};

struct debug_flag {
  const char* key;  // of the body, and of the answer
  bool is_on = false;
};

// In the order of debug_warning.
extern debug_flag debug_flags[kDebugWarningCount];

inline bool is_warning_forced(debug_warning warning) { return debug_flags[warning].is_on; }
