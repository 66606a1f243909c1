// The daemon's decoded copy of the power board's last good status frame, in the order in which the API lists
// it.
#pragma once

#include <cstdint>

// Bits of `status`.
inline constexpr uint8_t kStatusExtended = 0x01;  // the board reports the extended frame
inline constexpr uint8_t kStatusShutdownRequest = 0x02;
inline constexpr uint8_t kStatusTiltOvercurrent = 0x04;
inline constexpr uint8_t kStatusDriveOvercurrent = 0x08;  // pan or height drive
inline constexpr uint8_t kStatusNoShutdown = 0x20;        // set: bit 1 is no request

// Motor types.
inline constexpr uint8_t kMotorHeight = 1;
inline constexpr uint8_t kMotorPan = 2;

// "height", "pan", or "none" for any other number.
constexpr const char* motor_type_text(uint8_t motor_type) {
  return motor_type == kMotorHeight ? "height" : motor_type == kMotorPan ? "pan" : "none";
}

struct power_board_readings {
  uint8_t power_enable = 0;
  uint8_t led_enable = 0;
  uint8_t led_pwm = 0;
  uint16_t board_revision = 0;
  uint16_t build_number = 0;
  uint8_t status = 0;
  uint32_t local_time = 0;
  uint8_t motor_command = 0;
  int8_t motor_pwm = 0;
  uint16_t motor_duration = 0;
  uint32_t bme280_pressure = 0;
  float bme280_humidity = 0;
  float bme280_temperature = 0;  // degrees Celsius
  float imu_gyroscope_0 = 0;
  float imu_gyroscope_1 = 0;
  float imu_gyroscope_2 = 0;
  float imu_accelerometer_0 = 0;
  float imu_accelerometer_1 = 0;
  float imu_accelerometer_2 = 0;
  int16_t imu_magnetometer_0 = 0;
  int16_t imu_magnetometer_1 = 0;
  int16_t imu_magnetometer_2 = 0;
  float imu_temperature = 0;
  uint8_t imu_sample_count = 0;
  uint16_t status_period = 0;
  uint32_t board_time = 0;
  uint32_t up_time = 0;
  uint32_t motor_time = 0;
  uint32_t camera_time = 0;
  uint32_t laser_time = 0;
  uint32_t led_time = 0;
  uint32_t over_temperature_events = 0;
  uint32_t under_temperature_events = 0;
  uint32_t over_voltage_events = 0;
  uint32_t under_voltage_events = 0;
  uint32_t power_on_events = 0;
  float monitor_vin_volts = 0;
  float monitor_vin_amps = 0;
  float monitor_vin_power = 0;
  float monitor_camera_volts = 0;
  float monitor_camera_amps = 0;
  float monitor_camera_power = 0;
  float monitor_motor_volts = 0;
  float monitor_motor_amps = 0;
  float monitor_motor_power = 0;
  int32_t encoder_count_0 = 0;
  int32_t encoder_count_1 = 0;
  int16_t encoder_speed_0 = 0;
  int16_t encoder_speed_1 = 0;
  double laser_distance = 0;  // metres
  uint16_t laser_quality = 0;
  uint16_t laser_error_code = 0;
  uint32_t laser_serial_number = 0;
  uint16_t laser_software_version = 0;
  uint16_t laser_hardware_version = 0;
  uint8_t laser_sample_count = 0;
  uint16_t checksum = 0;
  uint8_t motor_type = 0;
};
