// The version-1.0 routes of motors, lights and laser. Lights and laser do what the request path says: their
// words are looked for in all of it, its query string included.

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <optional>
#include <string>

#include "api/power_board_routes.h"
#include "base/file.h"
#include "base/paths.h"
#include "base/text.h"
#include "http/json_body.h"
#include "http/response.h"
#include "power_board/lighting.h"
#include "power_board/power_board.h"

namespace {

constexpr size_t kLineLimit = 98;

struct motor_command {
  const char* name;
  uint8_t command;
};

// "pan" and "height" name the same second drive.
constexpr motor_command kMotorCommands[] = {
    {"stop", kMotorStop}, {"tilt", kMotorRunTilt}, {"height", kMotorRunDrive}, {"pan", kMotorRunDrive}};

// In the order in which they are looked for.
constexpr const char* kLightingWords[] = {"low", "medium", "high", "strip"};

void run_motor(orb_power_board* board, uint8_t command, json_object* parameters) {
  if (command == kMotorStop) {
    orb_power_board_stop_motor(board);
    return;
  }
  const int speed = body_plain_number(parameters, "speed").value_or(0);
  orb_power_board_start_motor(board, command, speed, body_plain_number(parameters, "duration").value_or(0));
}

bool path_has(const http_connection* connection, const char* word) {
  return strstr(connection->request.path, word) != nullptr;
}

// The first word in the path; null when there is none.
const char* lighting_word(const http_connection* connection) {
  const auto* found =
      std::ranges::find_if(kLightingWords, [&](const char* word) { return path_has(connection, word); });
  return found == std::end(kLightingWords) ? nullptr : *found;
}

json_object* value_text(const char* path, const char* missing) {
  std::string line = read_first_line(path, kLineLimit).value_or("");
  if (line.ends_with('\n')) line.pop_back();
  return json_object_new_string(line.empty() ? missing : as_utf8(line).c_str());
}

}  // namespace

int api_post_orb(http_connection* connection, const char* body, unsigned long length, void*) {
  const json_owner object = read_json_body(connection, body, length);
  if (!object) return 0;
  const std::string name = json_text(object.get(), "command");
  orb_power_board* board = power_board_now();
  for (const motor_command& each : kMotorCommands) {
    if (board != nullptr && name == each.name) run_motor(board, each.command, body_parameters(object.get()));
  }
  empty_v1_response_handler(connection);
  return 0;
}

int api_get_lighting(http_connection* connection, const char*, unsigned long, void*) {
  printf("Writing focus response\n");  // the line that consoles have always shown here
  json_object* answer = json_object_new_object();
  if (answer != nullptr) {
    json_object_object_add(answer, "mode", value_text(paths::kLighting, "leds_off"));
    json_object_object_add(answer, "intensity", value_text(paths::kIntensity, "25"));
  }
  json_v1_response_handler(connection, answer);
  return 0;
}

int api_post_lighting(http_connection* connection, const char* body, unsigned long length, void*) {
  if (path_has(connection, "off")) {
    set_v1_leds("off", std::nullopt);
  } else {
    const json_owner object = read_json_body(connection, body, length);
    if (!object) return 0;
    set_v1_leds(lighting_word(connection), body_plain_number(object.get(), "intensity"));
  }
  empty_v1_response_handler(connection);
  return 0;
}

int api_post_laser(http_connection* connection, const char*, unsigned long, void*) {
  orb_power_board* board = power_board_now();
  const bool enable = path_has(connection, "enable");
  if (board != nullptr && (enable || path_has(connection, "disable"))) {
    (enable ? orb_power_board_enable_laser_power : orb_power_board_disable_laser_power)(board);
  }
  no_content_response_handler(connection);
  return 0;
}
