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

constexpr http_path kPaths[] = {
    {"/api/eject", post<post_eject>},
    {"/api/shutdown", post<post_shutdown>},
    {"/api/debug/crit_temp_warning", get<get_forced, kCriticalTemperature>,
     put<put_forced, kCriticalTemperature>},
    {"/api/debug/high_temp_warning", get<get_forced, kHighTemperature>, put<put_forced, kHighTemperature>},
    {"/api/debug/low_temp_warning", get<get_forced, kLowTemperature>, put<put_forced, kLowTemperature>},
    {"/api/debug/high_press_warning", get<get_forced, kHighPressure>, put<put_forced, kHighPressure>},
    {"/api/debug/high_rh_warning", get<get_forced, kHighHumidity>, put<put_forced, kHighHumidity>},
    {"/api/debug/tilt_mtr_warning", get<get_forced, kTiltMotor>, put<put_forced, kTiltMotor>},
    {"/api/debug/pan_mtr_warning", get<get_forced, kPanMotor>, put<put_forced, kPanMotor>},
    {"/api/debug/height_mtr_warning", get<get_forced, kHeightMotor>, put<put_forced, kHeightMotor>},
};

}  // namespace

constinit const route_group service_routes(kRows<kPaths, route_counts{.get = 8, .put = 8, .post = 2}>);
