// "/api/motor" and "/api/height": tilt, mast or pan.

#include <optional>
#include <string>

#include "api/routes.h"
#include "base/text.h"
#include "base/trace.h"
#include "camera/zoom_values.h"
#include "http/response.h"
#include "power_board/power_board.h"

namespace {

constexpr int kJogDuration = 500;  // the board's units

// A refused jog is answered "OK" too: the operator sees that nothing moves.
int jog(http_connection* connection, int command, int pwm) {
  if (orb_power_board* board = power_board_now()) {
    orb_power_board_start_motor(board, command, pwm, kJogDuration);
    orb_power_board_clear_laser_reading(board);
  }
  return send_status(connection, true);
}

struct tilt_route {
  const char* label;
  int direction;
};

constexpr tilt_route kTiltUp{"motor tilt inc", 1};
constexpr tilt_route kTiltDown{"motor tilt dec", -1};

int post_tilt(http_connection* connection, const tilt_route& route) {
  float zoom = 0;
  orb_load_camera_zoom_values(nullptr, &zoom, nullptr, 0);
  const int pwm = route.direction * tilt_jog_pwm(zoom);
  trace(kTraceApi, "%s %d", route.label, pwm);
  return jog(connection, kMotorRunTilt, pwm);
}

// Mast and pan are the same drive.
constexpr int kForward = 100;  // PWM
constexpr int kBack = -100;

int post_drive(http_connection* connection, int pwm) { return jog(connection, kMotorRunDrive, pwm); }

int post_stop(http_connection* connection) {
  if (orb_power_board* board = power_board_now()) orb_power_board_stop_motor(board);
  return send_status(connection, true);
}

int post_find_home(http_connection* connection) {
  orb_power_board* board = power_board_now();
  return send_status(connection, board != nullptr && orb_power_board_home_height(board) == 0);
}

int get_extension(http_connection* connection) {
  const orb_power_board* board = power_board_now();
  return send_flag(connection, "height_extension", board != nullptr && board->height_extension != 0);
}

int put_extension(http_connection* connection, json_object* body) {
  const int extension = body_flag(body, "height_extension").value_or(false) ? 1 : 0;
  trace(kTraceApi, "height extension %d", extension);
  if (orb_power_board* board = power_board_now()) orb_power_board_set_height_extension(board, extension);
  return send_status(connection, true);
}

// Inches; 6 is the retracted height.
constexpr const char* kPresets[] = {"6", "8", "10", "12", "24", "36", "48"};

int get_preset(http_connection* connection) {
  const orb_power_board* board = power_board_now();
  const int preset = board == nullptr ? kPresetHome : board->height_preset.load();
  return send_text(connection, "height_preset", std::to_string(preset));
}

int put_preset(http_connection* connection, json_object* body) {
  const std::optional<int> place = take_choice(body, "height_preset", "height preset", kPresets);
  orb_power_board* board = power_board_now();
  if (!place || board == nullptr) return send_status(connection, false);
  const int preset = number_or_zero(kPresets[*place]);
  return send_status(connection, orb_power_board_set_height_preset(board, preset) == 0);
}

constexpr http_path kPaths[] = {
    {"/api/motor/tilt/increment", post<post_tilt, kTiltUp>},
    {"/api/motor/tilt/decrement", post<post_tilt, kTiltDown>},
    {"/api/motor/tilt/stop", post<post_stop>},
    {"/api/motor/height/increment", post<post_drive, kForward>},
    {"/api/motor/height/decrement", post<post_drive, kBack>},
    {"/api/motor/height/stop", post<post_stop>},
    {"/api/motor/height/findhome", post<post_find_home>},
    {"/api/height/extension", get<get_extension>, put<put_extension>},
    {"/api/height/preset", get<get_preset>, put<put_preset>},
    {"/api/motor/pan/increment", post<post_drive, kForward>},
    {"/api/motor/pan/decrement", post<post_drive, kBack>},
    {"/api/motor/pan/stop", post<post_stop>},
};

}  // namespace

constinit const route_group motor_routes(kRows<kPaths, route_counts{.get = 2, .put = 2, .post = 10}>);
