// The handlers of "/api/setup" that no other subsystem owns, and of the unit's identity.

#include <algorithm>
#include <cstring>
#include <ctime>
#include <optional>

#include "api/clock_setting.h"
#include "api/status_routes.h"
#include "base/clock.h"
#include "base/text.h"
#include "base/trace.h"
#include "http/json_body.h"
#include "http/response.h"
#include "store/identity.h"
#include "store/settings.h"
#include "store/texts.h"
#include "supervisor/supervisor.h"
#include "supervisor/versions.h"

namespace {

constexpr char kPassword[] = "ORB@NORK";
constexpr size_t kIdentitySize = 16;
constexpr size_t kCameraVersionSize = 8;

// --- units and language: settings, read where they are used ---

constexpr int kEnglishUnits = 1;

void load_units(char* text, size_t size) {
  int units = 0;
  orb_read_nv(kSettingUnits, &units, sizeof units);
  copy_text(text, size, units == kEnglishUnits ? "english" : "metric");
}

int set_units(const char* text) {
  const int units = strcmp(text, "english") == 0 ? kEnglishUnits : 0;
  if (units != kEnglishUnits && strcmp(text, "metric") != 0) return -1;
  orb_write_nv(kSettingUnits, &units, sizeof units);
  return 0;
}

constexpr const char* kLanguages[] = {"ENG", "FRA", "ESP"};  // the first is the default
constexpr size_t kLanguageSize = 8;

bool is_language(const char* text) {
  for (const char* language : kLanguages) {
    if (strcmp(text, language) == 0) return true;
  }
  return false;
}

void load_language(char* text, size_t size) {
  char language[kLanguageSize];
  orb_read_nv(kSettingLanguage, language, sizeof language);
  copy_text(text, size, is_language(language) ? language : kLanguages[0]);
}

int set_language(const char* text) {
  if (!is_language(text)) return -1;
  char language[kLanguageSize] = "";
  copy_text(language, sizeof language, text);
  orb_write_nv(kSettingLanguage, language, sizeof language);
  return 0;
}

// --- Wi-Fi ---

char ssid[33] = "";  // HTTP server thread; nothing in the unit reads it but its route

void load_ssid(char* text, size_t size) { copy_text(text, size, ssid); }

int set_ssid(const char* text) {
  copy_text(ssid, sizeof ssid, text);
  return 0;
}

// --- clock and identity ---

int send_local_time(http_connection* connection, const char* key, const char* format) {
  const tm local = local_time(time(nullptr));
  char text[16];
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
  strftime(text, sizeof text, format, &local);
#pragma GCC diagnostic pop
  return send_member(connection, key, json_object_new_string(text));
}

// `size` is that of the body member's buffer.
int put_clock(http_connection* connection, const char* body, unsigned long length, const char* key,
              size_t size, std::optional<time_t> (*with)(time_t now, const char* text)) {
  const json_owner object = read_json_body(connection, body, length);
  char text[16];
  if (!copy_body_text(object.get(), key, text, size)) return send_status(connection, false);
  trace(kTraceApi, "%s '%s'", key, text);
  const std::optional<time_t> moment = with(time(nullptr), text);
  return send_status(connection, moment && set_clock(*moment));
}

void load_battery_type(char* text, size_t size) {
  orb_load_supervisor_battery_type(text, std::min(size, kIdentitySize));
}

int send_identity(http_connection* connection, const char* key, void (*load)(char* text, size_t size)) {
  char text[kIdentitySize];
  load(text, sizeof text);
  return send_member(connection, key, json_object_new_string(text));
}

}  // namespace

const text_route units_route{"units", "units", 16, load_units, set_units};
const text_route language_route{"language", "language", kLanguageSize, load_language, set_language};
const text_route battery_type_route{"battery_type", "battery type", 16, load_battery_type,
                                    orb_set_supervisor_battery_type};
const text_route ssid_route{"ssid", "ssid", sizeof ssid, load_ssid, set_ssid, true};

// What is given is only traced: nothing in the unit uses it, and the answer is the default on purpose.
int put_password(http_connection* connection, const char* body, unsigned long length, void*) {
  const json_owner object = read_json_body(connection, body, length);
  char password[17];
  if (copy_body_text(object.get(), "password", password, sizeof password)) {
    trace(kTraceApi, "password '%s'", password);
  }
  return send_status(connection, true);
}

int get_password(http_connection* connection, const char*, unsigned long, void*) {
  return send_member(connection, "password", json_object_new_string(kPassword));
}

int get_time(http_connection* connection, const char*, unsigned long, void*) {
  return send_local_time(connection, "time", "%H:%M:%S");
}

int put_time(http_connection* connection, const char* body, unsigned long length, void*) {
  return put_clock(connection, body, length, "time", 10, with_time_of_day);
}

int get_date(http_connection* connection, const char*, unsigned long, void*) {
  return send_local_time(connection, "date", "%Y-%m-%d");
}

int put_date(http_connection* connection, const char* body, unsigned long length, void*) {
  return put_clock(connection, body, length, "date", 12, with_date);
}

int get_model(http_connection* connection, const char*, unsigned long, void*) {
  return send_identity(connection, "model", orb_load_supervisor_model_name);
}

int get_serial_number(http_connection* connection, const char*, unsigned long, void*) {
  return send_identity(connection, "serial_number", orb_load_supervisor_serial_number);
}

int get_versions(http_connection* connection, const char*, unsigned long, void*) {
  char firmware[kIdentitySize];
  char camera[kCameraVersionSize];
  orb_load_supervisor_firmware_version(firmware, sizeof firmware);
  orb_load_supervisor_camera_version(camera, sizeof camera);
  return send_object(connection, [&](json_object* answer) {
    json_object_object_add(answer, "software_version", json_object_new_string(kSoftwareVersion));
    json_object_object_add(answer, "firmware_version", json_object_new_string(firmware));
    json_object_object_add(answer, "camera_version", json_object_new_string(camera));
  });
}
