#include "base/distance.h"

#include <cstdio>

namespace {

constexpr double kWholeNumbers = 99.5;  // from here on without decimals

}  // namespace

distance_text format_distance(double value, bool feet) {
  distance_text result;
  snprintf(result.text, sizeof result.text, value < kWholeNumbers ? "%.1f %s" : "%.0f %s", value,
           feet ? "ft" : "m");
  return result;
}
