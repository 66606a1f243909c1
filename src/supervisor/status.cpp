#include "supervisor/status.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <limits>
#include <numbers>

#include "base/file.h"
#include "base/mutex.h"
#include "base/paths.h"
#include "base/redis_exchange.h"
#include "base/text.h"
#include "base/trace.h"
#include "base/value_file.h"
#include "heading/direction.h"
#include "heading/heading.h"
#include "power_board/power_board.h"
#include "recorder/recorder.h"
#include "store/identity.h"
#include "store/logger.h"
#include "supervisor/camera_ping.h"
#include "supervisor/encoder_poll.h"
#include "supervisor/shutdown.h"
#include "supervisor/usb_store.h"
#include "usb/stick.h"

namespace {

// Above, or below, in °C.
constexpr double kShutdownAbove = 89.0;
constexpr double kHotAbove = 88.0;
constexpr double kWarmAbove = 80.0;
constexpr double kColdBelow = -5.0;
constexpr double kFreezingBelow = 0.0;

constexpr uint64_t kAssumedRate_kb_s = 1000;   // while no take tells a better one
constexpr int64_t kLongestTime_s = 3'599'999;  // what "999:59:59" can show

constexpr double kDegreesPerRadian = 180 / std::numbers::pi;

mutex status_lock;
supervisor_values status GUARDED_BY(status_lock);

// Main loop.
take_rate running_take;
redis_exchange battery_question;
char battery[sizeof(supervisor_values::battery)] = "unknown";  // as Redis has told last

// The highest of what is known, or the lowest.
struct temperature_range {
  double lowest = std::numeric_limits<double>::infinity();
  double highest = -std::numeric_limits<double>::infinity();
  void add(double value) {
    if (std::isnan(value)) return;
    lowest = std::min(lowest, value);
    highest = std::max(highest, value);
  }
};

int64_t seconds_left(uint64_t free_kb, uint64_t limit_kb, uint64_t rate_kb_s) {
  const uint64_t usable_kb = free_kb - std::min(free_kb, limit_kb);
  return std::min(static_cast<int64_t>(usable_kb / rate_kb_s), kLongestTime_s);
}

template <size_t Size>
void put_duration(char (&text)[Size], int64_t seconds) {
  snprintf(text, Size, "%02d:%02d:%02d", static_cast<int>(seconds / 3600),
           static_cast<int>(seconds / 60 % 60), static_cast<int>(seconds % 60));
}

void read_processor(supervisor_values* values) {
  double sum = 0;
  for (int core = 0; core < 4; ++core) {
    char path[96];
    snprintf(path, sizeof path, "/sys/devices/platform/coretemp.0/hwmon/hwmon1/temp%d_input", core + 2);
    values->core_temperature[core] = read_value_file(path).value_or(0) * 0.001;
    sum += values->core_temperature[core];
  }
  values->processor_temperature = sum * 0.25;
}

void read_board(supervisor_values* values) {
  orb_power_board* board = power_board_now();
  if (board == nullptr || !board->has_frame) return;
  power_board_readings readings;
  orb_power_board_load_registers(board, &readings);
  values->supply_volts = readings.monitor_vin_volts;
  values->board_temperature = readings.bme280_temperature;
  snprintf(values->tilt_angle, sizeof values->tilt_angle, "%.0f°",
           tilt_angle(readings.imu_accelerometer_0, readings.imu_accelerometer_2));
  orb_load_heading(readings.imu_magnetometer_0, readings.imu_magnetometer_1, readings.imu_magnetometer_2,
                   values->direction, sizeof values->direction, readings.imu_accelerometer_0,
                   readings.imu_accelerometer_1, readings.imu_accelerometer_2);
  orb_power_board_load_battery_level(board, values->battery_level, sizeof values->battery_level);
  copy_text(values->motor_type, sizeof values->motor_type, motor_type_text(readings.motor_type));
  if (readings.motor_type == kMotorHeight)
    orb_power_board_load_height(board, values->height, sizeof values->height);
}

// A recorder of another program counts, too.
void read_recorder(supervisor_values* values) {
  values->recording = orb_get_recorder_recording() != 0 || read_value_file(paths::kRecording) == 1;
  values->paused = orb_get_recorder_paused() != 0 || read_value_file(paths::kPaused) == 1;
  values->post_processing = orb_get_recorder_post_processing();
  const free_stores free{orb_get_recorder_emmc_kb(), orb_get_recorder_usb_kb()};
  values->emmc_kb = static_cast<int64_t>(free.emmc_kb);
  values->usb_kb = static_cast<int64_t>(free.usb_kb);
  snprintf(values->usb_percent, sizeof values->usb_percent, "%d%%", usb_store_percent());
  step_take_rate(&running_take, orb_get_recorder_recording() != 0, orb_get_recorder_paused() != 0,
                 recorder_take_kb());
  tell_remaining_times(free, running_take, values);
}

void read_texts(supervisor_values* values) {
  copy_text(values->battery, sizeof values->battery, battery);
  const std::string said = read_first_line(paths::kUpdateStatus, sizeof values->update_status).value_or("");
  copy_text(values->update_status, sizeof values->update_status, said.substr(0, said.find('\n')));
  copy_text(values->update_status, sizeof values->update_status, as_utf8(values->update_status));
  const encoder_report encoder = last_encoder_report();
  values->camera = encoder.temperatures;
  for (size_t i = 0; i < encoder.channels.size(); ++i) {
    copy_text(values->channel[i], sizeof values->channel[i], encoder.channels[i]);
  }
  orb_load_supervisor_software_version(values->version, sizeof values->version);
  values->version[strcspn(values->version, "\r\n")] = '\0';
}

// Into the record of this second, too.
void take_battery_type(const redisReply* reply) {
  const bool is_told = reply != nullptr && reply->type == REDIS_REPLY_STRING;
  copy_text(battery, sizeof battery, is_told ? std::string_view(reply->str, reply->len) : "unknown");
  copy_text(battery, sizeof battery, as_utf8(battery));
  const mutex_lock lock(status_lock);
  copy_text(status.battery, sizeof status.battery, battery);
}

void ask_battery_type() {
  if (begin_redis_exchange(&battery_question, take_battery_type)) {
    add_redis_command(&battery_question, "GET orb-battery");
  } else {
    take_battery_type(nullptr);
  }
}

void warn(supervisor_values* values) {
  const double board = values->board_temperature;
  const double processor = values->processor_temperature;
  const camera_temperatures& camera = values->camera;
  temperature_warnings& warnings = *values;
  warnings = judge_temperatures(board, processor, camera);
  if (warnings.camera_overheated) {
    trace(kTraceSupervisor, "camera temp shutdown %0.1f %0.1f %0.1f", camera.fpga.value, camera.lens.value,
          camera.cpu.value);
  }
  if (warnings.shutdown) trace(kTraceSupervisor, "temp shutdown %0.1f %0.1f", board, processor);
  if (warnings.warm) orb_report_logger_high_temperature_warning();
  orb_report_logger_up_temperature(processor);
  if (!std::isnan(board)) orb_report_logger_psb_temperature(board);
}

void publish(const supervisor_values& values) {
  const mutex_lock lock(status_lock);
  status = values;
}

}  // namespace

