// The operations on the drives, and how the machines' writes reach the board.

#include "power_board/motor.h"

#include <algorithm>
#include <cstdio>
#include <utility>

#include "base/clock.h"
#include "base/text.h"
#include "base/trace.h"
#include "power_board/link.h"
#include "power_board/work.h"
#include "store/units.h"

namespace {

constexpr int kPwmLimit = 100;
constexpr int kWildCount = 1'000'000'000;  // far outside all limits; differences of two still fit an int

// Height, in counts and inches.
constexpr double kCountsPerMm = 222.5;
constexpr double kRetracted_mm = 152.4;
constexpr double kExtension_mm = 609.6;
constexpr double kInchesPerMm = 0.03937007874015748;
constexpr double kCmPerInch = 2.54;

// Tilt jogs slow down as the zoom grows.
constexpr int kTiltFastest = 100;
constexpr int kTiltSlowest = 20;
constexpr float kTiltSlowestZoom = 30;
constexpr double kTiltSlope = 2.7586206896551726;

// Whether a jog that was accepted before has not reached the board yet.
bool jog_waits(orb_power_board* board) {
  const mutex_lock lock(board->queue_lock);
  return board->queue.has_motor_work();
}

int queue_motor_stop(orb_power_board* board) {
  return setter_result(board, queue_work(board, stop_item()), __LINE__);
}

// The line of a jog that is scaled.
int adjust_pwm(orb_power_board* board, int pwm) {
  if (orb_power_board_get_board_type(board) == 0) return pwm;
  const int scaled = scaled_pwm(pwm, true);
  trace(kTracePowerBoard, "pwm adjust %d %d", pwm, scaled);
  return scaled;
}

bool may_jog(orb_power_board* board, int command) {
  const mutex_lock lock(board->motor_lock);
  return request_jog(board->motors, command, !board->refresh_suspended);
}

void trace_lines(const motor_output& output) {
  for (const motor_line& line : output.lines()) trace(line.level, "%s", line.text.data());
}

// The writes of one refresh, in order. False when the drive has not been told to run as it should: no run
// goes out behind a speed that did not.
bool perform(orb_power_board* board, const motor_output& output) {
  trace_lines(output);
  for (const motor_write& write : output.writes()) {
    const work_item item = write_item(write.number, std::span(write.data).first(write.length));
    note_write(board, item);
    if (!write_register(board, item) && !is_motor_stop(item)) return false;
    if (is_motor_run(item)) board->run_ns = monotonic_ns();
  }
  return true;
}

}  // namespace

int orb_power_board_start_motor(orb_power_board* board, int command, int pwm, int duration) {
  if (board->overcurrent != 0 || !may_jog(board, command)) return -1;
  const int limited = std::clamp(pwm, -kPwmLimit, kPwmLimit);
  const motor_write speed = motor_speed_write(adjust_pwm(board, limited), duration);
  const uint8_t run[] = {static_cast<uint8_t>(command)};
  const bool taken = queue_jog(board, write_item(speed.number, speed.data), write_item(kMotorRegister, run));
  return setter_result(board, taken, __LINE__);
}

int orb_power_board_stop_motor(orb_power_board* board) {
  {
    const mutex_lock lock(board->motor_lock);
    if (!request_stop(board->motors)) return -1;
  }
  return queue_motor_stop(board);
}

void withdraw_motor_requests(orb_power_board* board) {
  {
    const mutex_lock lock(board->motor_lock);
    if (!withdraw_requests(board->motors)) return;
  }
  queue_motor_stop(board);
}

int orb_power_board_home_height(orb_power_board* board) {
  const mutex_lock lock(board->motor_lock);
  return !board->refresh_suspended && request_home(board->motors) ? 0 : -1;
}

void orb_power_board_set_height_extension(orb_power_board* board, int value) {
  trace(kTracePowerBoard, "extension %d", value);
  board->height_extension = value;
}

int orb_power_board_set_height_preset(orb_power_board* board, int preset) {
  trace(kTracePowerBoard, "preset %d", preset);
  std::optional<int> target;
  {
    const mutex_lock lock(board->motor_lock);
    motor_state& motors = board->motors;
    if (board->refresh_suspended) return -1;
    board->height_preset = preset;
    if (motors.motor_type != kMotorHeight || !is_homed(motors) || is_moving(motors)) return 0;
    if (preset == kPresetHome) {
      request_home(motors);
      return 0;
    }
    target = request_move(motors, preset);
  }
  trace(kTracePowerBoard, "offset %.1f", preset_steps(preset));
  if (target) trace(kTracePowerBoard, "move to %d", *target);
  return 0;
}

void orb_power_board_load_height(orb_power_board* board, char* text, size_t size) {
  copy_text(text, size, "");
  motor_state motors;
  {
    const mutex_lock lock(board->motor_lock);
    motors = board->motors;
  }
  if (motors.motor_type != kMotorHeight) return;
  if (is_homing(motors)) return copy_text(text, size, "HOMING");
  if (is_moving(motors)) return copy_text(text, size, "SETTING");
  double mm = (motors.home_count - motors.position) / kCountsPerMm + kRetracted_mm;
  if (board->height_extension != 0) mm += kExtension_mm;
  const double inches = mm * kInchesPerMm;
  const bool imperial = in_feet();
  char height[32];
  snprintf(height, sizeof height, "%.1f %s", imperial ? inches : inches * kCmPerInch, imperial ? "in" : "cm");
  copy_text(text, size, height);
}

int tilt_jog_pwm(float zoom_ratio) {
  if (zoom_ratio > kTiltSlowestZoom) return kTiltSlowest;
  if (zoom_ratio < 1) return kTiltFastest;
  return static_cast<int>((1.0 - static_cast<double>(zoom_ratio)) * kTiltSlope + kTiltFastest);
}

void stop_motors(orb_power_board* board, const char* reason) {
  motor_output output;
  {
    const mutex_lock lock(board->motor_lock);
    end_motors(board->motors, reason, output);
  }
  perform(board, output);
}

void run_motors(orb_power_board* board, const power_board_readings& readings) {
  const int64_t now = monotonic_ns();
  const motor_timing timing = judge_motor_times(now, std::exchange(board->motors_ns, now), board->run_ns);
  motor_sample sample{.reported_type = readings.motor_type,
                      .encoder = std::clamp(readings.encoder_count_1, -kWildCount, kWildCount),
                      .amps = readings.monitor_motor_amps,
                      .overcurrent = board->overcurrent != 0,
                      .extended = (readings.status & kStatusExtended) != 0,
                      .late = timing.late,
                      .due = timing.due,
                      .disturbed = std::exchange(board->motors_disturbed, false)};
  motor_output output;
  {
    const mutex_lock lock(board->motor_lock);
    sample.jog_waiting = board->motors.requests.home && jog_waits(board);
    step_motors(board->motors, sample, output);
  }
  if (!perform(board, output)) stop_motors(board, "write failed");
}
