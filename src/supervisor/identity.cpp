#include "supervisor/identity.h"

#include <cstdio>

#include "base/redis.h"
#include "base/text.h"
#include "camera/visca_thread.h"
#include "power_board/power_board.h"

namespace {

void load_identity(const char* key, char* text, size_t size) {
  if (!redis_get_text(key, text, size)) copy_text(text, size, "unknown");
}

}  // namespace

void orb_load_supervisor_model_name(char* text, size_t size) { load_identity("orb-model-name", text, size); }

void orb_load_supervisor_serial_number(char* text, size_t size) {
  load_identity("orb-serial-number", text, size);
}

void orb_load_supervisor_battery_type(char* text, size_t size) { load_identity("orb-battery", text, size); }

void orb_load_supervisor_firmware_version(char* text, size_t size) {
  power_board_readings readings;
  if (orb_power_board* board = power_board_now()) orb_power_board_load_registers(board, &readings);
  snprintf(text, size, "%02d.%02d", readings.board_revision, readings.build_number);
}

void orb_load_supervisor_camera_version(char* text, size_t size) {
  copy_text(text, size, "");
  const visca_camera* camera = visca_thread_data.camera;
  if (camera != nullptr) snprintf(text, size, "%04X", camera->rom_version.load());
}

void orb_load_supervisor_battery_voltage(char* text, size_t size) {
  copy_text(text, size, "");
  if (const orb_power_board* board = power_board_now()) {
    orb_power_board_load_battery_voltage(board, text, size);
  }
}
