// Frames made by hand, against what is to be read from them.
#include <cmath>
#include <numeric>

#include "power_board/rig.h"

namespace {

using R = power_board_readings;
using bytes = std::vector<uint8_t>;

// Bytes that differ, bit 7 set in all of them: it shows where a field ends, and whether it has a sign.
bytes sample(size_t size) {
  bytes frame;
  for (size_t i = 0; i < size; ++i) frame.push_back(static_cast<uint8_t>(0x80 | (i * 5 + 3)));
  return frame;
}

// Has the frame sum to `sum` by its byte `at`, and decodes it.
uint8_t take(bytes frame, size_t at, int sum, R* readings) {
  frame[at] = static_cast<uint8_t>(frame[at] + sum - std::accumulate(frame.begin(), frame.end(), 0));
  std::transform(frame.begin(), frame.end(), frame.begin(), mirror_bits);
  return take_frame(frame, frame.size() == 141, readings).sum;
}

template <auto... Members>
std::vector<double> values(const R& readings) {
  return {static_cast<double>(readings.*Members)...};
}

TEST(frame_decoding, advanced_frame_field_by_field) {
  R r;
  EXPECT_EQ(take(sample(141), 128, 0, &r), 0);
  const auto decoded = [&r] {
    return values<
        &R::power_enable, &R::led_enable, &R::led_pwm, &R::motor_pwm, &R::motor_duration, &R::motor_command,
        &R::status, &R::local_time, &R::bme280_pressure, &R::bme280_humidity, &R::bme280_temperature,
        &R::imu_gyroscope_0, &R::imu_gyroscope_1, &R::imu_gyroscope_2, &R::imu_accelerometer_0,
        &R::imu_accelerometer_1, &R::imu_accelerometer_2, &R::imu_magnetometer_0, &R::imu_magnetometer_1,
        &R::imu_magnetometer_2, &R::imu_temperature, &R::imu_sample_count, &R::status_period, &R::board_time,
        &R::up_time, &R::motor_time, &R::camera_time, &R::laser_time, &R::led_time,
        &R::over_temperature_events, &R::under_temperature_events, &R::over_voltage_events,
        &R::under_voltage_events, &R::power_on_events, &R::monitor_vin_volts, &R::monitor_vin_amps,
        &R::monitor_vin_power, &R::monitor_camera_volts, &R::monitor_camera_amps, &R::monitor_camera_power,
        &R::monitor_motor_volts, &R::monitor_motor_amps, &R::monitor_motor_power, &R::encoder_count_0,
        &R::encoder_count_1, &R::encoder_speed_0, &R::encoder_speed_1, &R::laser_distance, &R::laser_quality,
        &R::laser_error_code, &R::laser_sample_count, &R::motor_type, &R::checksum, &R::board_revision,
        &R::build_number, &R::laser_serial_number, &R::laser_software_version, &R::laser_hardware_version>(r);
  };
  const std::vector<double> readings = decoded();
  const double expected[] = {
      131,        136,        141,        -110,        40087,       161,        166,        3132469419,
      3469329599, 555.07,     -74.59,     -48.89,      -23.19,      -325.17,    -30.075,    -27.505,
      -24.935,    -22365,     -19795,     -17225,      -146.55,     203,        54736,      3924090842,
      4260951022, 2441906050, 2778766230, 3115626410,  3452486590,  3789346770, 4126206950, 2307194874,
      2644022158, 2980882338, 48.054,     -14.912,     -12.342,     55.764,     -7.202,     -4.632,
      63.474,     -32.26,     -29.818,    -1617259120, -1280398940, -16968,     -14398,     3688288.716,
      58848,      61418,      244,        249,         38654,       136,        38802,      2879824284,
      46512,      49082};
  for (size_t i = 0; i < std::size(expected); ++i) {
    const bool whole = expected[i] == std::trunc(expected[i]);  // else as exact as a float is
    EXPECT_NEAR(readings[i], expected[i], whole ? 0 : 1e-6 * std::abs(expected[i])) << i;
  }
  for (const int sum : {0x01, 0x80, 0xFF}) {
    EXPECT_EQ(take(sample(141), 20, sum, &r), sum);
    EXPECT_EQ(decoded(), readings);
  }
}

TEST(frame_decoding, a_basic_frame_has_sum_and_identity_only_when_extended) {
  for (const bool extended : {true, false}) {
    bytes frame = sample(64);
    frame[7] = extended ? 0xA1 : 0xA0;
    R r;
    r.checksum = 0x1234;  // not in this frame
    EXPECT_EQ(take(frame, 63, extended ? 0 : 0x80, &r), 0);
    EXPECT_EQ((std::array{r.power_enable, r.led_enable, r.led_pwm, r.status}),
              (std::array{frame[0], frame[1], frame[2], frame[7]}));
    EXPECT_FLOAT_EQ(r.monitor_vin_volts, 45.227F);
    EXPECT_FLOAT_EQ(r.bme280_temperature, 477.97F);
    EXPECT_EQ(r.board_revision, extended ? 165 : 1);
    EXPECT_EQ(r.build_number, extended ? 46255 : 0);
    EXPECT_EQ(r.checksum, 0x1234);
  }
}

}  // namespace
