#include "camera/depth_of_field.h"

#include <cmath>
#include <cstdio>
#include <iterator>

#include "base/text.h"
#include "store/units.h"

namespace {

struct focus_point {
  int position;
  double distance_m;
};

// Falling positions.
constexpr focus_point kFocusCurve[] = {
    {61440, 0.01}, {57344, 0.11}, {53248, 0.3},  {49152, 0.8}, {45056, 1.2},
    {40960, 1.4},  {36864, 1.65}, {32768, 2.0},  {28672, 2.5}, {24576, 3.1},
    {20480, 4.2},  {16384, 6.0},  {12288, 10.0}, {8192, 20.0}, {4096, 60.0},
};

constexpr const focus_point& kNearest = *std::begin(kFocusCurve);
constexpr const focus_point& kFarthest = *std::prev(std::end(kFocusCurve));  // below: infinity
constexpr int kNotReported = -1;

constexpr double kFar = 1.1;
constexpr double kNear = 0.9;
constexpr double kWholeNumbers = 99.5;  // from here on without decimals

double distance_at(int position) {
  const focus_point* previous = &kNearest;
  if (position >= previous->position) return previous->distance_m;
  for (const focus_point& point : kFocusCurve) {
    if (position >= point.position) {
      return point.distance_m + (previous->distance_m - point.distance_m) * (position - point.position) /
                                    (previous->position - point.position);
    }
    previous = &point;
  }
  return kFarthest.distance_m;
}

void limit_text(char* text, size_t size, double distance, const char* unit) {
  snprintf(text, size, distance < kWholeNumbers ? "%.2g %s" : "%.0f %s", distance, unit);
}

}  // namespace

// The middle piece is a single-precision number.
double focus_distance_ft(int focus_position) {
  if (focus_position < 7500) return 596.0 - 0.0653 * focus_position;
  if (focus_position < 41001) return 2.9288e9F * powf(static_cast<float>(focus_position), -1.9357F);
  return 19.3 - 0.000341 * focus_position;
}

depth_of_field load_depth_of_field(int focus_position) {
  depth_of_field field;
  if (focus_position < kFarthest.position) {
    const char* text = focus_position == kNotReported ? "?" : "\u221E";
    copy_text(field.far_limit, sizeof field.far_limit, text);
    copy_text(field.near_limit, sizeof field.near_limit, text);
    return field;
  }
  const bool feet = in_feet();
  const double distance = in_units(distance_at(focus_position), feet);
  limit_text(field.far_limit, sizeof field.far_limit, distance * kFar, feet ? "ft" : "m");
  limit_text(field.near_limit, sizeof field.near_limit, distance * kNear, feet ? "ft" : "m");
  return field;
}
