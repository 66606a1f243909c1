// The unit as a whole: its identity and versions, and "/api/status", the one object that the operator's
// display polls. Of each source that takes one copy, and no two locks at once.

#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <span>

#include "api/forced_warnings.h"
#include "api/lens_speeds.h"
#include "api/routes.h"
#include "base/paths.h"
#include "camera/depth_of_field.h"
#include "camera/image_settings.h"
#include "camera/modes.h"
#include "camera/zoom_values.h"
#include "http/response.h"
#include "power_board/lighting.h"
#include "power_board/power_board.h"
#include "seats/seats.h"
#include "store/identity.h"
#include "store/units.h"
#include "supervisor/supervisor.h"
#include "supervisor/versions.h"
#include "visca/camera_thread.h"

namespace {

// Where the lenses are and what that means, kept as long as they and the units stay.
struct lens_state {
  int focus_position = -1;
  int zoom_position = -1;
  bool feet = false;
  depth_of_field depth;
  char zoom_magnification[16] = "";
};

const lens_state& load_lenses() {
  static lens_state kept;  // HTTP thread
  static bool is_current = false;
  const visca_camera* camera = visca_thread_data.camera;
  const int focus = camera == nullptr ? -1 : static_cast<int>(camera->focus_position.load());
  const int zoom = camera == nullptr ? -1 : static_cast<int>(camera->zoom_position.load());
  const bool feet = in_feet();
  if (is_current && kept.focus_position == focus && kept.zoom_position == zoom && kept.feet == feet)
    return kept;
  kept.focus_position = focus;
  kept.feet = feet;
  kept.depth = load_depth_of_field(focus);
  orb_load_camera_zoom_values(&kept.zoom_position, nullptr, kept.zoom_magnification,
                              sizeof kept.zoom_magnification);
  is_current = in_feet() == feet;
  return kept;
}

// What the members are made of.
struct unit_state {
  supervisor_values values;
  orb_power_board* board = power_board_now();  // may be null
  lighting_values lighting = load_lighting();
  lens_speeds speeds = load_lens_speeds();
  const lens_state& lens = load_lenses();

