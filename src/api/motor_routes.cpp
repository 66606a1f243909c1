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
  orb_power_board* board = power_board_now();
  if (board != nullptr) {
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
  orb_power_board* board = power_board_now();
  if (board != nullptr) orb_power_board_stop_motor(board);
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
  orb_power_board* board = power_board_now();
  if (board != nullptr) orb_power_board_set_height_extension(board, extension);
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

constexpr http_route_row kRows[] = {
    {"POST", "/api/motor/tilt/increment", handler<post_tilt, kTiltUp>},
    {"POST", "/api/motor/tilt/decrement", handler<post_tilt, kTiltDown>},
    {"POST", "/api/motor/tilt/stop", handler<post_stop>},
    {"POST", "/api/motor/height/increment", handler<post_drive, kForward>},
    {"POST", "/api/motor/height/decrement", handler<post_drive, kBack>},
    {"POST", "/api/motor/height/stop", handler<post_stop>},
    {"POST", "/api/motor/height/findhome", handler<post_find_home>},
    {"GET", "/api/height/extension", handler<get_extension>},
    {"PUT", "/api/height/extension", handler<put_extension>},
    {"GET", "/api/height/preset", handler<get_preset>},
    {"PUT", "/api/height/preset", handler<put_preset>},
    {"POST", "/api/motor/pan/increment", handler<post_drive, kForward>},
    {"POST", "/api/motor/pan/decrement", handler<post_drive, kBack>},
    {"POST", "/api/motor/pan/stop", handler<post_stop>},
};

static_assert(count_rows(kRows) == route_counts{.get = 2, .put = 2, .post = 10});

}  // namespace

constinit const route_group motor_routes(kRows);
