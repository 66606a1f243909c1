// Waiting for what another thread or process does.
#pragma once

#include "base/clock.h"

// Polls `condition` every 2 ms for up to `seconds`.
template <typename Condition>
bool await(Condition condition, double seconds = 10) {
  const int64_t end = monotonic_ns() + static_cast<int64_t>(seconds * 1e9);
  while (!condition()) {
    if (monotonic_ns() > end) return false;
    sleep_ms(2);
  }
  return true;
}