  unit_state() { orb_load_supervisor_values(&values); }
};

using v = supervisor_values;
using b = orb_power_board;

// A member's value, appended to the answer.
using value_writer = void (*)(std::string* json, const unit_state& unit);

void add_string(std::string* json, const char* text) { append_json_string(json, text); }
void add_boolean(std::string* json, bool is_on) { json->append(is_on ? "true" : "false"); }

void add_integer(std::string* json, int64_t value) {
  char text[24];
  json->append(text, std::to_chars(text, std::end(text), value).ptr);
}

// JSON has no number for what is not known; nor is one that is cut one.
void add_decimal(std::string* json, double value, int decimals) {
  char text[32];
  const bool is_whole = snprintf(text, sizeof text, "%.*f", decimals, value) < int{sizeof text};
  json->append(std::isfinite(value) && is_whole ? text : "null");
}

// --- members of the status record ---

template <auto Member>
void text(std::string* json, const unit_state& unit) {
  add_string(json, unit.values.*Member);
}

template <size_t Channel>
void channel(std::string* json, const unit_state& unit) {
  add_string(json, unit.values.channel[Channel]);
}

template <auto Member>
void flag(std::string* json, const unit_state& unit) {
  add_boolean(json, unit.values.*Member != 0);
}

template <auto Member>
void integer(std::string* json, const unit_state& unit) {
  add_integer(json, unit.values.*Member);
}

template <auto Member>
void one_decimal(std::string* json, const unit_state& unit) {
  add_decimal(json, unit.values.*Member, 1);
}

template <size_t Core>
void core(std::string* json, const unit_state& unit) {
  add_decimal(json, unit.values.core_temperature[Core], 1);
}

template <auto Member>
void of_camera(std::string* json, const unit_state& unit) {
  const camera_temperature& temperature = unit.values.camera.*Member;
  add_decimal(json, temperature.valid ? temperature.value : NAN, 2);
}

// --- lights, laser, camera ---

void led_intensity(std::string* json, const unit_state& unit) {
  const lighting_values& lights = unit.lighting;
  if (lights.high_beam_seconds > 0) {
    char text[16];
    snprintf(text, sizeof text, "%d s", lights.high_beam_seconds);
    return add_string(json, text);
  }
  const bool is_fixed = strcmp(lights.mode, "off") == 0 || strcmp(lights.mode, "strip") == 0;
  add_string(json, is_fixed ? "" : load_led_intensity().text);
}

void camera_type(std::string* json, const unit_state& unit) {
  if (unit.board == nullptr) return add_string(json, "unknown");
  add_string(json, orb_power_board_get_board_type(unit.board) == 0 ? "basic" : "advanced");
}

template <camera_mode (*Kept)()>
void mode(std::string* json, const unit_state&) {
  add_string(json, mode_text(Kept()));
}

void focus_speed(std::string* json, const unit_state& unit) { add_integer(json, unit.speeds.focus); }
void zoom_speed(std::string* json, const unit_state& unit) { add_integer(json, unit.speeds.zoom); }

void laser_age(std::string* json, const unit_state& unit) {
  add_integer(json, unit.board == nullptr ? -1 : unit.board->laser.invalid_count.load());
}

// --- warnings: real or forced ---

void warning(std::string* json, bool is_on, debug_warning forced) {
  add_boolean(json, is_on || forced_warnings[forced]);
}

template <auto Member, debug_warning Forced>
void heat(std::string* json, const unit_state& unit) {
  warning(json, unit.values.*Member, Forced);
}

void cold(std::string* json, const unit_state& unit) {
  warning(json, unit.values.cold || unit.values.freezing, kDebugLowTemperature);
}

template <auto Hold, debug_warning Forced>
void of_board(std::string* json, const unit_state& unit) {
  warning(json, unit.board != nullptr && unit.board->*Hold != 0, Forced);
}

// The board has one drive besides the tilt: what it turns is the motor type.
template <const char* Type, debug_warning Forced>
void of_drive(std::string* json, const unit_state& unit) {
  const bool is_on = unit.board != nullptr && unit.board->drive_overcurrent_hold != 0;
  warning(json, is_on && strcmp(unit.values.motor_type, Type) == 0, Forced);
}

struct status_member {
  const char* key;
  value_writer add_value;
};

constexpr char kPan[] = "pan";
constexpr char kHeight[] = "height";

// In the order of the answer. The first and the last are the status record's, which changes once a second.
constexpr status_member kRecordMembers[] = {
    {"version", text<&v::version>},
    {"camera_signal", flag<&v::camera_reachable>},
    {"usb_pcent", text<&v::usb_percent>},
    {"recording", flag<&v::recording>},
    {"paused", flag<&v::paused>},
    {"transferring", flag<&v::post_processing>},
    {"battery", text<&v::battery>},
    {"power", one_decimal<&v::supply_volts>},
    {"avr_temp", one_decimal<&v::board_temperature>},
    {"fpga_temp", of_camera<&camera_temperatures::fpga>},
    {"lens_temp", of_camera<&camera_temperatures::lens>},
    {"cpu_temp", of_camera<&camera_temperatures::cpu>},
    {"channel_1", channel<0>},
    {"channel_2", channel<1>},
    {"emmc_space", integer<&v::emmc_kb>},
    {"usb_spaceavail", integer<&v::usb_kb>},
    {"ext_usb_status", text<&v::external_usb>},
    {"up_temp", one_decimal<&v::processor_temperature>},
    {"core0_temp", core<0>},
    {"core1_temp", core<1>},
    {"core2_temp", core<2>},
    {"core3_temp", core<3>},
    {"time_remaining", text<&v::time_remaining>},
    {"recording_time_remaining", text<&v::recording_time>},
    {"storage_time_remaining", text<&v::storage_time>},
    {"update_available", flag<&v::update_available>},
    {"update_status", text<&v::update_status>},
};

constexpr status_member kLiveMembers[] = {
    {"led_intensity", led_intensity},
    {"led_mode", [](auto* json, auto& unit) { add_string(json, unit.lighting.mode); }},
    {"camera_type", camera_type},
    {"exposure_mode", mode<kept_exposure_mode>},
    {"focus_mode", mode<kept_focus_mode>},
    {"focus_position", [](auto* json, auto& unit) { add_integer(json, unit.lens.focus_position); }},
    {"max_depth_of_field", [](auto* json, auto& unit) { add_string(json, unit.lens.depth.far_limit); }},
    {"min_depth_of_field", [](auto* json, auto& unit) { add_string(json, unit.lens.depth.near_limit); }},
    {"focus_speed", focus_speed},
    {"laser_age", laser_age},
    {"laser_distance",
     [](auto* json, auto& unit) { add_string(json, load_laser_distance(unit.board).text); }},
    {"zoom_position", [](auto* json, auto& unit) { add_integer(json, unit.lens.zoom_position); }},
    {"zoom_magnification", [](auto* json, auto& unit) { add_string(json, unit.lens.zoom_magnification); }},
    {"zoom_speed", zoom_speed},
    {"motor_type", text<&v::motor_type>},
    {"crit_temp_warning", heat<&v::hot, kDebugCriticalTemperature>},
    {"high_temp_warning", heat<&v::warm, kDebugHighTemperature>},
    {"low_temp_warning", cold},
    {"high_press_warning", of_board<&b::high_pressure_hold, kDebugHighPressure>},
    {"high_rh_warning", of_board<&b::high_humidity_hold, kDebugHighHumidity>},
    {"tilt_mtr_warning", of_board<&b::tilt_overcurrent_hold, kDebugTiltMotor>},
    {"pan_mtr_warning", of_drive<kPan, kDebugPanMotor>},
    {"height_mtr_warning", of_drive<kHeight, kDebugHeightMotor>},
    {"ctrl_seat_warning", [](auto* json, auto&) { add_boolean(json, controller_seat_warning()); }},
};

constexpr status_member kLastMembers[] = {
    {"battery_level", text<&v::battery_level>},
    {"tilt_angle", text<&v::tilt_angle>},
    {"direction", text<&v::direction>},
    {"height", text<&v::height>},
};

void add_members(std::string* json, std::span<const status_member> members, const unit_state& unit) {
  for (const status_member& member : members) {
    append_json_key(json, member.key);
    member.add_value(json, unit);
  }
}

// What the status record's members were, as long as the record is the same.
struct record_text {
  supervisor_values values;
  std::string first;
  std::string last;
};

const record_text& text_of_record(const unit_state& unit) {
  static record_text& kept = *new record_text;  // HTTP thread, which the end of the process does not stop
  // Padding that differs only has it written anew.
  // NOLINTNEXTLINE(bugprone-suspicious-memory-comparison)
  if (kept.first.empty() || memcmp(&kept.values, &unit.values, sizeof unit.values) != 0) {
    std::string json;
    add_members(&json, kRecordMembers, unit);
    const size_t length = json.size();
    add_members(&json, kLastMembers, unit);
    kept = {unit.values, json.substr(0, length), json.substr(length) + "}"};
  }
  return kept;
}

int get_status(http_connection* connection) {
  static std::string& json = *new std::string;  // HTTP thread: its memory is used again
  const unit_state unit;
  const record_text& record = text_of_record(unit);
  json = record.first;
  add_members(&json, kLiveMembers, unit);
  json += record.last;
  return send_json_text(connection, json);
}

// --- identity ---

struct identity_route {
  const char* key;
  void (*load)(char* text, size_t size);
};

constexpr size_t kIdentitySize = 16;
constexpr size_t kCameraVersionSize = 8;
constexpr identity_route kModel{"model", orb_load_supervisor_model_name};
constexpr identity_route kSerialNumber{"serial_number", orb_load_supervisor_serial_number};

int get_identity(http_connection* connection, const identity_route& route) {
  char text[kIdentitySize];
  route.load(text, sizeof text);
  return send_text(connection, route.key, text);
}

int get_versions(http_connection* connection) {
  char firmware[kIdentitySize];
  char camera[kCameraVersionSize];
  orb_load_supervisor_firmware_version(firmware, sizeof firmware);
  orb_load_supervisor_camera_version(camera, sizeof camera);
  return send_object(connection, [&](json_object* answer) {
    add_text(answer, "software_version", kSoftwareVersion);
    add_text(answer, "firmware_version", firmware);
    add_text(answer, "camera_version", camera);
  });
}

constexpr http_path kPaths[] = {
    {"/api/model", get<get_identity, kModel>.in(files_lane)},
    {"/api/serial_number", get<get_identity, kSerialNumber>.in(files_lane)},
    {"/api/status", get<get_status>},
    {"/api/versions", get<get_versions>},
};

}  // namespace

constinit const route_group status_routes(kRows<kPaths, route_counts{.get = 4}>);
