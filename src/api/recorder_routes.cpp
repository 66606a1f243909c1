#include "api/recorder_routes.h"

#include <cstdio>
#include <iterator>

#include "base/trace.h"
#include "http/json_body.h"
#include "http/response.h"
#include "recorder/gps.h"
#include "recorder/recorder.h"
#include "store/texts.h"

namespace {

int post_action(http_connection* connection, const char* name, int (*action)()) {
  trace(kTraceApi, "%s", name);
  return send_status(connection, action() >= 0);
}

int stop_and_keep() {
  const int result = orb_stop_recorder();
  if (result == 0) keep_stopped_take();
  return result;
}

constexpr const char* kGpsKeys[] = {"gps_latitude", "gps_longitude", "gps_time"};

}  // namespace

const text_route title_route{"title", "title", 41, orb_load_recorder_title, set_any<orb_set_recorder_title>,
                             true};
const text_route flow_direction_route{"flow_direction",
                                      "flow direction",
                                      16,
                                      orb_load_recorder_flow_direction,
                                      set_any<orb_set_recorder_flow_direction>,
                                      true};
const text_route operator_id_route{
    "operator_id", "operator id", 41, orb_load_recorder_operator_id, set_any<orb_set_recorder_operator_id>,
    true};
const text_route filename_route{
    "filename", "filename", 81, orb_load_recorder_filename, set_any<orb_set_recorder_filename>, true};
const text_route gps_data_route{"gps_data", "gps data", 81, orb_load_recorder_gps_data,
                                orb_set_recorder_gps_data};

int post_recorder_start(http_connection* connection, const char*, unsigned long, void*) {
  return post_action(connection, "start", orb_start_recorder);
}

int post_recorder_stop(http_connection* connection, const char*, unsigned long, void*) {
  return post_action(connection, "stop", stop_and_keep);
}

int post_recorder_pause(http_connection* connection, const char*, unsigned long, void*) {
  return post_action(connection, "pause", orb_pause_recorder);
}

int post_recorder_resume(http_connection* connection, const char*, unsigned long, void*) {
  return post_action(connection, "resume", orb_resume_recorder);
}

int get_save_delay(http_connection* connection, const char*, unsigned long, void*) {
  char text[12];
  snprintf(text, sizeof text, "%u", orb_get_recorder_save_delay());
  return send_member(connection, "save_delay", json_object_new_string(text));
}

int put_save_delay(http_connection* connection, const char* body, unsigned long length, void*) {
  const json_owner object = read_json_body(connection, body, length);
  if (!json_object_is_type(object.get(), json_type_object)) return send_status(connection, false);
  const int delay_ms = body_text_number(object.get(), "save_delay").value_or(0);
  trace(kTraceApi, "save delay %d", delay_ms);
  return send_status(connection,
                     delay_ms >= 0 && orb_set_recorder_save_delay(static_cast<uint32_t>(delay_ms)) == 0);
}

int get_gps_location(http_connection* connection, const char*, unsigned long, void*) {
  char texts[3][kRouteTextSize];
  orb_load_recorder_gps_location(texts[0], kRouteTextSize, texts[1], kRouteTextSize, texts[2],
                                 kRouteTextSize);
  return send_object(connection, [&](json_object* answer) {
    for (size_t i = 0; i < std::size(kGpsKeys); ++i)
      json_object_object_add(answer, kGpsKeys[i], json_object_new_string(texts[i]));
  });
}

int put_gps_location(http_connection* connection, const char* body, unsigned long length, void*) {
  const json_owner object = read_json_body(connection, body, length);
  char texts[3][kRouteTextSize];
  bool given = true;
  for (size_t i = 0; i < std::size(kGpsKeys); ++i)
    given = copy_body_text(object.get(), kGpsKeys[i], texts[i], kRouteTextSize) && given;
  if (given) {
    trace(kTraceApi, "gps location '%s' '%s' '%s'", texts[0], texts[1], texts[2]);
    orb_set_recorder_gps_location(texts[0], texts[1], texts[2]);
  }
  return send_status(connection, true);
}
