#include "base/clock.h"

#include <cerrno>
#include <ctime>

int64_t monotonic_ns() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return now.tv_sec * kNanosecondsPerSecond + now.tv_nsec;
}

void sleep_until_ns(int64_t deadline_ns) {
  const timespec deadline{deadline_ns / kNanosecondsPerSecond, deadline_ns % kNanosecondsPerSecond};
  while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &deadline, nullptr) == EINTR) {
  }
}

void sleep_ns(int64_t nanoseconds) { sleep_until_ns(monotonic_ns() + nanoseconds); }

void sleep_ms(int64_t milliseconds) { sleep_ns(milliseconds * kNanosecondsPerMillisecond); }

tm local_time(time_t when) {
  tzset();  // which localtime_r need not do
  tm local{};
  localtime_r(&when, &local);
  return local;
}

std::string local_time_text(int later_s) {
  const tm local = local_time(time(nullptr) + later_s);
  char text[32];
  strftime(text, sizeof text, "%Y-%m-%d-%H-%M-%S", &local);
  return text;
}
