// The version-1.0 camera routes, the distance that the focus tells, and the video channel.

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <optional>

#include "api/camera_routes.h"
#include "base/json.h"
#include "base/text.h"
#include "camera/depth_of_field.h"
#include "camera/lens_loops.h"
#include "camera/speeds.h"
#include "camera/zoom_values.h"
#include "http/json_body.h"
#include "http/response.h"
#include "power_board/power_board.h"
#include "visca/camera_thread.h"

namespace {

constexpr double kMetresPerFoot = 0.30480060960121924;  // US survey foot
constexpr double kTolerance_m = 0.1;
constexpr int kFreshReading = 6;  // refreshes

struct camera_command {
  const char* name;
  int (*fixed)(visca_camera* camera);                    // without parameters
  int (*variable)(visca_camera* camera, int speed);      // when the parameters hold "speed"
  int (*direct)(visca_camera* camera, int position);     // with the parameter "position"
  int (*give_order)(const lens_order& order) = nullptr;  // of a lens
  lens_effect effect = lens_effect::ends;
};

constexpr camera_command kCommands[] = {
    {"power_on", visca_camera_power_on, nullptr, nullptr},
    {"power_off", visca_camera_power_off, nullptr, nullptr},
    {"zoom_tele", visca_camera_zoom_tele, visca_camera_zoom_tele_variable, nullptr, orb_order_zoom,
     lens_effect::drives},
    {"zoom_wide", visca_camera_zoom_wide, visca_camera_zoom_wide_variable, nullptr, orb_order_zoom,
     lens_effect::drives},
    {"zoom_stop", visca_camera_zoom_stop, nullptr, nullptr, orb_order_zoom, lens_effect::stops},
    {"zoom_direct", nullptr, nullptr, visca_camera_zoom_direct, orb_order_zoom},
    {"digital_zoom_on", visca_camera_digital_zoom_on, nullptr, nullptr},
    {"digital_zoom_off", visca_camera_digital_zoom_off, nullptr, nullptr},
    {"focus_near", visca_camera_focus_near, visca_camera_focus_near_variable, nullptr, orb_order_focus,
     lens_effect::drives},
    {"focus_far", visca_camera_focus_far, visca_camera_focus_far_variable, nullptr, orb_order_focus,
     lens_effect::drives},
    {"focus_stop", visca_camera_focus_stop, nullptr, nullptr, orb_order_focus, lens_effect::stops},
    {"focus_direct", nullptr, nullptr, visca_camera_focus_direct, orb_order_focus},
    {"focus_mode_auto", visca_camera_auto_focus, nullptr, nullptr, orb_order_focus},
    {"focus_mode_manual", visca_camera_manual_focus, nullptr, nullptr},
    {"iris_reset", visca_camera_iris_reset, nullptr, nullptr},
    {"iris_down", visca_camera_iris_down, nullptr, nullptr},
    {"iris_up", visca_camera_iris_up, nullptr, nullptr},
    {"shutter_reset", visca_camera_shutter_reset, nullptr, nullptr},
    {"shutter_down", visca_camera_shutter_down, nullptr, nullptr},
    {"shutter_up", visca_camera_shutter_up, nullptr, nullptr},
    {"exposure_mode_auto", visca_camera_exposure_mode_auto, nullptr, nullptr},
    {"exposure_mode_manual", visca_camera_exposure_mode_manual, nullptr, nullptr},
    {"exposure_mode_shutter_priority", visca_camera_exposure_mode_shutter_priority, nullptr, nullptr},
    {"exposure_mode_iris_priority", visca_camera_exposure_mode_iris_priority, nullptr, nullptr},
};

const camera_command* find_command(const char* name) {
  for (const camera_command& command : kCommands) {
    if (strcmp(command.name, name) == 0) return &command;
  }
  return nullptr;
}

// Control characters become dots.
void print_name(const char* name) {
  for (; *name != '\0'; ++name) putchar(is_control(*name) ? '.' : *name);
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
  if (command.give_order != nullptr)
    return command.give_order(*order);  // a stop is owed without a camera, too
  return camera == nullptr ? -1 : command.fixed(camera);
}

void obey(visca_camera* camera, json_object* body) {
  const std::optional<std::string_view> name = text_member(body, "command");
  if (!name) return;
  print_name(name->data());
  const camera_command* command = find_command(name->data());
  if (command == nullptr) return;
  if (queue_once(camera, *command, body_parameters(body)) != 0 && command->fixed == visca_camera_zoom_stop) {
    printf("zoom stop failed!\n");
  }
}

// What the camera of `user_data` last reported, -1 without a camera or a report.
int reported_position(void* user_data, std::atomic<uint32_t> visca_camera::*position) {
  const visca_camera* camera = static_cast<visca_thread_record*>(user_data)->camera;
  return camera == nullptr ? -1 : static_cast<int>((camera->*position).load());
}

void add_position(json_object* answer, void* user_data, const char* key,
                  std::atomic<uint32_t> visca_camera::*position) {
  json_object_object_add(answer, key, json_object_new_int(reported_position(user_data, position)));
}

int send_positions(http_connection* connection, void* user_data, bool zoom, bool focus) {
  json_object* answer = json_object_new_object();
  if (answer != nullptr && zoom) add_position(answer, user_data, "zoom", &visca_camera::zoom_position);
  if (answer != nullptr && focus) add_position(answer, user_data, "focus", &visca_camera::focus_position);
  json_v1_response_handler(connection, answer);
  return 0;
}

// The last laser reading in metres, 0 when it is no longer fresh.
double fresh_laser_distance() {
  const orb_power_board* board = power_board_now();
  return board != nullptr && board->laser.invalid_count < kFreshReading ? board->laser.distance.load() : 0;
}

}  // namespace

int api_get_orb(http_connection* connection, const char*, unsigned long, void* user_data) {
  const int focus = reported_position(user_data, &visca_camera::focus_position);
  printf("Focus: %d, Zoom: %d\n", focus, reported_position(user_data, &visca_camera::zoom_position));
  return send_object(connection, [focus](json_object* answer) {
    const double distance = focus_distance_ft(focus) * kMetresPerFoot;
    json_object_object_add(answer, "distance", json_object_new_double(distance));
    json_object_object_add(answer, "tolerance", json_object_new_double(kTolerance_m));
    json_object_object_add(answer, "lrf-distance", json_object_new_double(fresh_laser_distance()));
  });
}

int api_get_camera_zoom(http_connection* connection, const char*, unsigned long, void* user_data) {
  printf("Writing zoom response\n");
  return send_positions(connection, user_data, true, false);
}

int api_get_camera_focus(http_connection* connection, const char*, unsigned long, void* user_data) {
  printf("Writing focus response\n");
  return send_positions(connection, user_data, false, true);
}

int api_get_camera(http_connection* connection, const char*, unsigned long, void* user_data) {
  printf("Writing camera response\n");
  return send_positions(connection, user_data, true, true);
}

int api_post_camera(http_connection* connection, const char* body, unsigned long length, void* user_data) {
  const json_owner object = read_json_body(connection, body, length);
  obey(static_cast<visca_thread_record*>(user_data)->camera, object.get());
  empty_v1_response_handler(connection);
  return 0;
}

// The video channel is kept for old clients only: the GET is closed without an answer, and a command runs
// nothing, whatever it is.
int api_get_video(http_connection*, const char*, unsigned long, void*) { return 0; }

int api_post_video(http_connection* connection, const char* body, unsigned long length, void*) {
  if (read_json_body(connection, body, length)) empty_v1_response_handler(connection);
  return 0;
}
