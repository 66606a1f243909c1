#include "power_board/frame.h"

#include <algorithm>
#include <array>
#include <concepts>

namespace {

using frame_bytes = std::array<uint8_t, kFrameSize>;
using take_function = void (*)(const frame_bytes& frame, size_t position, double scale,
                               power_board_readings& readings);

// A field of the frame is one to four bytes, least significant first.
template <typename wire, auto Member>
void take(const frame_bytes& frame, size_t position, double scale, power_board_readings& readings) {
  uint32_t bits = 0;
  for (size_t i = 0; i < sizeof(wire); ++i) bits |= uint32_t{frame[position + i]} << (8 * i);
  const auto value = static_cast<wire>(bits);
  using field = std::remove_reference_t<decltype(readings.*Member)>;
  if constexpr (std::floating_point<field>) {
    readings.*Member = static_cast<field>(static_cast<double>(value) * scale);
  } else {
    readings.*Member = static_cast<field>(value);
  }
}

struct frame_field {
  size_t position;  // of the first byte in the frame
  take_function take;
  double scale = 1;
};

using r = power_board_readings;

constexpr frame_field kAdvancedFields[] = {
    {0, take<uint8_t, &r::power_enable>},
    {1, take<uint8_t, &r::led_enable>},
    {2, take<uint8_t, &r::led_pwm>},
    {3, take<int8_t, &r::motor_pwm>},
    {4, take<uint16_t, &r::motor_duration>},
    {6, take<uint8_t, &r::motor_command>},
    {7, take<uint8_t, &r::status>},
    {8, take<uint32_t, &r::local_time>},
    {12, take<uint32_t, &r::bme280_pressure>},
    {16, take<uint16_t, &r::bme280_humidity>, 0.01},
    {18, take<int16_t, &r::bme280_temperature>, 0.01},
    {20, take<int16_t, &r::imu_gyroscope_0>, 0.01},
    {22, take<int16_t, &r::imu_gyroscope_1>, 0.01},
    {24, take<int16_t, &r::imu_gyroscope_2>, 0.01},
    {26, take<int16_t, &r::imu_accelerometer_0>, 0.001},
    {28, take<int16_t, &r::imu_accelerometer_1>, 0.001},
    {30, take<int16_t, &r::imu_accelerometer_2>, 0.001},
    {32, take<int16_t, &r::imu_magnetometer_0>},
    {34, take<int16_t, &r::imu_magnetometer_1>},
    {36, take<int16_t, &r::imu_magnetometer_2>},
    {38, take<int16_t, &r::imu_temperature>, 0.01},
    {40, take<uint8_t, &r::imu_sample_count>},
    {41, take<uint16_t, &r::status_period>},
    {43, take<uint32_t, &r::board_time>},
    {47, take<uint32_t, &r::up_time>},
    {51, take<uint32_t, &r::motor_time>},
    {55, take<uint32_t, &r::camera_time>},
    {59, take<uint32_t, &r::laser_time>},
    {63, take<uint32_t, &r::led_time>},
    {67, take<uint32_t, &r::over_temperature_events>},
    {71, take<uint32_t, &r::under_temperature_events>},
    {75, take<uint32_t, &r::over_voltage_events>},
    {79, take<uint32_t, &r::under_voltage_events>},
    {83, take<uint32_t, &r::power_on_events>},
    {87, take<uint16_t, &r::monitor_vin_volts>, 0.001},
    {89, take<int16_t, &r::monitor_vin_amps>, 0.001},
    {91, take<int16_t, &r::monitor_vin_power>, 0.001},
    {93, take<uint16_t, &r::monitor_camera_volts>, 0.001},
    {95, take<int16_t, &r::monitor_camera_amps>, 0.001},
    {97, take<int16_t, &r::monitor_camera_power>, 0.001},
    {99, take<uint16_t, &r::monitor_motor_volts>, 0.001},
    {101, take<int16_t, &r::monitor_motor_amps>, 0.001},
    {103, take<int16_t, &r::monitor_motor_power>, 0.001},
    {105, take<int32_t, &r::encoder_count_0>},
    {109, take<int32_t, &r::encoder_count_1>},
    {113, take<int16_t, &r::encoder_speed_0>},
    {115, take<int16_t, &r::encoder_speed_1>},
    {117, take<uint32_t, &r::laser_distance>, 0.001},  // millimetres
    {121, take<uint16_t, &r::laser_quality>},
    {123, take<uint16_t, &r::laser_error_code>},
    {125, take<uint8_t, &r::laser_sample_count>},
    {126, take<uint8_t, &r::motor_type>},
    {127, take<uint16_t, &r::checksum>},
    {129, take<uint8_t, &r::board_revision>},  // low byte of a 16-bit field
    {131, take<uint16_t, &r::build_number>},
    {133, take<uint32_t, &r::laser_serial_number>},
    {137, take<uint16_t, &r::laser_software_version>},
    {139, take<uint16_t, &r::laser_hardware_version>},
};

constexpr frame_field kBasicFields[] = {
    {0, take<uint8_t, &r::power_enable>},
    {1, take<uint8_t, &r::led_enable>},
    {2, take<uint8_t, &r::led_pwm>},
    {7, take<uint8_t, &r::status>},
    {8, take<uint16_t, &r::monitor_vin_volts>, 0.001},
    {10, take<uint16_t, &r::bme280_temperature>, 0.01},  // unsigned here, unlike the advanced frame
};

constexpr frame_field kBasicExtendedFields[] = {
    {58, take<uint8_t, &r::board_revision>},  // low byte of a 16-bit field
    {60, take<uint16_t, &r::build_number>},
};

constexpr size_t kStatusPosition = 7;

void decode(const frame_bytes& frame, std::span<const frame_field> fields, power_board_readings* readings) {
  for (const frame_field& field : fields) field.take(frame, field.position, field.scale, *readings);
}

void decode_basic(const frame_bytes& frame, power_board_readings* readings) {
  decode(frame, kBasicFields, readings);
  if ((readings->status & kStatusExtended) != 0) {
    decode(frame, kBasicExtendedFields, readings);
  } else {
    readings->board_revision = 1;
    readings->build_number = 0;  // the sum, which such a frame does not have
  }
}

}  // namespace

uint8_t reverse_bits(uint8_t byte) {
  unsigned value = byte;
  value = value >> 4 | value << 4;
  value = (value & 0xCC) >> 2 | (value & 0x33) << 2;
  value = (value & 0xAA) >> 1 | (value & 0x55) << 1;
  return static_cast<uint8_t>(value);
}

frame_check take_frame(std::span<const uint8_t> raw, bool advanced, power_board_readings* readings) {
  frame_bytes frame{};
  frame_check check;
  const size_t length = std::min(raw.size(), frame.size());
  std::transform(raw.begin(), raw.begin() + static_cast<long>(length), frame.begin(), reverse_bits);
  check.all_zero = std::all_of(raw.begin(), raw.end(), [](uint8_t byte) { return byte == 0; });
  if (advanced || (frame[kStatusPosition] & kStatusExtended) != 0) {
    for (size_t i = 0; i < length; ++i) check.sum = static_cast<uint8_t>(check.sum + frame[i]);
  }
  if (check.sum != 0) return check;
  if (advanced) {
    decode(frame, kAdvancedFields, readings);
  } else {
    decode_basic(frame, readings);
  }
  return check;
}
