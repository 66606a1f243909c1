#include "store/units.h"

#include <cstdio>

#include "store/settings.h"

namespace {

constexpr int kImperial = 1;

// A single-precision number, as the laser's and the camera's distances are shown with.
constexpr double kFeetPerMetre = double{3.28084F};

constexpr double kWholeNumbers = 99.5;  // from here on without decimals

}  // namespace

bool in_feet() {
  int units = 0;
  orb_read_nv(kSettingUnits, &units, sizeof units);
  return units == kImperial;
}

double in_units(double metres, bool feet) { return metres * (feet ? kFeetPerMetre : 1.0); }

distance_text format_distance(double value, bool feet) {
  distance_text result;
  snprintf(result.text, sizeof result.text, value < kWholeNumbers ? "%.1f %s" : "%.0f %s", value,
           feet ? "ft" : "m");
  return result;
}
