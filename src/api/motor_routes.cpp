// The handlers of "/api/motor" and "/api/height".

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "api/power_board_routes.h"
#include "base/json.h"
#include "base/trace.h"
#include "camera/zoom_values.h"
#include "http/json_body.h"
#include "http/response.h"
#include "power_board/power_board.h"

namespace {

constexpr int kJogDuration = 500;  // the board's units
constexpr int kDrivePwm = 100;

// Inches; 6 is the retracted height.
constexpr const char* kPresets[] = {"6", "8", "10", "12", "24", "36", "48"};

// A refused jog is answered "OK" too: the operator sees that nothing moves.
int post_jog(http_connection* connection, int command, int pwm) {
  orb_power_board* board = power_board_now();
  if (board != nullptr) {
    orb_power_board_start_motor(board, command, pwm, kJogDuration);
    orb_power_board_clear_laser_reading(board);
  }
  return send_status(connection, true);
}

int tilt_pwm() {
  float zoom = 0;
  orb_load_camera_zoom_values(nullptr, &zoom, nullptr, 0);
  return tilt_jog_pwm(zoom);
}

}  // namespace

int post_tilt_increment(http_connection* connection, const char*, unsigned long, void*) {
  const int pwm = tilt_pwm();
  trace(kTraceApi, "motor tilt inc %d", pwm);
  return post_jog(connection, kMotorRunTilt, pwm);
}

int post_tilt_decrement(http_connection* connection, const char*, unsigned long, void*) {
  const int pwm = -tilt_pwm();
  trace(kTraceApi, "motor tilt dec %d", pwm);
  return post_jog(connection, kMotorRunTilt, pwm);
}

int post_motor_stop(http_connection* connection, const char*, unsigned long, void*) {
  orb_power_board* board = power_board_now();
  if (board != nullptr) orb_power_board_stop_motor(board);
  return send_status(connection, true);
}

int post_drive_increment(http_connection* connection, const char*, unsigned long, void*) {
  return post_jog(connection, kMotorRunDrive, kDrivePwm);
}

int post_drive_decrement(http_connection* connection, const char*, unsigned long, void*) {
  return post_jog(connection, kMotorRunDrive, -kDrivePwm);
}

int post_height_findhome(http_connection* connection, const char*, unsigned long, void*) {
  orb_power_board* board = power_board_now();
  return send_status(connection, board != nullptr && orb_power_board_home_height(board) == 0);
}

int get_height_extension(http_connection* connection, const char*, unsigned long, void*) {
  const orb_power_board* board = power_board_now();
  const bool extension = board != nullptr && board->height_extension != 0;
  return send_member(connection, "height_extension", json_object_new_boolean(extension));
}

int put_height_extension(http_connection* connection, const char* body, unsigned long length, void*) {
  const json_owner object = read_json_body(connection, body, length);
  const int extension = body_flag(object.get(), "height_extension").value_or(false) ? 1 : 0;
  trace(kTraceApi, "height extension %d", extension);
  orb_power_board* board = power_board_now();
  if (board != nullptr) orb_power_board_set_height_extension(board, extension);
  return send_status(connection, true);
}

int get_height_preset(http_connection* connection, const char*, unsigned long, void*) {
  const orb_power_board* board = power_board_now();
  char text[16];
  snprintf(text, sizeof text, "%d", board == nullptr ? kPresetHome : board->height_preset.load());
  return send_member(connection, "height_preset", json_object_new_string(text));
}

int put_height_preset(http_connection* connection, const char* body, unsigned long length, void*) {
  const std::optional<body_word> word =
      take_word(connection, body, length, "height_preset", "height preset '%s'");
  if (!word) return send_status(connection, false);
  const bool known = std::any_of(std::begin(kPresets), std::end(kPresets),
                                 [&](const char* preset) { return strcmp(preset, word->text) == 0; });
  orb_power_board* board = power_board_now();
  if (!known || board == nullptr) return send_status(connection, false);
  const int preset = atoi(word->text);  // NOLINT(cert-err34-c): one of the words above
  return send_status(connection, orb_power_board_set_height_preset(board, preset) == 0);
}
