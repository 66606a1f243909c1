#include "store/logger.h"

#include <ev.h>
#include <unistd.h>

#include <utility>

#include "base/file.h"
#include "base/mutex.h"
#include "base/paths.h"
#include "base/thread.h"
#include "base/trace.h"
#include "store/alternating_file.h"
#include "store/statistics.h"

namespace {

constexpr double kMinute_s = 60.0;

// A save holds files_lock, outermost, for as long as the disk takes; the main loop never takes it.
// logger_lock is never held meanwhile: who reports is the power board's thread, too, which has a motor to
// stop.
mutex files_lock;
alternating_file history_files GUARDED_BY(files_lock) = {{paths::kLoggerFile0, paths::kLoggerFile1}};
mutex logger_lock;
statistics numbers GUARDED_BY(logger_lock);
bool is_save_due GUARDED_BY(logger_lock) = false;
condition save_due;

ev_timer minute_timer;           // main loop
bool is_thread_missing = false;  // the system had none; main thread

void on_minute(struct ev_loop*, ev_timer*, int) { tick_logger(); }

void await_due_save() {
  const mutex_lock lock(logger_lock);
  while (!is_save_due) save_due.wait(logger_lock);
}

bool take_due_save() {
  const mutex_lock lock(logger_lock);
  return std::exchange(is_save_due, false);
}

void* logger_thread(void*) {
  for (;;) {
    await_due_save();
    save_logger_minute();
  }
}

void start_logger_thread() {
  is_thread_missing = start_detached_thread("logger", logger_thread, nullptr) != 0;
}

void make_logger_folder(const char* path) {
  if (make_missing_folder(path)) trace(kTraceLogger, "create '%s'", path);
}

statistics_set copy_history() {
  const mutex_lock lock(logger_lock);
  return numbers.history;
}

void store_history(int (*save)(alternating_file* files, json_object* values)) REQUIRES(files_lock) {
  const json_owner record = history_record(copy_history());
  const int result = record ? save(&history_files, record.get()) : -2;
  if (result == -2) return trace(kTraceLogger, "storage error");
  if (result != 0) return trace(kTraceLogger, "storage failure %d", result);
  trace(kTraceLogger, "stored %u to file %d", static_cast<unsigned>(history_files.current_id),
        history_files.live);
}

void set_numbers(const statistics& start) {
  const mutex_lock lock(logger_lock);
  numbers = start;
}

void report(statistics_counter counter) {
  const mutex_lock lock(logger_lock);
  count_event(numbers, counter);
}

void report(statistics_quantity quantity, double value) {
  const mutex_lock lock(logger_lock);
  add_sample(numbers, quantity, value);
}

}  // namespace

void orb_init_logger() {
  const mutex_lock lock(files_lock);
  trace(kTraceLogger, "init");
  make_logger_folder(paths::kLoggerFolder);
  make_logger_folder(paths::kUsbLogs);
  const json_owner record = load_alternating_file(&history_files);
  statistics start;
  if (record) start.history = parse_history(record.get());
  set_numbers(start);
  if (record) {
    return trace(kTraceLogger, "start %u from file %d", static_cast<unsigned>(history_files.current_id),
                 history_files.live);
  }
  // Neither could be read now. The files stay: they may be readable at the next start.
  trace(kTraceLogger, "reset historical");
  store_history(save_alternating_file);
}

void start_logger_timer(struct ev_loop* loop) {
  start_logger_thread();
  ev_timer_init(&minute_timer, on_minute, kMinute_s, kMinute_s);
  ev_timer_start(loop, &minute_timer);
}

void tick_logger() {
  if (is_thread_missing) start_logger_thread();
  const mutex_lock lock(logger_lock);
  step_minute(numbers);
  is_save_due = true;
  save_due.signal();
}

// The wish is taken under both locks: who comes second finds the save made, not only begun.
void save_logger_minute() {
  const mutex_lock lock(files_lock);
  if (take_due_save()) store_history(save_alternating_file);
}

int orb_reset_logger() {
  const mutex_lock lock(files_lock);
  trace(kTraceLogger, "reset historical");
  set_numbers({});
  store_history(restart_alternating_file);
  return 0;
}

void orb_check_logger_reset() {
  if (access(paths::kLoggerResetMark, F_OK) != 0) return;
  trace(kTraceLogger, "reset logger by usb");
  orb_reset_logger();
}

bool add_logger_texts(json_object* readings) {
  const mutex_lock lock(logger_lock);
  return add_statistics_texts(readings, numbers);
}

void orb_report_logger_height_motor_warning() { report(kHeightMotorWarnings); }
void orb_report_logger_tilt_motor_warning() { report(kTiltMotorWarnings); }
void orb_report_logger_pan_motor_warning() { report(kPanMotorWarnings); }
void orb_report_logger_high_temperature_warning() { report(kHighTemperatureWarnings); }
void orb_report_logger_high_pressure_warning() { report(kHighPressureWarnings); }
void orb_report_logger_high_humidity_warning() { report(kHighHumidityWarnings); }
void orb_report_logger_invalid_camera_cpu_temperature() { report(kInvalidCameraCpu); }
void orb_report_logger_invalid_camera_fpga_temperature() { report(kInvalidCameraFpga); }
void orb_report_logger_invalid_camera_lens_temperature() { report(kInvalidCameraLens); }

void orb_report_logger_up_temperature(double value) { report(kUpTemperature, value); }
void orb_report_logger_camera_cpu_temperature(double value) { report(kCameraCpuTemperature, value); }
void orb_report_logger_camera_fpga_temperature(double value) { report(kCameraFpgaTemperature, value); }
void orb_report_logger_camera_lens_temperature(double value) { report(kCameraLensTemperature, value); }
void orb_report_logger_psb_temperature(double value) { report(kPsbTemperature, value); }
void orb_report_logger_internal_humidity(double value) { report(kInternalHumidity, value); }
void orb_report_logger_internal_pressure(double value) { report(kInternalPressure, value); }
