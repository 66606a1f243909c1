// The handlers of "/api/debug", "/api/shutdown", "/api/eject" and "/api/trace/mask".

#include <cstdint>
#include <optional>

#include "api/status_routes.h"
#include "base/trace.h"
#include "http/json_body.h"
#include "http/response.h"
#include "supervisor/shutdown.h"
#include "usb/stick.h"

constinit debug_flag debug_flags[kDebugWarningCount] = {
    {"debug_crit_temp_warning"},  {"debug_high_temp_warning"}, {"debug_low_temp_warning"},
    {"debug_high_press_warning"}, {"debug_high_rh_warning"},   {"debug_tilt_mtr_warning"},
    {"debug_pan_mtr_warning"},    {"debug_height_mtr_warning"}};

int send_debug_flag(http_connection* connection, debug_warning warning) {
  const debug_flag& flag = debug_flags[warning];
  return send_member(connection, flag.key, json_object_new_boolean(flag.is_on));
}

// A body that says nothing clears the flag.
int take_debug_flag(http_connection* connection, const char* body, unsigned long length,
                    debug_warning warning) {
  constexpr size_t kPrefix = sizeof "debug_" - 1;
  debug_flag& flag = debug_flags[warning];
  const json_owner object = read_json_body(connection, body, length);
  flag.is_on = body_flag(object.get(), flag.key).value_or(false);
  trace(kTraceApi, "debug %s %d", flag.key + kPrefix, flag.is_on ? 1 : 0);
  return send_status(connection, true);
}

int post_shutdown(http_connection* connection, const char* body, unsigned long length, void*) {
  const json_owner object = read_json_body(connection, body, length);
  const int type = body_text_number(object.get(), "shutdown_type").value_or(0);
  trace(kTraceApi, "shutdown %d", type);
  orb_trigger_supervisor_shutdown(type);
  return send_status(connection, true);
}

int post_eject(http_connection* connection, const char*, unsigned long, void*) {
  trace(kTraceApi, "eject");
  return send_status(connection, orb_request_supervisor_eject() >= 0);
}

// As a signed number, like the one that a client has to send for the highest bit.
int get_trace_mask_value(http_connection* connection, const char*, unsigned long, void*) {
  return send_member(connection, "trace_mask", json_object_new_int(static_cast<int>(get_trace_mask())));
}

// The mask holds when the file's monitor has read it.
int put_trace_mask_value(http_connection* connection, const char* body, unsigned long length, void*) {
  const json_owner object = read_json_body(connection, body, length);
  const std::optional<int> number = body_integer(object.get(), "trace_mask");
  const auto mask = static_cast<uint32_t>(number.value_or(-1));
  trace(kTraceApi, "trace mask %d %08lX", number ? 1 : 0, static_cast<unsigned long>(mask));
  return send_status(connection, number && set_trace_mask(mask) >= 0);
}
