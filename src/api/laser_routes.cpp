// "/api/laser": the rangefinder.

#include <optional>

#include "api/routes.h"
#include "base/trace.h"
#include "http/response.h"
#include "power_board/power_board.h"

namespace {

constexpr const char* kModes[] = {"off", "manual", "picture", "auto"};
constexpr const char* kSpeeds[] = {"slow", "fast", "auto"};

int get_status(http_connection* connection) {
  orb_power_board* board = power_board_now();
  power_board_readings readings;
  if (board != nullptr) orb_power_board_load_registers(board, &readings);
  return send_object(connection, [&](json_object* answer) {
    add_number(answer, "laser_hw_version", readings.laser_hardware_version);
    add_number(answer, "laser_sw_version", readings.laser_software_version);
    add_number(answer, "laser_sn", readings.laser_serial_number);
    add_number(answer, "laser_sample_count", readings.laser_sample_count);
    add_number(answer, "laser_error_code", readings.laser_error_code);
    add_number(answer, "laser_quality", readings.laser_quality);
    add_text(answer, "laser_distance", load_laser_distance(board).text);
  });
}

int get_distance(http_connection* connection) {
  return send_text(connection, "laser_distance", load_laser_distance(power_board_now()).text);
}

int get_speed(http_connection* connection) {
  const orb_power_board* board = power_board_now();
  const int speed = board == nullptr ? -1 : board->laser.speed.load();
  return send_text(connection, "laser_speed", speed == 0 || speed == 1 ? kSpeeds[speed] : "auto");
}

int put_speed(http_connection* connection, json_object* body) {
  const std::optional<int> speed = take_choice(body, "laser_speed", "laser speed", kSpeeds);
  orb_power_board* board = power_board_now();
  if (!speed || board == nullptr) return send_status(connection, false);
  orb_power_board_set_laser_speed(board, *speed);
  return send_status(connection, true);
}

int get_mode(http_connection* connection) {
  const orb_power_board* board = power_board_now();
  return send_text(connection, "laser_mode", kModes[board == nullptr ? 0 : board->laser.mode.load()]);
}

int put_mode(http_connection* connection, json_object* body) {
  const std::optional<int> mode = take_choice(body, "laser_mode", "laser mode", kModes);
  orb_power_board* board = power_board_now();
  if (!mode || board == nullptr) return send_status(connection, false);
  orb_power_board_set_laser_mode(board, *mode);
  return send_status(connection, true);
}

int post_execute(http_connection* connection) {
  trace(kTraceApi, "laser execute");
  orb_power_board* board = power_board_now();
  return send_status(connection, board != nullptr && orb_power_board_trigger_laser_reading(board) == 0);
}

constexpr http_path kPaths[] = {
    {"/api/laser/status", get<get_status>},
    {"/api/laser/distance", get<get_distance>},
    {"/api/laser/speed", get<get_speed>, put<put_speed>},
    {"/api/laser/mode", get<get_mode>, put<put_mode>},
    {"/api/laser/execute", post<post_execute>},
};

}  // namespace

constinit const route_group laser_routes(kRows<kPaths, route_counts{.get = 4, .put = 2, .post = 1}>);
