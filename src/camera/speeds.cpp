#include "camera/speeds.h"

#include "base/value_file.h"

int read_speed(const char* path, int absent) {
  const int speed = read_value_file(path).value_or(absent);
  return speed >= 0 && speed <= kMaximumSpeed ? speed : absent;
}
