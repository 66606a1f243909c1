// Frames made by hand, against a table of where each reading stands in them.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <vector>

#include "power_board/readings.h"

namespace {

using R = power_board_readings;
using frame = std::vector<uint8_t>;

using u8 = uint8_t;
using i8 = int8_t;
using u16 = uint16_t;
using i16 = int16_t;
using u32 = uint32_t;
using i32 = int32_t;

struct place {
  size_t at;
  double scale;
  double (*raw)(const uint8_t* bytes);
  double (*read)(const R& readings);

  // To the bit, or as exact as a float is.
  void expect(const frame& bytes, const R& readings) const {
    const double value = raw(&bytes[at]) * scale;
    EXPECT_NEAR(read(readings), value, scale == 1 ? 0 : std::abs(value) * 1e-6) << at;
  }
};

template <class Type, auto Member>
place at(size_t position, double scale = 1) {
  const auto raw = [](const uint8_t* bytes) {
    Type value;
    memcpy(&value, bytes, sizeof value);  // little-endian, as this machine
    return static_cast<double>(value);
  };
  return {position, scale, raw, [](const R& r) { return static_cast<double>(r.*Member); }};
}

template <class... Places>
std::vector<place> layout(Places... places) {
  return {places...};
}

const std::vector<place> kAdvanced = layout(
    at<u8, &R::power_enable>(0), at<u8, &R::led_enable>(1), at<u8, &R::led_pwm>(2), at<i8, &R::motor_pwm>(3),
    at<u16, &R::motor_duration>(4), at<u8, &R::motor_command>(6), at<u8, &R::status>(7),
    at<u32, &R::local_time>(8), at<u32, &R::bme280_pressure>(12), at<u16, &R::bme280_humidity>(16, 0.01),
    at<i16, &R::bme280_temperature>(18, 0.01), at<i16, &R::imu_gyroscope_0>(20, 0.01),
    at<i16, &R::imu_gyroscope_1>(22, 0.01), at<i16, &R::imu_gyroscope_2>(24, 0.01),
    at<i16, &R::imu_accelerometer_0>(26, 0.001), at<i16, &R::imu_accelerometer_1>(28, 0.001),
    at<i16, &R::imu_accelerometer_2>(30, 0.001), at<i16, &R::imu_magnetometer_0>(32),
    at<i16, &R::imu_magnetometer_1>(34), at<i16, &R::imu_magnetometer_2>(36),
    at<i16, &R::imu_temperature>(38, 0.01), at<u8, &R::imu_sample_count>(40), at<u16, &R::status_period>(41),
    at<u32, &R::board_time>(43), at<u32, &R::up_time>(47), at<u32, &R::motor_time>(51),
    at<u32, &R::camera_time>(55), at<u32, &R::laser_time>(59), at<u32, &R::led_time>(63),
    at<u32, &R::over_temperature_events>(67), at<u32, &R::under_temperature_events>(71),
    at<u32, &R::over_voltage_events>(75), at<u32, &R::under_voltage_events>(79),
    at<u32, &R::power_on_events>(83), at<u16, &R::monitor_vin_volts>(87, 0.001),
    at<i16, &R::monitor_vin_amps>(89, 0.001), at<i16, &R::monitor_vin_power>(91, 0.001),
    at<u16, &R::monitor_camera_volts>(93, 0.001), at<i16, &R::monitor_camera_amps>(95, 0.001),
    at<i16, &R::monitor_camera_power>(97, 0.001), at<u16, &R::monitor_motor_volts>(99, 0.001),
    at<i16, &R::monitor_motor_amps>(101, 0.001), at<i16, &R::monitor_motor_power>(103, 0.001),
    at<i32, &R::encoder_count_0>(105), at<i32, &R::encoder_count_1>(109), at<i16, &R::encoder_speed_0>(113),
    at<i16, &R::encoder_speed_1>(115), at<u32, &R::laser_distance>(117, 0.001),
    at<u16, &R::laser_quality>(121), at<u16, &R::laser_error_code>(123), at<u8, &R::laser_sample_count>(125),
    at<u8, &R::motor_type>(126), at<u16, &R::checksum>(127), at<u8, &R::board_revision>(129),
    at<u16, &R::build_number>(131), at<u32, &R::laser_serial_number>(133),
    at<u16, &R::laser_software_version>(137), at<u16, &R::laser_hardware_version>(139));

const std::vector<place> kBasic = layout(
    at<u8, &R::power_enable>(0), at<u8, &R::led_enable>(1), at<u8, &R::led_pwm>(2), at<u8, &R::status>(7),
    at<u16, &R::monitor_vin_volts>(8, 0.001), at<u16, &R::bme280_temperature>(10, 0.01),
    at<u8, &R::board_revision>(58), at<u16, &R::build_number>(60));

frame on_the_wire(const frame& bytes) {
  frame raw(bytes.size());
  for (size_t i = 0; i < bytes.size() * 8; ++i) {
    if ((bytes[i / 8] >> (i % 8) & 1) != 0) raw[i / 8] = static_cast<uint8_t>(raw[i / 8] | 0x80 >> (i % 8));
  }
  return raw;
}

// Makes the bytes sum to `sum` with the one at `at`.
void balance(frame& bytes, size_t at, uint8_t sum = 0) {
  bytes[at] = sum;
  for (size_t i = 0; i < bytes.size(); ++i)
    bytes[at] = static_cast<uint8_t>(bytes[at] - (i == at ? 0 : bytes[i]));
}

// Every byte different, every byte the same: positions, signs, scales and extremes.
std::vector<frame> samples(size_t size) {
  frame rising(size);
  for (size_t i = 0; i < size; ++i) rising[i] = static_cast<uint8_t>(i * 5 + 3);
  frame falling(rising.rbegin(), rising.rend());
  return {rising, falling, frame(size, 0xFF), frame(size, 0x80), frame(size, 0x7F)};
}

TEST(frame_decoding, advanced_frame_field_by_field) {
  for (frame bytes : samples(141)) {
    balance(bytes, 128);
    R readings;
    const frame_check check = take_frame(on_the_wire(bytes), true, &readings);
    EXPECT_EQ(check.sum, 0);
    EXPECT_FALSE(check.all_zero);
    for (const place& p : kAdvanced) p.expect(bytes, readings);
  }
}

TEST(frame_decoding, basic_frame_field_by_field) {
  for (frame bytes : samples(64)) {
    bytes[7] |= 1;
    balance(bytes, 63);
    R readings;
    readings.imu_gyroscope_0 = 5;
    readings.checksum = 0x1234;
    readings.local_time = 77;
    EXPECT_EQ(take_frame(on_the_wire(bytes), false, &readings).sum, 0);
    for (const place& p : kBasic) p.expect(bytes, readings);
    EXPECT_EQ(readings.imu_gyroscope_0, 5);  // not in this frame: as before
    EXPECT_EQ(readings.checksum, 0x1234);
    EXPECT_EQ(readings.local_time, 77U);
  }
}

TEST(frame_decoding, a_basic_frame_of_an_old_board_is_never_summed) {
  frame bytes(64, 0x32);  // status bit 0 clear, and the sum is 0x80
  R readings;
  readings.build_number = 9;
  EXPECT_EQ(take_frame(on_the_wire(bytes), false, &readings).sum, 0);
  EXPECT_EQ(readings.status, 0x32);
  EXPECT_FLOAT_EQ(readings.monitor_vin_volts, 12.85F);
  EXPECT_EQ(readings.board_revision, 1);
  EXPECT_EQ(readings.build_number, 0);
}

TEST(frame_decoding, a_wrong_sum_changes_nothing_and_zeros_are_good) {
  R readings;
  memset(static_cast<void*>(&readings), 0x11, sizeof readings);
  const R before = readings;
  for (const auto& [size, sum] : {std::pair{141, 0x01}, {141, 0xFF}, {64, 0x80}}) {
    frame bytes(static_cast<size_t>(size), 0x33);  // status bit 0 set
    balance(bytes, 20, static_cast<uint8_t>(sum));
    EXPECT_EQ(take_frame(on_the_wire(bytes), size == 141, &readings).sum, sum);
    EXPECT_EQ(memcmp(&before, &readings, sizeof readings), 0);
  }
  const frame_check check = take_frame(frame(141), true, &readings);
  EXPECT_TRUE(check.all_zero);
  EXPECT_EQ(check.sum, 0);
  for (const place& p : kAdvanced) p.expect(frame(141), readings);
}

}  // namespace
