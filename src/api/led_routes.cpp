// The handlers of "/api/led", "/api/laser" and "/api/setup/high_beam_time".

#include <algorithm>
#include <cstdio>
#include <optional>

#include "api/power_board_routes.h"
#include "base/text.h"
#include "base/trace.h"
#include "http/json_body.h"
#include "http/response.h"
#include "power_board/intensity_loop.h"
#include "power_board/lighting.h"
#include "power_board/power_board.h"

namespace {

constexpr int kHold_ms = 500;

constexpr const char* kLaserModes[] = {"off", "manual", "picture", "auto"};
constexpr const char* kLaserSpeeds[] = {"slow", "fast", "auto"};

int send_intensity(http_connection* connection) {
  return send_object(connection, [](json_object* answer) {
    json_object_object_add(answer, "led_intensity", json_object_new_string(load_led_intensity().text));
    add_status(answer, true);
  });
}

void add_integer(json_object* answer, const char* key, int64_t value) {
  json_object_object_add(answer, key, json_object_new_int64(value));
}

}  // namespace

int get_led_mode(http_connection* connection, const char*, unsigned long, void*) {
  return send_member(connection, "led_mode", json_object_new_string(load_lighting().mode));
}

int put_led_mode(http_connection* connection, const char* body, unsigned long length, void*) {
  const std::optional<body_word> mode = take_word(connection, body, length, "led_mode", "led mode '%s'");
  return send_status(connection, mode && set_led_mode(mode->text) == 0);
}

int post_high_beam_on(http_connection* connection, const char*, unsigned long, void*) {
  trace(kTraceApi, "high beam on");
  set_high_beam(true);
  return send_status(connection, true);
}

int post_high_beam_off(http_connection* connection, const char*, unsigned long, void*) {
  trace(kTraceApi, "high beam off");
  set_high_beam(false);
  return send_status(connection, true);
}

int get_led_intensity(http_connection* connection, const char*, unsigned long, void*) {
  return send_member(connection, "led_intensity", json_object_new_string(load_led_intensity().text));
}

int put_led_intensity(http_connection* connection, const char* body, unsigned long length, void*) {
  const std::optional<body_word> word =
      take_word(connection, body, length, "led_intensity", "led intensity '%s'");
  const std::optional<int> value = word ? leading_number(word->text) : std::nullopt;
  if (!value) return send_status(connection, false);
  orb_set_api_led_intensity(std::clamp(*value, 0, kMaximumIntensity));
  return send_status(connection, true);
}

int post_led_intensity_increment(http_connection* connection, const char*, unsigned long, void*) {
  trace(kTraceApi, "led intensity inc");
  orb_trigger_intensity_loop(1, kHold_ms);
  return send_intensity(connection);
}

int post_led_intensity_decrement(http_connection* connection, const char*, unsigned long, void*) {
  trace(kTraceApi, "led intensity dec");
  orb_trigger_intensity_loop(-1, kHold_ms);
  return send_intensity(connection);
}

int post_led_intensity_stop(http_connection* connection, const char*, unsigned long, void*) {
  trace(kTraceApi, "led intensity stop");
  orb_stop_intensity_loop();
  return send_intensity(connection);
}

int get_high_beam_time(http_connection* connection, const char*, unsigned long, void*) {
  char text[16];
  snprintf(text, sizeof text, "%d", high_beam_time());
  return send_member(connection, "high_beam_time", json_object_new_string(text));
}

int put_high_beam_time(http_connection* connection, const char* body, unsigned long length, void*) {
  const json_owner object = read_json_body(connection, body, length);
  const int seconds = body_text_number(object.get(), "high_beam_time").value_or(-1);
  trace(kTraceApi, "high beam time %d", is_high_beam_time(seconds) ? seconds : 0);
  return send_status(connection, set_high_beam_time(seconds) == 0);
}

int get_laser_status(http_connection* connection, const char*, unsigned long, void*) {
  orb_power_board* board = power_board_now();
  power_board_readings readings;
  if (board != nullptr) orb_power_board_load_registers(board, &readings);
  return send_object(connection, [&](json_object* answer) {
    add_integer(answer, "laser_hw_version", readings.laser_hardware_version);
    add_integer(answer, "laser_sw_version", readings.laser_software_version);
    add_integer(answer, "laser_sn", readings.laser_serial_number);
    add_integer(answer, "laser_sample_count", readings.laser_sample_count);
    add_integer(answer, "laser_error_code", readings.laser_error_code);
    add_integer(answer, "laser_quality", readings.laser_quality);
    json_object_object_add(answer, "laser_distance", json_object_new_string(load_laser_distance(board).text));
  });
}

int get_laser_distance(http_connection* connection, const char*, unsigned long, void*) {
  return send_member(connection, "laser_distance",
                     json_object_new_string(load_laser_distance(power_board_now()).text));
}

int get_laser_speed(http_connection* connection, const char*, unsigned long, void*) {
  const orb_power_board* board = power_board_now();
  const int speed = board == nullptr ? -1 : board->laser.speed.load();
  const char* text = speed == 0 || speed == 1 ? kLaserSpeeds[speed] : "auto";
  return send_member(connection, "laser_speed", json_object_new_string(text));
}

int put_laser_speed(http_connection* connection, const char* body, unsigned long length, void*) {
  const std::optional<body_word> word =
      take_word(connection, body, length, "laser_speed", "laser speed '%s'");
  const std::optional<int> speed = word ? find_word(kLaserSpeeds, word->text) : std::nullopt;
  orb_power_board* board = power_board_now();
  if (!speed || board == nullptr) return send_status(connection, false);
  orb_power_board_set_laser_speed(board, *speed);
  return send_status(connection, true);
}

int get_laser_mode(http_connection* connection, const char*, unsigned long, void*) {
  const orb_power_board* board = power_board_now();
  const int mode = board == nullptr ? 0 : board->laser.mode.load();
  return send_member(connection, "laser_mode", json_object_new_string(kLaserModes[mode]));
}

int put_laser_mode(http_connection* connection, const char* body, unsigned long length, void*) {
  const std::optional<body_word> word = take_word(connection, body, length, "laser_mode", "laser mode '%s'");
  const std::optional<int> mode = word ? find_word(kLaserModes, word->text) : std::nullopt;
  orb_power_board* board = power_board_now();
  if (!mode || board == nullptr) return send_status(connection, false);
  orb_power_board_set_laser_mode(board, *mode);
  return send_status(connection, true);
}

int post_laser_execute(http_connection* connection, const char*, unsigned long, void*) {
  trace(kTraceApi, "laser execute");
  orb_power_board* board = power_board_now();
  return send_status(connection, board != nullptr && orb_power_board_trigger_laser_reading(board) == 0);
}
