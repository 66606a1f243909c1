#include "camera/speeds.h"

#include <optional>

#include "base/value_file.h"

int read_speed(const char* path, int absent) {
  const std::optional<int> speed = read_value_file(path);
  return speed && *speed >= 0 && *speed <= kMaximumSpeed ? *speed : absent;
}
