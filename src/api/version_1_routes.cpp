// "/api/1.0", kept for old clients: camera, motors, lights, laser supply, video channel and recordings. What
// stands on consoles is what has always stood there.

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <optional>
#include <string>
#include <string_view>

#include "api/routes.h"
#include "base/file.h"
#include "base/paths.h"
#include "base/text.h"
#include "camera/depth_of_field.h"
#include "camera/lens_loops.h"
#include "camera/speeds.h"
#include "camera/zoom_values.h"
#include "http/response.h"
#include "power_board/lighting.h"
#include "power_board/power_board.h"
#include "recorder/take_list.h"
#include "visca/camera_thread.h"

namespace {

// The object "parameters" of a command, or what stands in its place as "params"; null without one. Borrowed.
json_object* parameters_of(json_object* body) {
  json_object* parameters = json_member(body, "parameters");
  return parameters != nullptr ? parameters : json_member(body, "params");
}

// Lights and laser do what the request path says: their words are looked for in all of it, its query string
// included.
bool path_has(const http_connection* connection, const char* word) {
  return strstr(connection->request.path, word) != nullptr;
}

// --- camera: commands ---

struct camera_command {
  std::string_view name;
  int (*fixed)(visca_camera* camera);                    // without parameters
  int (*give_order)(const lens_order& order) = nullptr;  // of a lens
  lens_effect effect = lens_effect::ends;
  int (*variable)(visca_camera* camera, int speed) = nullptr;   // when the parameters hold "speed"
  int (*direct)(visca_camera* camera, int position) = nullptr;  // with the parameter "position"
};

using enum lens_effect;

constexpr camera_command kCommands[] = {
    {"power_on", visca_camera_power_on},
    {"power_off", visca_camera_power_off},
    {"zoom_tele", visca_camera_zoom_tele, orb_order_zoom, drives, visca_camera_zoom_tele_variable},
    {"zoom_wide", visca_camera_zoom_wide, orb_order_zoom, drives, visca_camera_zoom_wide_variable},
    {"zoom_stop", visca_camera_zoom_stop, orb_order_zoom, stops},
    {"zoom_direct", nullptr, orb_order_zoom, ends, nullptr, visca_camera_zoom_direct},
    {"digital_zoom_on", visca_camera_digital_zoom_on},
    {"digital_zoom_off", visca_camera_digital_zoom_off},
    {"focus_near", visca_camera_focus_near, orb_order_focus, drives, visca_camera_focus_near_variable},
    {"focus_far", visca_camera_focus_far, orb_order_focus, drives, visca_camera_focus_far_variable},
    {"focus_stop", visca_camera_focus_stop, orb_order_focus, stops},
    {"focus_direct", nullptr, orb_order_focus, ends, nullptr, visca_camera_focus_direct},
    {"focus_mode_auto", visca_camera_auto_focus, orb_order_focus},
    {"focus_mode_manual", visca_camera_manual_focus},
    {"iris_reset", visca_camera_iris_reset},
    {"iris_down", visca_camera_iris_down},
    {"iris_up", visca_camera_iris_up},
    {"shutter_reset", visca_camera_shutter_reset},
    {"shutter_down", visca_camera_shutter_down},
    {"shutter_up", visca_camera_shutter_up},
    {"exposure_mode_auto", visca_camera_exposure_mode_auto},
    {"exposure_mode_manual", visca_camera_exposure_mode_manual},
    {"exposure_mode_shutter_priority", visca_camera_exposure_mode_shutter_priority},
    {"exposure_mode_iris_priority", visca_camera_exposure_mode_iris_priority},
};

// Control characters become dots.
void print_name(std::string_view name) {
  for (const char c : name) putchar(is_control(c) ? '.' : c);
  putchar('\n');
}

// The command with its number, if it has one. Nothing without a position that it needs.
std::optional<lens_order> read_order(const camera_command& command, json_object* parameters) {
  if (command.direct != nullptr) {
    const std::optional<int> position = body_plain_number(parameters, "position");
    if (!position) return std::nullopt;
    printf("  position: %d\n", *position);
    if (!is_visca_position(*position)) return std::nullopt;
    return lens_order{command.effect, nullptr, command.direct, *position};
  }
  const std::optional<int> speed =
      command.variable != nullptr ? body_plain_number(parameters, "speed") : std::nullopt;
  if (!speed) return lens_order{command.effect, command.fixed};
  return lens_order{command.effect, nullptr, command.variable, std::clamp(*speed, 0, kMaximumSpeed)};
}

int queue_once(visca_camera* camera, const camera_command& command, json_object* parameters) {
  const std::optional<lens_order> order = read_order(command, parameters);
  if (!order) return -1;
  // A stop is owed without a camera, too.
  if (command.give_order != nullptr) return command.give_order(*order);
  return camera == nullptr ? -1 : command.fixed(camera);
}

// Whatever comes of it, the answer is empty.
int post_camera(http_connection* connection, json_object* body) {
  if (text_member(body, "command")) {
    const std::string name = json_text(body, "command");
    print_name(name);
    const auto* command = std::ranges::find(kCommands, name, &camera_command::name);
    if (command != std::end(kCommands) &&
        queue_once(visca_thread_data.camera, *command, parameters_of(body)) != 0 &&
        command->fixed == visca_camera_zoom_stop) {
      printf("zoom stop failed!\n");
    }
  }
  empty_v1_response_handler(connection);
  return 0;
}

// --- camera: positions ---

// What the camera last reported, -1 without a camera or a report.
int reported_position(std::atomic<uint32_t> visca_camera::*position) {
  const visca_camera* camera = visca_thread_data.camera;
  return camera == nullptr ? -1 : static_cast<int>((camera->*position).load());
}

struct positions_route {
  const char* message;
  bool zoom, focus;
};

constexpr positions_route kZoom{"Writing zoom response", true, false};
constexpr positions_route kFocus{"Writing focus response", false, true};
constexpr positions_route kBoth{"Writing camera response", true, true};

int get_positions(http_connection* connection, const positions_route& route) {
  printf("%s\n", route.message);
  json_object* answer = json_object_new_object();
  if (answer != nullptr && route.zoom)
    add_number(answer, "zoom", reported_position(&visca_camera::zoom_position));
  if (answer != nullptr && route.focus)
    add_number(answer, "focus", reported_position(&visca_camera::focus_position));
  json_v1_response_handler(connection, answer);
  return 0;
}

// --- distances and motors ---

constexpr double kMetresPerFoot = 0.30480060960121924;  // US survey foot
constexpr double kTolerance_m = 0.1;
constexpr int kFreshReading = 6;  // refreshes

// The last laser reading in metres, 0 when it is no longer fresh.
double fresh_laser_distance() {
  const orb_power_board* board = power_board_now();
  return board != nullptr && board->laser.invalid_count < kFreshReading ? board->laser.distance.load() : 0;
}

int get_distances(http_connection* connection) {
  const int focus = reported_position(&visca_camera::focus_position);
  printf("Focus: %d, Zoom: %d\n", focus, reported_position(&visca_camera::zoom_position));
  return send_object(connection, [focus](json_object* answer) {
    const double distance = focus_distance_ft(focus) * kMetresPerFoot;
    add_json_member(answer, "distance", json_object_new_double(distance));
    add_json_member(answer, "tolerance", json_object_new_double(kTolerance_m));
    add_json_member(answer, "lrf-distance", json_object_new_double(fresh_laser_distance()));
  });
}

struct motor_command {
  std::string_view name;
  uint8_t command;
};

// "pan" and "height" name the same second drive.
constexpr motor_command kMotorCommands[] = {
    {"stop", kMotorStop}, {"tilt", kMotorRunTilt}, {"height", kMotorRunDrive}, {"pan", kMotorRunDrive}};

void run_motor(orb_power_board* board, uint8_t command, json_object* parameters) {
  if (command == kMotorStop) {
    orb_power_board_stop_motor(board);
    return;
  }
  const int speed = body_plain_number(parameters, "speed").value_or(0);
  orb_power_board_start_motor(board, command, speed, body_plain_number(parameters, "duration").value_or(0));
}

// Closed without an answer when the body is no JSON.
int post_motors(http_connection* connection, json_object* body) {
  if (body == nullptr) return 0;
  const std::string name = json_text(body, "command");
  const auto* found = std::ranges::find(kMotorCommands, name, &motor_command::name);
  orb_power_board* board = power_board_now();
  if (board != nullptr && found != std::end(kMotorCommands))
    run_motor(board, found->command, parameters_of(body));
  empty_v1_response_handler(connection);
  return 0;
}

// --- lights and laser supply ---

std::string value_text(const char* path, const char* missing) {
  constexpr size_t kLineLimit = 98;
  std::string line = read_first_line(path, kLineLimit).value_or("");
  if (line.ends_with('\n')) line.pop_back();
  return line.empty() ? missing : line;
}

int get_lighting(http_connection* connection) {
  printf("Writing focus response\n");  // sic
  json_object* answer = json_object_new_object();
  if (answer != nullptr) {
    add_text(answer, "mode", value_text(paths::kLighting, "leds_off"));
    add_text(answer, "intensity", value_text(paths::kIntensity, "25"));
  }
  json_v1_response_handler(connection, answer);
  return 0;
}

// The first word in the path; null when there is none.
const char* lighting_word(const http_connection* connection) {
  constexpr const char* kWords[] = {"low", "medium", "high", "strip"};
  const auto* found =
      std::ranges::find_if(kWords, [&](const char* word) { return path_has(connection, word); });
  return found == std::end(kWords) ? nullptr : *found;
}

int post_lighting(http_connection* connection, json_object* body) {
  if (path_has(connection, "off")) {
    set_v1_leds("off", std::nullopt);
  } else {
    if (body == nullptr) return 0;
    set_v1_leds(lighting_word(connection), body_plain_number(body, "intensity"));
  }
  empty_v1_response_handler(connection);
  return 0;
}

int post_laser(http_connection* connection) {
  orb_power_board* board = power_board_now();
  const bool enable = path_has(connection, "enable");
  if (board != nullptr && (enable || path_has(connection, "disable"))) {
    (enable ? orb_power_board_enable_laser_power : orb_power_board_disable_laser_power)(board);
  }
  no_content_response_handler(connection);
  return 0;
}

// --- video channel and recordings ---

// Of the channel nothing is left: the GET is closed without an answer, and a command runs nothing, whatever
// it is.
int get_video(http_connection*) { return 0; }

int post_video(http_connection* connection, json_object* body) {
  if (body != nullptr) empty_v1_response_handler(connection);
  return 0;
}

int get_recordings(http_connection* connection) {
  printf("get_recordings\n");
  const std::string list = list_recordings();
  printf("Writing files response");
  json_v1_text_response_handler(connection, list);
  return 0;
}

constexpr http_path kPaths[] = {
    {"/api/1.0/orb", get<get_distances>, post<post_motors>},
    {"/api/1.0/camera/zoom", get<get_positions, kZoom>},
    {"/api/1.0/camera/focus", get<get_positions, kFocus>},
    {"/api/1.0/camera", get<get_positions, kBoth>, post<post_camera>},
    {"/api/1.0/video", get<get_video>, post<post_video>},
    {"/api/1.0/lighting", get<get_lighting>, post<post_lighting>},
    {"/api/1.0/recordings", get<get_recordings>.in(files_lane)},
    {"/api/1.0/laser/enable", post<post_laser>},
    {"/api/1.0/laser/disable", post<post_laser>},
};

}  // namespace

constinit const route_group version_1_routes(kRows<kPaths, route_counts{.get = 7, .post = 6}>);
