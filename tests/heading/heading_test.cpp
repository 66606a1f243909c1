// The compass: the points and their boundaries, a whole turn of a simulated unit, and the calibration routes.
#include "heading/heading.h"

#include <gtest/gtest.h>

#include <cmath>
#include <numbers>
#include <regex>
#include <sstream>
#include <string>

#include "app/trace_reader.h"
#include "base/clock.h"
#include "http/api_client.h"
#include "power_board/readings.h"
#include "sim/board/board_model.h"

namespace {

using vector = std::array<double, 3>;

std::string point_at(int degrees) {
  constexpr std::string_view kOrder = "N  NE E  SE S  SW W  NW N  ";
  size_t point = 0;
  for (const int first : {23, 68, 113, 158, 203, 248, 294, 338}) point += degrees >= first ? 3 : 0;
  return std::string(kOrder.substr(point, kOrder.find(' ', point) - point));
}

double dot(const vector& a, const vector& b) { return a[0] * b[0] + a[1] * b[1] + a[2] * b[2]; }
double radians(double degrees) { return degrees * std::numbers::pi / 180; }

// Rows that sum to 2, 0.5 and -4, and offsets.
constexpr std::array<double, 12> kCalibration{120, -340, 55.5, 1, 2, -1, 0.25, 0.5, -0.25, -8, 3, 1};

void store(int calibrated, std::array<double, 12> numbers) {
  orb_write_nv(kSettingMagnetometerCalibrated, &calibrated, sizeof calibrated);
  for (uint32_t i = 0; i < 12; ++i) orb_write_nv(kSettingMagnetometerX + i, &numbers[i], sizeof(double));
}

// The frame of a board whose camera faces `bearing`, pitched and rolled (degrees), in a field that points
// north and steeply down; with the errors that kCalibration takes out.
power_board_readings measure(double bearing, double pitch, double roll) {
  const double b = radians(bearing), p = radians(pitch), r = radians(roll);
  const vector field{0, 4000, -5000}, up{0, 0, 1};  // east, north, up
  const vector ahead{std::sin(b), std::cos(b), 0};
  const vector right{std::cos(p) * std::cos(b), -std::cos(p) * std::sin(b), -std::sin(p)};
  const vector top{std::sin(p) * std::cos(b), -std::sin(p) * std::sin(b), std::cos(p)};
  vector forward, over;
  for (size_t i = 0; i < 3; ++i) {
    forward[i] = std::cos(r) * ahead[i] + std::sin(r) * top[i];
    over[i] = std::cos(r) * top[i] - std::sin(r) * ahead[i];
  }
  board_model board;
  board_readings& out = board.readings;
  out.mag_x = -dot(field, forward) / 2 + 120;
  out.mag_y = dot(field, over) / 0.5 - 340;
  out.mag_z = -dot(field, right) / -4 + 55.5;
  out.accel_x = -dot(up, over), out.accel_y = -dot(up, forward), out.accel_z = -dot(up, right);
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

TEST(heading, points_begin_at_their_degree) {
  for (int degrees = 0; degrees <= 360; ++degrees) EXPECT_EQ(compass_point(degrees), point_at(degrees));
  EXPECT_EQ(compass_degrees(0), 360);
  EXPECT_EQ(compass_degrees(-0.001F), 0);
  for (int degrees = 1; degrees < 360; ++degrees) {
    for (const double near : {-0.49, 0.49}) {
      const double turned = degrees + near;
      const double clockwise = turned < 180 ? -turned : 360 - turned;
      EXPECT_EQ(compass_degrees(static_cast<float>(radians(clockwise))), degrees);
    }
  }
}

TEST(heading, whole_turn_level_and_tilted) {
  orb_init_nv();
  store(1, kCalibration);
  for (const auto& [pitch, roll] : {std::pair(0, 0), {25, 0}, {0, -40}, {-30, 35}}) {
    for (int bearing = 0; bearing < 360; ++bearing)
      EXPECT_EQ(heading(measure(bearing, pitch, roll)), point_at(bearing)) << bearing << ' ' << pitch;
  }
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

// The calibration, "VALUE VALUE …", in the order of the routes.
std::string calibration(const std::string& values) {
  std::istringstream list(values);
  std::string text, value;
  for (const std::string key :
       {"calibrated", "calibration_x", "calibration_y", "calibration_z", "ellipsoid_00", "ellipsoid_01",
        "ellipsoid_02", "ellipsoid_10", "ellipsoid_11", "ellipsoid_12", "ellipsoid_20", "ellipsoid_21",
        "ellipsoid_22"}) {
    list >> value;
    text += (text.empty() ? "{'magnetometer_" : ",'magnetometer_") + key + "':" + value;
  }
  return text + "}";
}

TEST(heading, calibration_is_taken_whole_or_not_at_all) {
  constexpr char kPath[] = "/magnetometer/calibration";
  const std::string ok = "{'status':'OK'}", bad = "{'status':'BAD_REQUEST'}";
  const std::string good = calibration("true 1 -2.00006 1e20 0.5 1e-9 -0.25 10 11 12 20 21 22");
  const std::string answer = calibration(
      "true 1.0000 -2.0001 100000000000000000000.0000 0.5000 0.0000 -0.2500 10.0000 11.0000 12.0000 20.0000 "
      "21.0000 22.0000");
  orb_init_nv();
  start_trace();
  start_api();

  // Each key left out, and each with what it cannot be.
  const std::regex member("'([^']+)':([^,}]+)");
  for (std::sregex_iterator one(good.begin(), good.end(), member), end; one != end; ++one) {
    const auto with = [&](const std::string& text) {
      return one->prefix().str() + text + std::string((*one)[0].second, good.end());
    };
    const std::string name = "'" + (*one)[1].str() + "':";
    EXPECT_EQ(ask("PUT", kPath, with("'other':0")), bad) << name;
    const char* other = (*one)[2] == "true" ? "1" : "true";
    for (const char* value : {"null", "'1'", "[1]", "{}", "NaN", "Infinity", "-Infinity", "1e999", other})
      EXPECT_EQ(ask("PUT", kPath, with(name + value)), bad) << name << value;
  }
  for (const char* body : {"", "[]", "{}", "true", "'x'"}) EXPECT_EQ(ask("PUT", kPath, body), bad) << body;
  EXPECT_EQ(ask("GET", kPath), calibration("false 0.0000"));
  EXPECT_EQ(traces("NVPC"), "") << "nothing was stored";

  EXPECT_EQ(ask("PUT", kPath, good), ok);
  EXPECT_EQ(ask("GET", kPath), answer);
  EXPECT_EQ(traces("NVPC"), "stored 2 to file 0;") << "all of it in one save";
  EXPECT_EQ(traces("HAPI"), "");
  orb_init_nv();
  EXPECT_EQ(ask("GET", kPath), answer);
  EXPECT_EQ(ask("PUT", kPath, answer), ok) << "it takes what it gives";
}

}  // namespace
