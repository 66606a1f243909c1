// "/api/setup": what is set before an inspection.

#include <algorithm>
#include <cstring>
#include <ctime>
#include <iterator>
#include <optional>
#include <string>

#include "api/clock_setting.h"
#include "api/routes.h"
#include "base/clock.h"
#include "base/text.h"
#include "base/trace.h"
#include "http/response.h"
#include "power_board/lighting.h"
#include "recorder/gps.h"
#include "recorder/recorder.h"
#include "seats/seats.h"
#include "store/identity.h"
#include "store/settings.h"
#include "store/texts.h"

namespace {

// --- clock ---

struct clock_route {
  const char* key;
  const char* format;
  size_t size;  // of the body member's buffer
  std::optional<time_t> (*with)(time_t now, const char* text);
};

constexpr size_t kClockTextSize = 16;
constexpr clock_route kDate{"date", "%Y-%m-%d", 12, with_date};
constexpr clock_route kTime{"time", "%H:%M:%S", 10, with_time_of_day};

int get_clock(http_connection* connection, const clock_route& route) {
  const tm local = local_time(time(nullptr));
  char text[kClockTextSize];
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
  strftime(text, sizeof text, route.format, &local);
#pragma GCC diagnostic pop
  return send_text(connection, route.key, text);
}

int put_clock(http_connection* connection, json_object* body, const clock_route& route) {
  char text[kClockTextSize];
  if (!copy_body_text(body, route.key, text, route.size)) return send_status(connection, false);
  trace(kTraceApi, "%s '%s'", route.key, text);
  const std::optional<time_t> moment = route.with(time(nullptr), text);
  return send_status(connection, moment && set_clock(*moment));
}

// --- texts ---

constexpr size_t kRouteTextSize = 81;  // of the longest

struct text_route {
  const char* key;    // of the body, and of the answer
  const char* label;  // in the trace
  size_t size;        // of the buffer: longer texts are cut to size - 1 characters
  void (*load)(char* text, size_t size);
  int (*set)(const char* text);  // negative: refused
  bool is_optional = false;
};

// For a setter that refuses nothing; a request without the member stores nothing, and is answered "OK" all
// the same.
template <void (*Set)(const char* text)>
constexpr text_route optional_text(const char* key, const char* label, size_t size,
                                   void (*load)(char* text, size_t size)) {
  return {key, label, size, load, [](const char* text) { return Set(text), 0; }, true};
}

int get_text(http_connection* connection, const text_route& route) {
  char text[kRouteTextSize];
  route.load(text, sizeof text);
  return send_text(connection, route.key, text);
}

int put_text(http_connection* connection, json_object* body, const text_route& route) {
  char text[kRouteTextSize];
  if (!copy_body_text(body, route.key, text, route.size)) return send_status(connection, route.is_optional);
  trace(kTraceApi, "%s '%s'", route.label, text);
  return send_status(connection, route.set(text) >= 0);
}

constexpr text_route kTitle =
    optional_text<orb_set_recorder_title>("title", "title", 41, orb_load_recorder_title);
constexpr text_route kFlowDirection = optional_text<orb_set_recorder_flow_direction>(
    "flow_direction", "flow direction", 16, orb_load_recorder_flow_direction);
constexpr text_route kOperatorId = optional_text<orb_set_recorder_operator_id>(
    "operator_id", "operator id", 41, orb_load_recorder_operator_id);
constexpr text_route kFilename =
    optional_text<orb_set_recorder_filename>("filename", "filename", 81, orb_load_recorder_filename);

// --- place ---

constexpr text_route kGpsData{"gps_data", "gps data", 81, orb_load_recorder_gps_data,
                              orb_set_recorder_gps_data};
constexpr const char* kGpsKeys[] = {"gps_latitude", "gps_longitude", "gps_time"};

int get_gps_location(http_connection* connection) {
  char texts[3][kRouteTextSize];
  orb_load_recorder_gps_location(texts[0], kRouteTextSize, texts[1], kRouteTextSize, texts[2],
                                 kRouteTextSize);
  return send_object(connection, [&](json_object* answer) {
    for (size_t i = 0; i < std::size(kGpsKeys); ++i) add_text(answer, kGpsKeys[i], texts[i]);
  });
}

int put_gps_location(http_connection* connection, json_object* body) {
  char texts[3][kRouteTextSize];
  bool given = true;
  for (size_t i = 0; i < std::size(kGpsKeys); ++i)
    given = copy_body_text(body, kGpsKeys[i], texts[i], kRouteTextSize) && given;
  if (given) {
    trace(kTraceApi, "gps location '%s' '%s' '%s'", texts[0], texts[1], texts[2]);
    orb_set_recorder_gps_location(texts[0], texts[1], texts[2]);
  }
  return send_status(connection, true);
}

// --- Wi-Fi ---

char ssid[33] = "";  // HTTP server thread; nothing in the unit reads it but its route

void load_ssid(char* text, size_t size) { copy_text(text, size, ssid); }
void set_ssid(const char* text) { copy_text(ssid, sizeof ssid, text); }

constexpr text_route kSsid = optional_text<set_ssid>("ssid", "ssid", sizeof ssid, load_ssid);

int get_password(http_connection* connection) { return send_text(connection, "password", "ORB@NORK"); }

// What is given is only traced: nothing in the unit uses it, and the answer is the default on purpose.
int put_password(http_connection* connection, json_object* body) {
  char password[17];
  if (copy_body_text(body, "password", password, sizeof password)) {
    trace(kTraceApi, "password '%s'", password);
  }
  return send_status(connection, true);
}

// --- language and units: settings, read where they are used ---

constexpr const char* kLanguages[] = {"ENG", "FRA", "ESP"};  // the first is the default
constexpr size_t kLanguageSize = 8;

void load_language(char* text, size_t size) {
  char language[kLanguageSize];
  orb_read_nv(kSettingLanguage, language, sizeof language);
  copy_text(text, size, find_word(kLanguages, language) ? language : kLanguages[0]);
}

int set_language(const char* text) {
  if (!find_word(kLanguages, text)) return -1;
  char language[kLanguageSize] = "";
  copy_text(language, sizeof language, text);
  orb_write_nv(kSettingLanguage, language, sizeof language);
  return 0;
}

constexpr text_route kLanguage{"language", "language", kLanguageSize, load_language, set_language};

constexpr const char* kUnitSystems[] = {"metric", "english"};  // by the setting's number

void load_units(char* text, size_t size) {
  int units = 0;
  orb_read_nv(kSettingUnits, &units, sizeof units);
  copy_text(text, size, kUnitSystems[units == 1 ? 1 : 0]);
}

int set_units(const char* text) {
  const std::optional<int> units = find_word(kUnitSystems, text);
  if (!units) return -1;
  orb_write_nv(kSettingUnits, &*units, sizeof *units);
  return 0;
}

constexpr text_route kUnits{"units", "units", 16, load_units, set_units};

// --- battery ---

void load_battery_type(char* text, size_t size) {
  constexpr size_t kIdentitySize = 16;
  orb_load_supervisor_battery_type(text, std::min(size, kIdentitySize));
}

constexpr text_route kBatteryType{"battery_type", "battery type", 16, load_battery_type,
                                  orb_set_supervisor_battery_type};

// --- numbers, which go as texts ---

int get_observer_seats(http_connection* connection) {
  return send_text(connection, "observer_seats", std::to_string(observer_seats()));
}

int put_observer_seats(http_connection* connection, json_object* body) {
  const body_word word = body_text(body, "observer_seats").value_or(body_word{});
  const char digit = word.text[0];
  const bool good = digit >= '0' && digit <= '0' + kMaximumObservers && word.text[1] == '\0';
  if (good) {
    trace(kTraceApi, "observer seats '%s'", word.text);
    set_observer_seats(digit - '0');
  }
  return send_status(connection, good);
}

int get_save_delay(http_connection* connection) {
  return send_text(connection, "save_delay", std::to_string(orb_get_recorder_save_delay()));
}

int put_save_delay(http_connection* connection, json_object* body) {
  if (!json_object_is_type(body, json_type_object)) return send_status(connection, false);
  const int delay_ms = body_text_number(body, "save_delay").value_or(0);
  trace(kTraceApi, "save delay %d", delay_ms);
  return send_status(connection,
                     delay_ms >= 0 && orb_set_recorder_save_delay(static_cast<uint32_t>(delay_ms)) == 0);
}

int get_high_beam_time(http_connection* connection) {
  return send_text(connection, "high_beam_time", std::to_string(high_beam_time()));
}

int put_high_beam_time(http_connection* connection, json_object* body) {
  const int seconds = body_text_number(body, "high_beam_time").value_or(-1);
  trace(kTraceApi, "high beam time %d", is_high_beam_time(seconds) ? seconds : 0);
  return send_status(connection, set_high_beam_time(seconds) == 0);
}

constexpr http_path kPaths[] = {
    {"/api/setup/date", get<get_clock, kDate>, put<put_clock, kDate>},
    {"/api/setup/time", get<get_clock, kTime>, put<put_clock, kTime>},
    {"/api/setup/title", get<get_text, kTitle>, put<put_text, kTitle>.in(store_lane)},
    {"/api/setup/flow_direction", get<get_text, kFlowDirection>,
     put<put_text, kFlowDirection>.in(store_lane)},
    {"/api/setup/operator_id", get<get_text, kOperatorId>, put<put_text, kOperatorId>.in(store_lane)},
    {"/api/setup/filename", get<get_text, kFilename>, put<put_text, kFilename>},
    {"/api/setup/gps_data", get<get_text, kGpsData>, put<put_text, kGpsData>},
    {"/api/setup/gps_location", get<get_gps_location>, put<put_gps_location>},
    {"/api/setup/ssid", get<get_text, kSsid>, put<put_text, kSsid>},
    {"/api/setup/password", get<get_password>, put<put_password>},
    {"/api/setup/observer_seats", get<get_observer_seats>, put<put_observer_seats>.in(store_lane)},
    {"/api/setup/language", get<get_text, kLanguage>, put<put_text, kLanguage>.in(store_lane)},
    {"/api/setup/battery_type", get<get_text, kBatteryType>.in(files_lane),
     put<put_text, kBatteryType>.in(store_lane)},
    {"/api/setup/save_delay", get<get_save_delay>, put<put_save_delay>},
    {"/api/setup/high_beam_time", get<get_high_beam_time>, put<put_high_beam_time>.in(store_lane)},
    {"/api/setup/units", get<get_text, kUnits>, put<put_text, kUnits>.in(store_lane)},
};

}  // namespace

constinit const route_group setup_routes(kRows<kPaths, route_counts{.get = 16, .put = 16}>);
