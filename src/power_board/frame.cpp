#include "power_board/frame.h"

#include <algorithm>
#include <array>
#include <concepts>

namespace {

// A field of the frame is one to four bytes, least significant first.
enum class wire { u8, i8, u16, i16, u32, i32 };

using frame_bytes = std::array<uint8_t, kFrameSize>;
using put_function = void (*)(power_board_readings& readings, int64_t value, double scale);

template <auto Member>
void put(power_board_readings& readings, int64_t value, double scale) {
  using field = std::remove_reference_t<decltype(readings.*Member)>;
  if constexpr (std::floating_point<field>) {
    readings.*Member = static_cast<field>(static_cast<double>(value) * scale);
  } else {
    readings.*Member = static_cast<field>(value);
  }
}

struct frame_field {
  size_t position;  // of the first byte in the frame
  wire type;
  put_function put;
  double scale = 1;
};

using r = power_board_readings;

constexpr frame_field kAdvancedFields[] = {
    {0, wire::u8, put<&r::power_enable>},
    {1, wire::u8, put<&r::led_enable>},
    {2, wire::u8, put<&r::led_pwm>},
    {3, wire::i8, put<&r::motor_pwm>},
    {4, wire::u16, put<&r::motor_duration>},
    {6, wire::u8, put<&r::motor_command>},
    {7, wire::u8, put<&r::status>},
    {8, wire::u32, put<&r::local_time>},
    {12, wire::u32, put<&r::bme280_pressure>},
    {16, wire::u16, put<&r::bme280_humidity>, 0.01},
    {18, wire::i16, put<&r::bme280_temperature>, 0.01},
    {20, wire::i16, put<&r::imu_gyroscope_0>, 0.01},
    {22, wire::i16, put<&r::imu_gyroscope_1>, 0.01},
    {24, wire::i16, put<&r::imu_gyroscope_2>, 0.01},
    {26, wire::i16, put<&r::imu_accelerometer_0>, 0.001},
    {28, wire::i16, put<&r::imu_accelerometer_1>, 0.001},
    {30, wire::i16, put<&r::imu_accelerometer_2>, 0.001},
    {32, wire::i16, put<&r::imu_magnetometer_0>},
    {34, wire::i16, put<&r::imu_magnetometer_1>},
    {36, wire::i16, put<&r::imu_magnetometer_2>},
    {38, wire::i16, put<&r::imu_temperature>, 0.01},
    {40, wire::u8, put<&r::imu_sample_count>},
    {41, wire::u16, put<&r::status_period>},
    {43, wire::u32, put<&r::board_time>},
    {47, wire::u32, put<&r::up_time>},
    {51, wire::u32, put<&r::motor_time>},
    {55, wire::u32, put<&r::camera_time>},
    {59, wire::u32, put<&r::laser_time>},
    {63, wire::u32, put<&r::led_time>},
    {67, wire::u32, put<&r::over_temperature_events>},
    {71, wire::u32, put<&r::under_temperature_events>},
    {75, wire::u32, put<&r::over_voltage_events>},
    {79, wire::u32, put<&r::under_voltage_events>},
    {83, wire::u32, put<&r::power_on_events>},
    {87, wire::u16, put<&r::monitor_vin_volts>, 0.001},
    {89, wire::i16, put<&r::monitor_vin_amps>, 0.001},
    {91, wire::i16, put<&r::monitor_vin_power>, 0.001},
    {93, wire::u16, put<&r::monitor_camera_volts>, 0.001},
    {95, wire::i16, put<&r::monitor_camera_amps>, 0.001},
    {97, wire::i16, put<&r::monitor_camera_power>, 0.001},
    {99, wire::u16, put<&r::monitor_motor_volts>, 0.001},
    {101, wire::i16, put<&r::monitor_motor_amps>, 0.001},
    {103, wire::i16, put<&r::monitor_motor_power>, 0.001},
    {105, wire::i32, put<&r::encoder_count_0>},
    {109, wire::i32, put<&r::encoder_count_1>},
    {113, wire::i16, put<&r::encoder_speed_0>},
    {115, wire::i16, put<&r::encoder_speed_1>},
    {117, wire::u32, put<&r::laser_distance>, 0.001},  // millimetres
    {121, wire::u16, put<&r::laser_quality>},
    {123, wire::u16, put<&r::laser_error_code>},
    {125, wire::u8, put<&r::laser_sample_count>},
    {126, wire::u8, put<&r::motor_type>},
    {127, wire::u16, put<&r::checksum>},
    {129, wire::u8, put<&r::board_revision>},  // low byte of a 16-bit field
    {131, wire::u16, put<&r::build_number>},
    {133, wire::u32, put<&r::laser_serial_number>},
    {137, wire::u16, put<&r::laser_software_version>},
    {139, wire::u16, put<&r::laser_hardware_version>},
};

constexpr frame_field kBasicFields[] = {
    {0, wire::u8, put<&r::power_enable>},
    {1, wire::u8, put<&r::led_enable>},
    {2, wire::u8, put<&r::led_pwm>},
    {7, wire::u8, put<&r::status>},
    {8, wire::u16, put<&r::monitor_vin_volts>, 0.001},
    {10, wire::u16, put<&r::bme280_temperature>, 0.01},  // unsigned here, unlike the advanced frame
};

constexpr frame_field kBasicExtendedFields[] = {
    {58, wire::u8, put<&r::board_revision>},  // low byte of a 16-bit field
    {60, wire::u16, put<&r::build_number>},
};

constexpr size_t kStatusPosition = 7;

int64_t read_field(const frame_bytes& frame, const frame_field& field) {
  const auto byte = [&](size_t offset) { return uint32_t{frame[field.position + offset]} << (8 * offset); };
  switch (field.type) {
    case wire::u8:
      return static_cast<uint8_t>(byte(0));
    case wire::i8:
      return static_cast<int8_t>(byte(0));
    case wire::u16:
      return static_cast<uint16_t>(byte(0) | byte(1));
    case wire::i16:
      return static_cast<int16_t>(byte(0) | byte(1));
    case wire::u32:
      return byte(0) | byte(1) | byte(2) | byte(3);
    default:
      return static_cast<int32_t>(byte(0) | byte(1) | byte(2) | byte(3));
  }
}

void decode(const frame_bytes& frame, std::span<const frame_field> fields, power_board_readings* readings) {
  for (const frame_field& field : fields) field.put(*readings, read_field(frame, field), field.scale);
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
