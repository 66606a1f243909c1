// The operations on the drives, and how the machines' writes reach the board.

#include "power_board/motor.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>

#include "app/trace.h"
#include "base/text.h"
#include "power_board/internal.h"
#include "store/settings.h"

namespace {

constexpr int kPwmLimit = 100;
constexpr int kWildCount = 1'000'000'000;  // far outside all limits; differences of two still fit an int

// Height, in counts and inches. A preset is the height in inches; 6 is the retracted one.
constexpr float kPresetScale = 0.5F;        // steps of 2 inches an inch of preset
constexpr double kCountsPerStep = 11303.0;  // 50.8 mm
constexpr double kSmallestMove = 2825.75;
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

bool is_moving(const motor_state& motors) {
  return motors.move_state.load(std::memory_order_acquire) != kMoveIdle;
}

bool is_homed(const motor_state& motors) { return motors.homing_state == kHomed; }

speed_register last_written_speed(orb_power_board* board) {
  const mutex_lock lock(board->queue_lock);
  return board->speed;
}

// Whether the speed register holds this speed: by what was last queued for it, or else by its reading.
bool has_speed(orb_power_board* board, const motor_write& wanted) {
  const speed_register speed = last_written_speed(board);
  if (speed.written) return speed.length == wanted.length && speed.data == wanted.data;
  // Only now: readings that were loaded before may be older than a write that has been forgotten since.
  power_board_readings readings;
  orb_power_board_load_registers(board, &readings);
  return motor_speed_write(readings.motor_pwm, readings.motor_duration).data == wanted.data;
}

// Whether a jog that was accepted before has not reached the board yet.
bool jog_waits(orb_power_board* board) {
  if (board->motors.homing_requested == 0) return false;  // nobody asks
  const mutex_lock lock(board->queue_lock);
  return board->queue.has_motor_work();
}

bool is_extended(orb_power_board* board) { return orb_power_board_get_board_type(board) != 0; }

int queue_motor_stop(orb_power_board* board) {
  const uint8_t stop[] = {kMotorStop};
  if (queue_work(board, write_item(kMotorRegister, stop))) return 0;
  report_refused_write(board, __LINE__);
  return -1;
}

// Asks for a homing where an unhomed mast is jogged. True when the jog may go on.
bool may_jog(motor_state& motors, int command) {
  const bool moving = is_moving(motors);
  if (moving) motors.move_cancel = 1;
  if (!moving && is_homed(motors)) return true;
  if (command == kMotorRunTilt && motors.homing_requested == 0) return true;
  motors.homing_requested = 1;
  return false;
}

}  // namespace

int orb_power_board_start_motor(orb_power_board* board, int command, int pwm, int duration) {
  if (board->overcurrent != 0) return -1;
  if (!may_jog(board->motors, command)) return -1;
  const int limited = std::clamp(pwm, -kPwmLimit, kPwmLimit);
  const motor_write speed =
      motor_speed_write(adjust_pwm(kTracePowerBoard, limited, is_extended(board)), duration);
  const uint8_t run[] = {static_cast<uint8_t>(command)};
  const work_item items[] = {write_item(speed.number, speed.data), write_item(kMotorRegister, run)};
  const bool same = has_speed(board, speed);
  if (queue_work(board, same ? std::span(items).subspan(1) : std::span(items))) return 0;
  report_refused_write(board, __LINE__);
  return -1;
}

int orb_power_board_stop_motor(orb_power_board* board) {
  motor_state& motors = board->motors;
  if (is_moving(motors)) {
    motors.move_cancel = 1;
    if (motors.homing_requested != 0) return -1;
  } else if (!is_homed(motors) && motors.homing_requested != 0) {
    return -1;
  }
  return queue_motor_stop(board);
}

void withdraw_motor_requests(orb_power_board* board) {
  motor_state& motors = board->motors;
  const bool moving = is_moving(motors);
  if (moving) motors.move_cancel = 1;
  const bool homing = !is_homed(motors) && motors.homing_requested.exchange(0) != 0;
  if (moving || homing) queue_motor_stop(board);
}

int orb_power_board_home_height(orb_power_board* board) {
  motor_state& motors = board->motors;
  if (motors.motor_type != kMotorHeight) return -1;
  motors.homing_state = kHomingIdle;
  motors.homing_requested = 1;
  return 0;
}

void orb_power_board_set_height_extension(orb_power_board* board, int value) {
  trace(kTracePowerBoard, "extension %d", value);
  board->motors.height_extension = value;
}

void orb_power_board_set_height_preset(orb_power_board* board, int preset) {
  motor_state& motors = board->motors;
  trace(kTracePowerBoard, "preset %d", preset);
  motors.height_preset = preset;
  if (motors.motor_type != kMotorHeight || !is_homed(motors) || is_moving(motors)) return;
  if (preset == kPresetHome) {
    motors.homing_state = kHomingIdle;
    motors.homing_requested = 1;
    return;
  }
  const float offset = static_cast<float>(preset - kPresetHome) * kPresetScale;
  trace(kTracePowerBoard, "offset %.1f", static_cast<double>(offset));
  const int target = motors.home_count - static_cast<int>(offset * kCountsPerStep);
  if (std::abs(static_cast<double>(motors.position) - target) <= kSmallestMove) return;
  trace(kTracePowerBoard, "move to %d", target);
  motors.target = target;
  motors.stable_count = 0;
  motors.resample_count = 0;
  motors.move_cancel = 0;
  motors.move_state.store(kMoveStart, std::memory_order_release);
}

void orb_power_board_load_height(orb_power_board* board, char* text, size_t size) {
  const motor_state& motors = board->motors;
  copy_text(text, size, "");
  if (motors.motor_type != kMotorHeight) return;
  if (!is_homed(motors) && motors.homing_requested != 0) return copy_text(text, size, "HOMING");
  if (is_moving(motors)) return copy_text(text, size, "SETTING");
  double mm = (motors.home_count - motors.position) / kCountsPerMm + kRetracted_mm;
  if (motors.height_extension != 0) mm += kExtension_mm;
  const double inches = mm * kInchesPerMm;
  // Asked for on the main loop, too, which does not wait for a save: until it is done the last units hold.
  static std::atomic<int> units = 1;
  int now = 0;
  if (try_read_nv(kSettingUnits, &now, sizeof now)) units = now;
  const bool imperial = units == 1;
  char height[32];
  snprintf(height, sizeof height, "%.1f %s", imperial ? inches : inches * kCmPerInch, imperial ? "in" : "cm");
  copy_text(text, size, height);
}

int tilt_jog_pwm(float zoom_ratio) {
  if (zoom_ratio > kTiltSlowestZoom) return kTiltSlowest;
  if (zoom_ratio < 1) return kTiltFastest;
  return static_cast<int>((1.0 - static_cast<double>(zoom_ratio)) * kTiltSlope + kTiltFastest);
}

void run_motors(orb_power_board* board, const power_board_readings& readings) {
  const motor_sample sample{.reported_type = readings.motor_type,
                            .encoder = std::clamp(readings.encoder_count_1, -kWildCount, kWildCount),
                            .amps = readings.monitor_motor_amps,
                            .overcurrent = board->overcurrent != 0,
                            .extended = (readings.status & kStatusExtended) != 0,
                            .jog_waiting = jog_waits(board)};
  motor_writes writes;
  step_motors(board->motors, sample, writes);
  for (const motor_write& write : writes.all()) {
    const work_item item = write_item(write.number, std::span(write.data).first(write.length));
    note_speed_write(board, item);
    write_register(board, item);
  }
}
