// The power board's record and its operations that only queue work or copy readings.

#include "power_board/power_board.h"

#include <cstring>
#include <new>

#include "base/application.h"
#include "base/text.h"
#include "base/trace.h"
#include "power_board/work.h"
#include "store/identity.h"

// The two tables are the same on purpose; they are told apart by the battery type.
const battery_threshold_table orb_power_board_indepro_thresholds{19.5F, 18.5F, 17.5F, 16.5F};
const battery_threshold_table orb_power_board_dewalt_thresholds{19.5F, 18.5F, 17.5F, 16.5F};

constinit std::atomic<orb_power_board*> power_board_instance = nullptr;

namespace {

constexpr uint32_t kRegisterCount = 128;

constexpr size_t kBatteryTypeSize = 32;

int write_supplies(orb_power_board* board, int mask) {
  const uint8_t data[] = {static_cast<uint8_t>(mask | kPowerAlways)};
  return setter_result(board, queue_work(board, write_item(kPowerRegister, data)), __LINE__);
}

int switch_on(orb_power_board* board, uint8_t supply) {
  return write_supplies(board, current_readings(board).power_enable | supply);
}

int switch_off(orb_power_board* board, uint8_t supply) {
  return write_supplies(board, current_readings(board).power_enable & ~supply);
}

}  // namespace

int orb_power_board_init(orb_power_board* board, orb_application* application, int advanced) {
  trace(kTracePowerBoard, "init %d", advanced);
  std::destroy_at(board);
  new (board) orb_power_board;
  board->application = application;
  copy_text(board->program_name.data(), board->program_name.size(),
            application->program_name == nullptr ? "" : application->program_name);
  board->advanced = advanced;
  char battery_type[kBatteryTypeSize];
  orb_load_supervisor_battery_type(battery_type, sizeof battery_type);
  board->battery_thresholds = strcmp(battery_type, "Indipro") == 0 ? &orb_power_board_indepro_thresholds
                                                                   : &orb_power_board_dewalt_thresholds;
  if (advanced == 0) {
    const mutex_lock lock(board->motor_lock);
    board->motors.homing_state = kHomed;  // no mast
  }
  board->read_command = advanced != 0 ? kAdvancedReadCommand : kBasicReadCommand;
  board->read_length = advanced != 0 ? kAdvancedFrameLength : kBasicFrameLength;
  return 0;
}

int orb_power_board_issue_write(orb_power_board* board, uint8_t number, const uint8_t* data,
                                uint32_t length) {
  if (number >= kRegisterCount || length > kWriteDataSize) return -2;
  return queue_work(board, write_item(number, {data, length})) ? 0 : -1;
}

power_board_readings current_readings(orb_power_board* board) {
  const mutex_lock lock(board->readings_lock);
  return board->readings;
}

void orb_power_board_load_registers(orb_power_board* board, power_board_readings* destination) {
  *destination = current_readings(board);
}

uint8_t orb_power_board_get_read_command(const orb_power_board* board) { return board->read_command; }

void orb_power_board_set_read_command(orb_power_board* board, uint8_t command) {
  trace(kTracePowerBoard, "read command 0x%02X", command);
  board->read_command = command;
}

void orb_power_board_set_zero_buffer(orb_power_board* board, int flag) {
  trace(kTracePowerBoard, "zero buffer %d", flag);
  board->zero_buffer = static_cast<uint8_t>(flag);
}

void orb_power_board_signal_shutdown(orb_power_board* board) {
  const mutex_lock lock(board->queue_lock);
  if (board->stopping || board->shutdown_queued) return;
  board->shutdown_queued = board->queue.append({.kind = work_kind::signal_shutdown});
  board->queue_ready.signal();
}

int orb_power_board_get_board_type(orb_power_board* board) {
  return current_readings(board).status & kStatusExtended;
}

int orb_power_board_enable_camera_power(orb_power_board* board) { return switch_on(board, kPowerCamera); }

int orb_power_board_disable_camera_power(orb_power_board* board) { return switch_off(board, kPowerCamera); }

int orb_power_board_enable_laser_power(orb_power_board* board) { return switch_on(board, kPowerLaser); }

int orb_power_board_disable_laser_power(orb_power_board* board) { return switch_off(board, kPowerLaser); }
