#include "camera/speeds.h"

#include <optional>

#include "base/value_file.h"

int read_speed(const char* path, int absent) { return shown_speed(path, absent, absent); }

int shown_speed(const char* path, int absent, int missing) {
  const std::optional<int> speed = read_value_file(path);
  if (!speed) return missing;
  return *speed >= 0 && *speed <= kMaximumSpeed ? *speed : absent;
}
