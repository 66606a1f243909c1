// "/api/led": mode, high beam and intensity of the lights.

#include <algorithm>
#include <optional>

#include "api/routes.h"
#include "base/hold_loop.h"
#include "base/text.h"
#include "base/trace.h"
#include "http/response.h"
#include "power_board/intensity_loop.h"
#include "power_board/lighting.h"

namespace {

int get_mode(http_connection* connection) { return send_text(connection, "led_mode", load_lighting().mode); }

int put_mode(http_connection* connection, json_object* body) {
  const std::optional<body_word> mode = take_word(body, "led_mode", "led mode");
  return send_status(connection, mode && set_led_mode(mode->text) == 0);
}

constexpr bool kOn = true;
constexpr bool kOff = false;

int post_high_beam(http_connection* connection, bool is_on) {
  trace(kTraceApi, is_on ? "high beam on" : "high beam off");
  set_high_beam(is_on);
  return send_status(connection, true);
}

int get_intensity(http_connection* connection) {
  return send_text(connection, "led_intensity", load_led_intensity().text);
}

int put_intensity(http_connection* connection, json_object* body) {
  const std::optional<body_word> word = take_word(body, "led_intensity", "led intensity");
  const std::optional<int> value = word ? leading_number(word->text) : std::nullopt;
  if (value) orb_set_api_led_intensity(std::clamp(*value, 0, kMaximumIntensity));
  return send_status(connection, value.has_value());
}

int send_intensity(http_connection* connection) {
  return send_object(connection, [](json_object* answer) {
    add_text(answer, "led_intensity", load_led_intensity().text);
    add_status(answer, true);
  });
}

constexpr int kBrighter = 1;
constexpr int kDarker = -1;

int post_intensity(http_connection* connection, int direction) {
  trace(kTraceApi, direction > 0 ? "led intensity inc" : "led intensity dec");
  orb_trigger_intensity_loop(direction, kHold_ms);
  return send_intensity(connection);
}

int post_stop(http_connection* connection) {
  trace(kTraceApi, "led intensity stop");
  orb_stop_intensity_loop();
  return send_intensity(connection);
}

constexpr http_path kPaths[] = {
    {"/api/led/mode", get<get_mode>, put<put_mode>},
    {"/api/led/high_beam/on", post<post_high_beam, kOn>},
    {"/api/led/high_beam/off", post<post_high_beam, kOff>},
    {"/api/led/intensity", get<get_intensity>, put<put_intensity>},
    {"/api/led/intensity/increment", post<post_intensity, kBrighter>},
    {"/api/led/intensity/decrement", post<post_intensity, kDarker>},
    {"/api/led/intensity/stop", post<post_stop>},
};

}  // namespace

constinit const route_group led_routes(kRows<kPaths, route_counts{.get = 2, .put = 2, .post = 5}>);
