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

inline constinit bool forced_warnings[kDebugWarningCount] = {};
