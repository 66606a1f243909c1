// "/api/power_board": diagnostics of the link.

#include <algorithm>
#include <cctype>
#include <concepts>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string_view>

#include "api/routes.h"
#include "base/trace.h"
#include "http/response.h"
#include "power_board/power_board.h"
#include "store/settings.h"

namespace {

using print_function = void (*)(char* text, size_t size, const char* format,
                                const power_board_readings& readings);

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"

template <auto Member>
void print(char* text, size_t size, const char* format, const power_board_readings& readings) {
  const auto value = readings.*Member;
  if constexpr (std::floating_point<decltype(value)>) {
    snprintf(text, size, format, static_cast<double>(value));
  } else {
    snprintf(text, size, format, value);
  }
}

#pragma GCC diagnostic pop

struct reading_row {
  const char* key;
  const char* format;
  print_function print;
};

using r = power_board_readings;

constexpr reading_row kReadings[] = {
    {"pb_power_enable", "0x%02X", print<&r::power_enable>},
    {"pb_led_enable", "0x%02X", print<&r::led_enable>},
    {"pb_led_pwm", "%u", print<&r::led_pwm>},
    {"pb_board_revision", "%u", print<&r::board_revision>},
    {"pb_build_number", "%u", print<&r::build_number>},
    {"pb_status", "0x%02X", print<&r::status>},
    {"pb_local_time", "%u", print<&r::local_time>},
    {"pb_motor_command", "%u", print<&r::motor_command>},
    {"pb_motor_pwm", "%d", print<&r::motor_pwm>},
    {"pb_motor_duration", "%u", print<&r::motor_duration>},
    {"pb_bme280_pressure", "%u", print<&r::bme280_pressure>},
    {"pb_bme280_humidity", "%.2f", print<&r::bme280_humidity>},
    {"pb_bme280_temperature", "%.2f", print<&r::bme280_temperature>},
    {"pb_imu_gyroscope_0", "%.2f", print<&r::imu_gyroscope_0>},
    {"pb_imu_gyroscope_1", "%.2f", print<&r::imu_gyroscope_1>},
    {"pb_imu_gyroscope_2", "%.2f", print<&r::imu_gyroscope_2>},
    {"pb_imu_accelerometer_0", "%.3f", print<&r::imu_accelerometer_0>},
    {"pb_imu_accelerometer_1", "%.3f", print<&r::imu_accelerometer_1>},
    {"pb_imu_accelerometer_2", "%.3f", print<&r::imu_accelerometer_2>},
    {"pb_imu_magnetometer_0", "%d", print<&r::imu_magnetometer_0>},
    {"pb_imu_magnetometer_1", "%d", print<&r::imu_magnetometer_1>},
    {"pb_imu_magnetometer_2", "%d", print<&r::imu_magnetometer_2>},
    {"pb_imu_temperature", "%.2f", print<&r::imu_temperature>},
    {"pb_imu_sample_count", "%u", print<&r::imu_sample_count>},
    {"pb_status_period", "%u", print<&r::status_period>},
    {"pb_board_time", "%u", print<&r::board_time>},
    {"pb_up_time", "%u", print<&r::up_time>},
    {"pb_motor_time", "%u", print<&r::motor_time>},
    {"pb_camera_time", "%u", print<&r::camera_time>},
    {"pb_laser_time", "%u", print<&r::laser_time>},
    {"pb_led_time", "%u", print<&r::led_time>},
    {"pb_over_temperature_events", "%u", print<&r::over_temperature_events>},
    {"pb_under_temperature_events", "%u", print<&r::under_temperature_events>},
    {"pb_over_voltage_events", "%u", print<&r::over_voltage_events>},
    {"pb_under_voltage_events", "%u", print<&r::under_voltage_events>},
    {"pb_power_on_events", "%u", print<&r::power_on_events>},
    {"pb_monitor_vin_volts", "%.3f", print<&r::monitor_vin_volts>},
    {"pb_monitor_vin_amps", "%.3f", print<&r::monitor_vin_amps>},
    {"pb_monitor_vin_power", "%.3f", print<&r::monitor_vin_power>},
    {"pb_monitor_camera_volts", "%.3f", print<&r::monitor_camera_volts>},
    {"pb_monitor_camera_amps", "%.3f", print<&r::monitor_camera_amps>},
    {"pb_monitor_camera_power", "%.3f", print<&r::monitor_camera_power>},
    {"pb_monitor_motor_volts", "%.3f", print<&r::monitor_motor_volts>},
    {"pb_monitor_motor_amps", "%.3f", print<&r::monitor_motor_amps>},
    {"pb_monitor_motor_power", "%.3f", print<&r::monitor_motor_power>},
    {"pb_encoder_count_0", "%d", print<&r::encoder_count_0>},
    {"pb_encoder_count_1", "%d", print<&r::encoder_count_1>},
    {"pb_encoder_speed_0", "%d", print<&r::encoder_speed_0>},
    {"pb_encoder_speed_1", "%d", print<&r::encoder_speed_1>},
    {"pb_laser_distance", "%.3f", print<&r::laser_distance>},
    {"pb_laser_quality", "%u", print<&r::laser_quality>},
    {"pb_laser_error_code", "%u", print<&r::laser_error_code>},
    {"pb_laser_serial_number", "%u", print<&r::laser_serial_number>},
    {"pb_laser_software_version", "%u", print<&r::laser_software_version>},
    {"pb_laser_hardware_version", "%u", print<&r::laser_hardware_version>},
    {"pb_laser_sample_count", "%u", print<&r::laser_sample_count>},
    {"pb_checksum", "0x%04X", print<&r::checksum>},
    {"pb_motor_type", "%u", print<&r::motor_type>},
};

bool is_hex(std::string_view text) {
  return std::ranges::all_of(text, [](char c) { return isxdigit(static_cast<unsigned char>(c)) != 0; });
}

// A number in hexadecimal, with or without "0x".
std::optional<unsigned long> parse_register(std::string_view text) {
  if (text.starts_with("0x") || text.starts_with("0X")) text.remove_prefix(2);
  if (text.empty() || !is_hex(text)) return std::nullopt;
  return strtoul(text.data(), nullptr, 16);
}

struct write_data {
  uint8_t bytes[kWriteDataSize] = {};  // the first of them
  size_t length = 0;                   // as given: more than there is room for are refused as a whole
};

// Two digits a byte.
std::optional<write_data> parse_data(std::string_view text) {
  if (text.size() % 2 != 0 || !is_hex(text)) return std::nullopt;
  write_data data{.length = text.size() / 2};
  for (size_t i = 0; i < std::min(data.length, kWriteDataSize); ++i) {
    const char byte[] = {text[2 * i], text[2 * i + 1], '\0'};
    data.bytes[i] = static_cast<uint8_t>(strtoul(byte, nullptr, 16));
  }
  return data;
}

// False when a text is no register or no data, or the board refuses the write.
bool write_texts(std::string_view number_text, std::string_view data_text) {
  const std::optional<unsigned long> number = parse_register(number_text);
  const std::optional<write_data> data = parse_data(data_text);
  if (!number || !data) return false;
  trace(kTraceApi, "write pb reg %02lX %d", *number, static_cast<int>(data->length));
  for (size_t i = 0; i < std::min(data->length, kWriteDataSize); ++i)
    trace(kTraceApi, "write pb reg data[%d] %02X", static_cast<int>(i), data->bytes[i]);
  orb_power_board* board = power_board_now();
  return board != nullptr && *number <= UINT8_MAX &&
         orb_power_board_issue_write(board, static_cast<uint8_t>(*number), data->bytes,
                                     static_cast<uint32_t>(data->length)) == 0;
}

int get_readings(http_connection* connection) {
  power_board_readings readings;
  if (orb_power_board* board = power_board_now()) orb_power_board_load_registers(board, &readings);
  return send_object(connection, [&](json_object* answer) {
    for (const reading_row& row : kReadings) {
      char text[32];
      row.print(text, sizeof text, row.format, readings);
      add_text(answer, row.key, text);
    }
  });
}

int get_read_command(http_connection* connection) {
  const orb_power_board* board = power_board_now();
  const int command = board == nullptr ? 0 : orb_power_board_get_read_command(board);
  return send_number(connection, "read_command", command);
}

int put_read_command(http_connection* connection, json_object* body) {
  const std::optional<int> command = body_integer(body, "read_command");
  orb_power_board* board = power_board_now();
  if (command) trace(kTraceApi, "pb read command %d 0x%02X", *command, *command);
  if (!command || *command < 0 || *command > 0xFF || board == nullptr) return send_status(connection, false);
  orb_power_board_set_read_command(board, static_cast<uint8_t>(*command));
  return send_status(connection, true);
}

constexpr int kSuspended = 1;
constexpr int kResumed = 0;

int post_suspended(http_connection* connection, int suspended) {
  auto* const act = suspended != 0 ? orb_power_board_suspend_refresh : orb_power_board_resume_refresh;
  trace(kTraceApi, suspended != 0 ? "suspend pb" : "resume pb");
  orb_write_nv(kSettingPbSuspended, &suspended, sizeof suspended);
  if (orb_power_board* board = power_board_now()) act(board);
  return send_status(connection, true);
}

int post_trigger(http_connection* connection) {
  trace(kTraceApi, "trigger pb");
  if (orb_power_board* board = power_board_now()) orb_power_board_trigger_refresh(board);
  return send_status(connection, true);
}

int post_write(http_connection* connection, json_object* body) {
  const std::optional<std::string_view> number = text_member(body, "register");
  const std::optional<std::string_view> data = text_member(body, "data");
  if (!number || !data) return send_status(connection, false);
  trace(kTraceApi, "write pb '%s' '%s'", number->data(), data->data());
  return send_status(connection, write_texts(*number, *data));
}

int put_zero_buffer(http_connection* connection, json_object* body) {
  const int flag = body_flag(body, "zero_buffer").value_or(false) ? 1 : 0;
  trace(kTraceApi, "pb zero buffer %d", flag);
  if (orb_power_board* board = power_board_now()) orb_power_board_set_zero_buffer(board, flag);
  return send_status(connection, true);
}

constexpr http_path kPaths[] = {
    {"/api/power_board/readings", get<get_readings>},
    {"/api/power_board/read_command", get<get_read_command>, put<put_read_command>},
    {"/api/power_board/suspend", post<post_suspended, kSuspended>.in(store_lane)},
    {"/api/power_board/resume", post<post_suspended, kResumed>.in(store_lane)},
    {"/api/power_board/trigger", post<post_trigger>},
    {"/api/power_board/write", post<post_write>},
    {"/api/power_board/zero_buffer", put<put_zero_buffer>},
};

}  // namespace

constinit const route_group power_board_routes(kRows<kPaths, route_counts{.get = 2, .put = 2, .post = 4}>);
