#include "log_files/current_readings.h"

#include <cstdio>
#include <ctime>

#include "base/clock.h"
#include "base/text.h"
#include "store/identity.h"
#include "store/logger.h"
#include "supervisor/versions.h"

namespace {

void load_software_version(char* text, size_t size) { copy_text(text, size, kSoftwareVersion); }

bool add_identity(json_object* readings) {
  constexpr struct {
    const char* key;
    void (*load)(char* text, size_t size);
  } kTexts[] = {{"present_model", orb_load_supervisor_model_name},
                {"present_serial_number", orb_load_supervisor_serial_number},
                {"present_software_version", load_software_version},
                {"present_firmware_version", orb_load_supervisor_firmware_version},
                {"present_camera_version", orb_load_supervisor_camera_version},
                {"present_battery_voltage", orb_load_supervisor_battery_voltage}};
  bool good = true;
  for (const auto& [key, load] : kTexts) {
    char text[64];
    load(text, sizeof text);
    good &= add_json_member(readings, key, json_object_new_string(text));
  }
  return good;
}

bool add_time(json_object* readings) {
  const tm local = local_time(time(nullptr));
  char date[64];
  char clock[64];
  snprintf(date, sizeof date, "%04d-%02d-%02d", local.tm_year + 1900, local.tm_mon + 1, local.tm_mday);
  snprintf(clock, sizeof clock, "%02d:%02d:%02d", local.tm_hour, local.tm_min, local.tm_sec);
  return add_json_member(readings, "present_date", json_object_new_string(date)) &&
         add_json_member(readings, "present_time", json_object_new_string(clock));
}

}  // namespace

// Identity and time first: Redis may keep them waiting, the logger's lock must not.
json_owner orb_get_logger_current_readings() {
  json_owner readings(json_object_new_object());
  const bool good = readings && add_identity(readings.get()) && add_time(readings.get()) &&
                    add_logger_texts(readings.get());
  return good ? std::move(readings) : nullptr;
}
