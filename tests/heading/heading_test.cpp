// The compass: a whole turn of a simulated unit, and what shows nothing.
#include "heading/heading.h"

#include <numbers>

#include "power_board/frame.h"
#include "sim/board/board_model.h"
#include "store/settings.h"
#include "tests/kit.h"

namespace {

using vector = std::array<double, 3>;

std::string point_at(int degrees) {
  constexpr std::string_view kOrder = "N  NE E  SE S  SW W  NW N  ";
  size_t point = 0;
  for (const int first : {23, 68, 113, 158, 203, 248, 294, 338}) point += degrees >= first ? 3 : 0;
  return std::string(kOrder.substr(point, kOrder.find(' ', point) - point));
}

// Rows that sum to 2, 0.5 and -4, and offsets.
constexpr std::array<double, 12> kCalibration{120, -340, 55.5, 1, 2, -1, 0.25, 0.5, -0.25, -8, 3, 1};

void store(int calibrated, std::array<double, 12> numbers) {
  orb_write_nv(kSettingMagnetometerCalibrated, &calibrated, sizeof calibrated);
  for (uint32_t i = 0; i < 12; ++i) orb_write_nv(kSettingMagnetometerX + i, &numbers[i], sizeof(double));
}

// The frame of a board whose camera faces `bearing`, pitched and rolled (degrees), in a field that points
// north and steeply down; with the errors that kCalibration takes out.
power_board_readings measure(double bearing, double pitch, double roll) {
  constexpr double kRadian = std::numbers::pi / 180;
  const double b = bearing * kRadian, p = pitch * kRadian, r = roll * kRadian;
  const vector ahead{std::sin(b), std::cos(b), 0};
  const vector right{std::cos(p) * std::cos(b), -std::cos(p) * std::sin(b), -std::sin(p)};
  const vector top{std::sin(p) * std::cos(b), -std::sin(p) * std::sin(b), std::cos(p)};
  vector forward, over;
  for (size_t i = 0; i < 3; ++i) {
    forward[i] = std::cos(r) * ahead[i] + std::sin(r) * top[i];
    over[i] = std::cos(r) * top[i] - std::sin(r) * ahead[i];
  }
  const auto field_along = [](const vector& axis) { return 4000 * axis[1] - 5000 * axis[2]; };
  board_model board;
  board_readings& out = board.readings;
  out.mag_x = -field_along(forward) / 2 + 120;
  out.mag_y = field_along(over) / 0.5 - 340;
  out.mag_z = -field_along(right) / -4 + 55.5;
  out.accel_x = -over[2], out.accel_y = -forward[2], out.accel_z = -right[2];
  std::array<uint8_t, kAdvancedFrameSize> wire{};
  board_answer(board, kReadAdvanced, wire);
  power_board_readings readings;
  EXPECT_EQ(take_frame(wire, true, &readings).sum, 0);
  return readings;
}

std::string heading(const power_board_readings& r, size_t size = 4) {
  char text[4] = "###";
  orb_load_heading(r.imu_magnetometer_0, r.imu_magnetometer_1, r.imu_magnetometer_2, text, size,
                   r.imu_accelerometer_0, r.imu_accelerometer_1, r.imu_accelerometer_2);
  return text;
}

TEST(heading, whole_turn_level_and_tilted) {
  orb_init_nv();
  store(1, kCalibration);
  for (const auto& [pitch, roll] : {std::pair(0, 0), {25, 0}, {0, -40}, {-30, 35}})
    for (int bearing = 0; bearing < 360; ++bearing)
      EXPECT_EQ(heading(measure(bearing, pitch, roll)), point_at(bearing)) << bearing << ' ' << pitch;
}

TEST(heading, is_xx_without_a_calibration) {
  orb_init_nv();
  store(0, kCalibration);
  EXPECT_EQ(heading(measure(90, 0, 0)), "XX");
  store(-1, kCalibration);
  power_board_readings readings = measure(45, 0, 0);
  EXPECT_EQ(heading(readings), "NE");
  EXPECT_EQ(heading(readings, 2), "N");
  readings.imu_accelerometer_1 = NAN;
  EXPECT_EQ(heading(readings), "XX");
  store(1, {NAN, NAN, NAN, 1e300, 1e300, 1e300});  // counts as 0; is too large
  EXPECT_EQ(heading(measure(45, 0, 0)), "XX");
}

}  // namespace
