// The direction in which the camera head faces, from the power board's magnetometer and accelerometer.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

// The numbers of the calibration: settings kSettingMagnetometerX and the eleven after it.
inline constexpr uint32_t kCalibrationNumbers = 12;

// Hard-iron offset and ellipsoid matrix of the magnetometer. Single precision, as all of the computation.
struct heading_calibration {
  std::array<float, 3> offset{};  // raw counts
  std::array<float, 9> matrix{};  // row by row
};

// x, y, z as a sensor gives them.
using sensor_sample = std::array<float, 3>;

// The heading in radians counterclockwise from north, -pi to pi, with the tilt taken out; not finite when the
// numbers are too large. Magnetometer in raw counts, accelerometer in g. Any thread.
float compute_heading(const heading_calibration& calibration, const sensor_sample& magnetometer,
                      const sensor_sample& accelerometer);

// A finite heading in whole degrees clockwise from north, 0 to 360; exactly north is 360. Any thread.
int compass_degrees(float heading);

// The nearest of "N", "NE", "E", "SE", "S", "SW", "W", "NW". Any thread.
const char* compass_point(int degrees);

// The number of setting `index`; one that is not finite counts as 0. Any thread.
double load_calibration_number(uint32_t index);

// Copies the compass point of the two samples with the stored calibration (read on every call; the last one
// while a save is under way) into `text`, cut to size - 1 and terminated; "XX" while the magnetometer is not
// calibrated, or when no heading comes of the numbers. Any thread; waits for nothing.
void orb_load_heading(int mag_x, int mag_y, int mag_z, char* text, size_t size, float accel_x, float accel_y,
                      float accel_z);
