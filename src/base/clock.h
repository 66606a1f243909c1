// The monotonic clock, and sleeps on it. Any thread.
#pragma once

#include <cstdint>

inline constexpr int64_t kNanosecondsPerMillisecond = 1'000'000;

// Nanoseconds of CLOCK_MONOTONIC.
int64_t monotonic_ns();

// Sleeps until monotonic_ns() reaches `deadline_ns`; signals do not shorten it.
void sleep_until_ns(int64_t deadline_ns);

void sleep_ns(int64_t nanoseconds);
void sleep_ms(int64_t milliseconds);
