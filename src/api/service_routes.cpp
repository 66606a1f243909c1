// "/api/eject", "/api/shutdown" and "/api/debug": what a service client does to the unit.

#include "api/forced_warnings.h"
#include "api/routes.h"
#include "base/trace.h"
#include "http/response.h"
#include "supervisor/shutdown.h"
#include "usb/stick.h"

namespace {

int post_eject(http_connection* connection) {
  trace(kTraceApi, "eject");
  return send_status(connection, orb_request_supervisor_eject() >= 0);
}

int post_shutdown(http_connection* connection, json_object* body) {
  const int type = body_text_number(body, "shutdown_type").value_or(0);
  trace(kTraceApi, "shutdown %d", type);
  orb_trigger_supervisor_shutdown(type);
  return send_status(connection, true);
}

struct debug_route {
  debug_warning warning;
  const char* key;  // of the body, and of the answer
};

constexpr debug_route kCriticalTemperature{kDebugCriticalTemperature, "debug_crit_temp_warning"};
constexpr debug_route kHighTemperature{kDebugHighTemperature, "debug_high_temp_warning"};
constexpr debug_route kLowTemperature{kDebugLowTemperature, "debug_low_temp_warning"};
constexpr debug_route kHighPressure{kDebugHighPressure, "debug_high_press_warning"};
constexpr debug_route kHighHumidity{kDebugHighHumidity, "debug_high_rh_warning"};
constexpr debug_route kTiltMotor{kDebugTiltMotor, "debug_tilt_mtr_warning"};
constexpr debug_route kPanMotor{kDebugPanMotor, "debug_pan_mtr_warning"};
constexpr debug_route kHeightMotor{kDebugHeightMotor, "debug_height_mtr_warning"};

int get_forced(http_connection* connection, const debug_route& route) {
  return send_flag(connection, route.key, forced_warnings[route.warning]);
}

// A body that says nothing clears the flag.
int put_forced(http_connection* connection, json_object* body, const debug_route& route) {
  constexpr size_t kPrefix = sizeof "debug_" - 1;
  bool& is_forced = forced_warnings[route.warning];
  is_forced = body_flag(body, route.key).value_or(false);
  trace(kTraceApi, "debug %s %d", route.key + kPrefix, is_forced ? 1 : 0);
  return send_status(connection, true);
}

constexpr http_route_row kRows[] = {
    {"POST", "/api/eject", handler<post_eject>},
    {"POST", "/api/shutdown", handler<post_shutdown>},
    {"GET", "/api/debug/crit_temp_warning", handler<get_forced, kCriticalTemperature>},
    {"PUT", "/api/debug/crit_temp_warning", handler<put_forced, kCriticalTemperature>},
    {"GET", "/api/debug/high_temp_warning", handler<get_forced, kHighTemperature>},
    {"PUT", "/api/debug/high_temp_warning", handler<put_forced, kHighTemperature>},
    {"GET", "/api/debug/low_temp_warning", handler<get_forced, kLowTemperature>},
    {"PUT", "/api/debug/low_temp_warning", handler<put_forced, kLowTemperature>},
    {"GET", "/api/debug/high_press_warning", handler<get_forced, kHighPressure>},
    {"PUT", "/api/debug/high_press_warning", handler<put_forced, kHighPressure>},
    {"GET", "/api/debug/high_rh_warning", handler<get_forced, kHighHumidity>},
    {"PUT", "/api/debug/high_rh_warning", handler<put_forced, kHighHumidity>},
    {"GET", "/api/debug/tilt_mtr_warning", handler<get_forced, kTiltMotor>},
    {"PUT", "/api/debug/tilt_mtr_warning", handler<put_forced, kTiltMotor>},
    {"GET", "/api/debug/pan_mtr_warning", handler<get_forced, kPanMotor>},
    {"PUT", "/api/debug/pan_mtr_warning", handler<put_forced, kPanMotor>},
    {"GET", "/api/debug/height_mtr_warning", handler<get_forced, kHeightMotor>},
    {"PUT", "/api/debug/height_mtr_warning", handler<put_forced, kHeightMotor>},
};

static_assert(count_rows(kRows) == route_counts{.get = 8, .put = 8, .post = 2});

}  // namespace

constinit const route_group service_routes(kRows);
