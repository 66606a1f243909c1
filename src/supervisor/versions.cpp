#include "supervisor/versions.h"

#include <cstdio>

#include "base/text.h"
#include "power_board/power_board.h"
#include "visca/camera_thread.h"

void orb_load_supervisor_firmware_version(char* text, size_t size) {
  power_board_readings readings;
  if (orb_power_board* board = power_board_now()) orb_power_board_load_registers(board, &readings);
  char version[16];
  snprintf(version, sizeof version, "%02d.%02d", readings.board_revision, readings.build_number);
  copy_text(text, size, version);
}

void orb_load_supervisor_camera_version(char* text, size_t size) {
  const visca_camera* camera = visca_thread_data.camera;
  char version[8] = "";
  if (camera != nullptr) snprintf(version, sizeof version, "%04X", camera->rom_version.load());
  copy_text(text, size, version);
}

void orb_load_supervisor_battery_voltage(char* text, size_t size) {
  copy_text(text, size, "");
  if (const orb_power_board* board = power_board_now()) {
    orb_power_board_load_battery_voltage(board, text, size);
  }
}
