#include "heading/heading.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>

#include "base/text.h"
#include "store/settings.h"

namespace {

constexpr double kDegreesPerRadian = 57.29577951308232;

// How a sensor is mounted: it is turned about z, then about y. Radians.
struct mounting {
  float about_y;
  float about_z;
};

constexpr float kQuarterTurn = std::numbers::pi_v<float> / 2;
constexpr mounting kMagnetometer{kQuarterTurn, kQuarterTurn};
constexpr mounting kAccelerometer{kQuarterTurn, std::numbers::pi_v<float>};

sensor_sample turn(const sensor_sample& v, const mounting& mounting) {
  const float cos_z = std::cos(mounting.about_z);
  const float sin_z = std::sin(mounting.about_z);
  const float cos_y = std::cos(mounting.about_y);
  const float sin_y = std::sin(mounting.about_y);
  const float x = v[0] * cos_z + v[1] * sin_z;
  const float y = v[1] * cos_z - v[0] * sin_z;
  return {x * cos_y - v[2] * sin_y, y, x * sin_y + v[2] * cos_y};
}

// Each component is scaled by the sum of its own row. This is no matrix-vector product, and is meant so.
sensor_sample calibrate(const sensor_sample& raw, const heading_calibration& calibration) {
  sensor_sample field;
  for (size_t i = 0; i < field.size(); ++i) {
    const float* row = &calibration.matrix[3 * i];
    field[i] = (raw[i] - calibration.offset[i]) * (row[0] + row[1] + row[2]);
  }
  return field;
}

// `m` and `a` as mounted.
float tilt_compensated(const sensor_sample& m, const sensor_sample& a) {
  const float roll = std::atan2(a[1], a[2]);
  const float pitch = std::atan2(-a[0], a[1] * std::sin(roll) + a[2] * std::cos(roll));
  const float x = m[0] * std::cos(pitch) + (m[1] * std::sin(roll) + m[2] * std::cos(roll)) * std::sin(pitch);
  const float y = m[1] * std::cos(roll) - m[2] * std::sin(roll);
  return std::atan2(x, y);  // x first: it fits the mounting
}

// What the settings hold.
struct stored_calibration {
  int calibrated = 0;
  std::array<double, kCalibrationNumbers> numbers{};
};

stored_calibration load_stored() {
  stored_calibration stored;
  std::array<nv_target, 1 + kCalibrationNumbers> targets;
  targets[0] = {kSettingMagnetometerCalibrated, &stored.calibrated, sizeof stored.calibrated};
  for (uint32_t i = 0; i < kCalibrationNumbers; ++i)
    targets[1 + i] = {kSettingMagnetometerX + i, &stored.numbers[i], sizeof stored.numbers[i]};
  read_nv(targets);
  return stored;
}

// Limited to what single precision holds; 0 for what is not finite.
float as_single(double number) {
  constexpr double kLargest = std::numeric_limits<float>::max();
  return std::isfinite(number) ? static_cast<float>(std::clamp(number, -kLargest, kLargest)) : 0;
}

heading_calibration calibration_of(const stored_calibration& stored) {
  heading_calibration calibration;
  const double* number = stored.numbers.data();
  for (float& each : calibration.offset) each = as_single(*number++);
  for (float& each : calibration.matrix) each = as_single(*number++);
  return calibration;
}

}  // namespace

float compute_heading(const heading_calibration& calibration, const sensor_sample& magnetometer,
                      const sensor_sample& accelerometer) {
  return tilt_compensated(turn(calibrate(magnetometer, calibration), kMagnetometer),
                          turn(accelerometer, kAccelerometer));
}

int compass_degrees(float heading) {
  const double radians = heading >= 0 ? 2 * std::numbers::pi - static_cast<double>(heading)
                                      : std::abs(static_cast<double>(heading));
  return static_cast<int>(std::lround(radians * kDegreesPerRadian));
}

const char* compass_point(int degrees) {
  constexpr struct {
    int last;  // degree
    const char* name;
  } kPoints[] = {{22, "N"},  {67, "NE"},  {112, "E"}, {157, "SE"},
                 {202, "S"}, {247, "SW"}, {293, "W"}, {337, "NW"}};
  for (const auto& point : kPoints) {
    if (degrees <= point.last) return point.name;
  }
  return "N";
}

double load_calibration_number(uint32_t index) {
  double number = 0;
  orb_read_nv(index, &number, sizeof number);
  return std::isfinite(number) ? number : 0;
}

void orb_load_heading(int mag_x, int mag_y, int mag_z, char* text, size_t size, float accel_x, float accel_y,
                      float accel_z) {
  copy_text(text, size, "XX");
  const stored_calibration& stored = load_stored();
  if (stored.calibrated == 0) return;
  const sensor_sample field{static_cast<float>(mag_x), static_cast<float>(mag_y), static_cast<float>(mag_z)};
  const float heading = compute_heading(calibration_of(stored), field, {accel_x, accel_y, accel_z});
  if (std::isfinite(heading)) copy_text(text, size, compass_point(compass_degrees(heading)));
}
