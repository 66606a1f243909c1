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

int post_high_beam_on(http_connection* connection) {
  trace(kTraceApi, "high beam on");
  set_high_beam(true);
  return send_status(connection, true);
}

int post_high_beam_off(http_connection* connection) {
  trace(kTraceApi, "high beam off");
  set_high_beam(false);
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

int post_increment(http_connection* connection) {
  trace(kTraceApi, "led intensity inc");
  orb_trigger_intensity_loop(1, kHold_ms);
  return send_intensity(connection);
}

int post_decrement(http_connection* connection) {
  trace(kTraceApi, "led intensity dec");
  orb_trigger_intensity_loop(-1, kHold_ms);
  return send_intensity(connection);
}

int post_stop(http_connection* connection) {
  trace(kTraceApi, "led intensity stop");
  orb_stop_intensity_loop();
  return send_intensity(connection);
}

constexpr http_route_row kRows[] = {
    {"GET", "/api/led/mode", handler<get_mode>},
    {"PUT", "/api/led/mode", handler<put_mode>},
    {"POST", "/api/led/high_beam/on", handler<post_high_beam_on>},
    {"POST", "/api/led/high_beam/off", handler<post_high_beam_off>},
    {"GET", "/api/led/intensity", handler<get_intensity>},
    {"PUT", "/api/led/intensity", handler<put_intensity>},
    {"POST", "/api/led/intensity/increment", handler<post_increment>},
    {"POST", "/api/led/intensity/decrement", handler<post_decrement>},
    {"POST", "/api/led/intensity/stop", handler<post_stop>},
};

static_assert(count_rows(kRows) == route_counts{.get = 2, .put = 2, .post = 5});

}  // namespace

constinit const route_group led_routes(kRows);
