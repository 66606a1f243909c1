// The clocks, and sleeps on the monotonic one. Any thread.
#pragma once

#include <cstdint>
#include <ctime>
#include <string>

inline constexpr int64_t kNanosecondsPerMillisecond = 1'000'000;
inline constexpr int64_t kNanosecondsPerSecond = 1'000'000'000;

// Nanoseconds of CLOCK_MONOTONIC.
int64_t monotonic_ns();

// Sleeps until monotonic_ns() reaches `deadline_ns`; signals do not shorten it.
void sleep_until_ns(int64_t deadline_ns);

void sleep_ns(int64_t nanoseconds);
void sleep_ms(int64_t milliseconds);

// The local time of a moment, in the zone that the unit has now: it is looked at again each time.
tm local_time(time_t when);

// Local time, `later_s` from now, as it stands in names of files: "2026-03-09-14-05-59".
std::string local_time_text(int later_s);
