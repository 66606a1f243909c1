// The laser range finder: modes, and which reading the operator is shown.

#include "power_board/laser.h"

#include "osd/osd.h"
#include "power_board/power_board.h"
#include "store/units.h"

namespace {

constexpr double kShortest_m = 0.05;  // up to here a reading is none

constexpr int kLaserOff = 0;
constexpr int kLaserManual = 1;
constexpr int kLaserPicture = 2;
constexpr int kLaserAuto = 3;

// The reading first: the overlay, on the main loop, must not show the one before.
void show(double metres) {
  orb_set_osd_laser_reading(static_cast<float>(metres));
  orb_set_osd_item(kOsdLaser, 1);
}

void hide() {
  if (orb_get_osd_item(kOsdLaser) != 0) orb_set_osd_item(kOsdLaser, 0);
}

// A trigger waits while readings are invalid; a clear waits for the trigger.
void show_on_trigger(laser_state& laser, bool valid) {
  if (laser.trigger != 0 && valid) {
    laser.trigger = 0;
    show(laser.distance);
  }
  if (laser.trigger == 0 && laser.clear != 0) {
    laser.clear = 0;
    hide();
  }
}

void show_new(laser_state& laser, bool valid) {
  const double distance = laser.distance;
  if (!valid || distance == laser.shown) return;
  show(distance);
  laser.shown = distance;
}

}  // namespace

int orb_power_board_set_laser_mode(orb_power_board* board, int mode) {
  if (mode < kLaserOff || mode > kLaserAuto) return 0;
  if (mode == kLaserAuto) board->laser.shown = -1.0;  // the next valid reading is a new one
  mode == kLaserOff ? orb_power_board_disable_laser_power(board) : orb_power_board_enable_laser_power(board);
  board->laser.mode = mode;
  return 0;
}

void orb_power_board_set_laser_speed(orb_power_board* board, int speed) { board->laser.speed = speed; }

int orb_power_board_trigger_laser_reading(orb_power_board* board) {
  const int mode = board->laser.mode;
  if (mode != kLaserManual && mode != kLaserPicture) return -1;
  board->laser.clear = 0;  // an older one is not for this reading
  board->laser.trigger = 1;
  return 0;
}

int orb_power_board_clear_laser_reading(orb_power_board* board) {
  if (board != nullptr) board->laser.clear = 1;
  return 0;
}

distance_text load_laser_distance(const orb_power_board* board) {
  if (board == nullptr || board->laser.invalid_count != 0) return {};
  const bool feet = in_feet();
  return format_distance(in_units(board->laser.distance, feet), feet);
}

void update_laser(orb_power_board* board, const power_board_readings& readings) {
  laser_state& laser = board->laser;
  const bool valid = readings.laser_distance > kShortest_m;
  if (valid) {
    laser.distance = readings.laser_distance;
    laser.invalid_count = 0;
  } else {
    ++laser.invalid_count;
  }
  const int mode = laser.mode;
  if (mode == kLaserOff) return hide();
  if (mode == kLaserAuto) return show_new(laser, valid);
  show_on_trigger(laser, valid);
}