temperature_warnings judge_temperatures(double board, double processor, const camera_temperatures& camera) {
  temperature_range unit;
  unit.add(board);
  unit.add(processor);
  temperature_range head;
  for (const camera_temperature& one : {camera.lens, camera.fpga, camera.cpu}) {
    if (one.valid) head.add(one.value);
  }
  const double lowest = std::min(unit.lowest, head.lowest);
  const double highest = std::max(unit.highest, head.highest);
  return {
      .cold =
          lowest<kColdBelow, .freezing = lowest<kFreezingBelow, .warm = highest> kWarmAbove, .hot = highest>
              kHotAbove,
      .shutdown = unit.highest > kShutdownAbove,
      .camera_overheated = head.highest > kShutdownAbove};
}

double tilt_angle(double axis_0, double axis_2) {
  if (axis_0 == 0) return axis_2 < 0 ? -90 : 90;
  const double degrees = std::round(std::atan(axis_2 / axis_0) * kDegreesPerRadian);
  return degrees == 0 ? 0 : degrees;  // never "-0"
}

void step_take_rate(take_rate* rate, bool recording, bool paused, uint64_t take_kb) {
  if (!recording || take_kb == 0) {
    *rate = {};
  } else if (!rate->started) {
    *rate = {.started = true, .first_kb = take_kb, .last_kb = take_kb};
  } else if (!paused) {
    rate->last_kb = take_kb;
    ++rate->seconds;
  }
}

void tell_remaining_times(const free_stores& free, const take_rate& rate, supervisor_values* values) {
  const bool is_measured = rate.seconds > 0 && rate.last_kb > rate.first_kb;
  const uint64_t measured = is_measured ? (rate.last_kb - rate.first_kb) / uint64_t(rate.seconds) : 0;
  const uint64_t rate_kb_s = measured != 0 ? measured : kAssumedRate_kb_s;
  const int64_t storage_s = seconds_left(free.usb_kb, kLowUsb_kb, rate_kb_s);
  const int64_t recording_s = std::min(storage_s, seconds_left(free.emmc_kb, kLowEmmc_kb, rate_kb_s));
  put_duration(values->storage_time, storage_s);
  put_duration(values->recording_time, recording_s);
  const bool is_completing = values->post_processing != 0;
  snprintf(values->time_remaining, sizeof values->time_remaining, is_completing ? "%d %%" : "%d MIN",
           is_completing ? values->post_processing : static_cast<int>(recording_s / 60));
}

void step_status() {
  supervisor_values values;
  read_texts(&values);
  read_board(&values);
  read_recorder(&values);
  const stick_state stick = usb_stick_now();
  values.update_available = stick.update_available;
  copy_text(values.external_usb, sizeof values.external_usb, stick_text(stick));
  values.camera_reachable = is_camera_reachable();
  read_processor(&values);
  warn(&values);
  publish(values);
  set_supervisor_direction(values.direction);
  ask_battery_type();
  if (!values.shutdown) return;
  trace(kTraceSupervisor, "need shutdown");
  orb_trigger_supervisor_shutdown(kShutdownTemperature);
}

void reset_status() {
  load_release();
  const mutex_lock lock(status_lock);
  status = {};
}

void orb_load_supervisor_values(supervisor_values* values) {
  {
    const mutex_lock lock(status_lock);
    *values = status;
  }
  values->camera = last_encoder_report().temperatures;
}
