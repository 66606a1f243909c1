// "/api/magnetometer/calibration".

#include <array>
#include <cmath>
#include <cstdio>
#include <optional>

#include "api/routes.h"
#include "heading/heading.h"
#include "http/response.h"
#include "store/settings.h"

namespace {

struct calibration_body {
  int calibrated = 0;
  std::array<double, kCalibrationNumbers> numbers{};
};

constexpr uint32_t number_index(uint32_t number) { return kSettingMagnetometerX + number; }

std::optional<double> finite_number(json_object* value) {
  if (json_object_is_type(value, json_type_double) == 0 && json_object_is_type(value, json_type_int) == 0) {
    return std::nullopt;
  }
  const double number = json_object_get_double(value);
  return std::isfinite(number) ? std::optional(number) : std::nullopt;
}

// Nothing unless every key is there and fits.
std::optional<calibration_body> parse_calibration(json_object* object) {
  calibration_body calibration;
  const std::optional<bool> flag = body_flag(object, setting_key(kSettingMagnetometerCalibrated));
  if (!flag) return std::nullopt;
  calibration.calibrated = *flag ? 1 : 0;
  for (uint32_t i = 0; i < kCalibrationNumbers; ++i) {
    const std::optional<double> number = finite_number(json_member(object, setting_key(number_index(i))));
    if (!number) return std::nullopt;
    calibration.numbers[i] = *number;
  }
  return calibration;
}

void store_calibration(const calibration_body& calibration) {
  std::array<nv_source, 1 + kCalibrationNumbers> sources;
  sources[0] = {kSettingMagnetometerCalibrated, &calibration.calibrated, sizeof calibration.calibrated};
  for (uint32_t i = 0; i < kCalibrationNumbers; ++i)
    sources[1 + i] = {number_index(i), &calibration.numbers[i], sizeof calibration.numbers[i]};
  write_nv(sources);
}

json_object* with_four_decimals(double number) {
  char text[336];  // the largest double has 309 digits before the point
  snprintf(text, sizeof text, "%.4f", number);
  return json_object_new_double_s(number, text);
}

int get_calibration(http_connection* connection) {
  int calibrated = 0;
  orb_read_nv(kSettingMagnetometerCalibrated, &calibrated, sizeof calibrated);
  return send_object(connection, [&](json_object* answer) {
    add_flag(answer, setting_key(kSettingMagnetometerCalibrated), calibrated != 0);
    for (uint32_t i = 0; i < kCalibrationNumbers; ++i) {
      const double number = load_calibration_number(number_index(i));
      add_json_member(answer, setting_key(number_index(i)), with_four_decimals(number));
    }
  });
}

int put_calibration(http_connection* connection, json_object* body) {
  const std::optional<calibration_body> calibration = parse_calibration(body);
  if (calibration) store_calibration(*calibration);
  return send_status(connection, calibration.has_value());
}

constexpr http_path kPaths[] = {
    {"/api/magnetometer/calibration", get<get_calibration>, put<put_calibration>.in(store_lane)},
};

}  // namespace

constinit const route_group magnetometer_routes(kRows<kPaths, route_counts{.get = 1, .put = 1}>);
