#include "recorder/api.h"

#include "app/trace.h"
#include "http/json_body.h"
#include "http/response.h"
#include "recorder/recorder.h"

namespace {

int post_action(http_connection* connection, const char* name, int (*action)()) {
  trace(kTraceApi, "%s", name);
  return send_status(connection, action() >= 0);
}

// A text of at most `Size` - 1 characters and the way it is stored.
struct text_route {
  const char* key;
  const char* message;  // its label in the trace
  size_t size;          // of the buffer: longer texts are cut
  void (*load)(char* text, size_t size);
  void (*set)(const char* text);
};

constexpr text_route kTitle{"title", "title", 41, orb_load_recorder_title, orb_set_recorder_title};
constexpr text_route kFlowDirection{"flow_direction", "flow direction", 16, orb_load_recorder_flow_direction,
                                    orb_set_recorder_flow_direction};
constexpr text_route kOperatorId{"operator_id", "operator id", 41, orb_load_recorder_operator_id,
                                 orb_set_recorder_operator_id};
constexpr text_route kFilename{"filename", "filename", 81, orb_load_recorder_filename,
                               orb_set_recorder_filename};

int send_text(http_connection* connection, const text_route& route) {
  char text[kRecorderTextSize];
  route.load(text, sizeof text);
  return send_member(connection, route.key, json_object_new_string(text));
}

int store_text(http_connection* connection, const char* body, unsigned long length, const text_route& route) {
  const json_owner object = read_json_body(connection, body, length);
  char text[kRecorderTextSize];
  const bool given = copy_body_text(object.get(), route.key, text, route.size);
  trace(kTraceApi, "%s '%s'", route.message, text);
  if (given) route.set(text);
  return send_status(connection, true);
}

}  // namespace

int post_recorder_start(http_connection* connection, const char*, unsigned long, void*) {
  return post_action(connection, "start", orb_start_recorder);
}

int post_recorder_stop(http_connection* connection, const char*, unsigned long, void*) {
  return post_action(connection, "stop", orb_stop_recorder);
}

int post_recorder_pause(http_connection* connection, const char*, unsigned long, void*) {
  return post_action(connection, "pause", orb_pause_recorder);
}

int post_recorder_resume(http_connection* connection, const char*, unsigned long, void*) {
  return post_action(connection, "resume", orb_resume_recorder);
}

int get_title(http_connection* connection, const char*, unsigned long, void*) {
  return send_text(connection, kTitle);
}

int put_title(http_connection* connection, const char* body, unsigned long length, void*) {
  return store_text(connection, body, length, kTitle);
}

int get_flow_direction(http_connection* connection, const char*, unsigned long, void*) {
  return send_text(connection, kFlowDirection);
}

int put_flow_direction(http_connection* connection, const char* body, unsigned long length, void*) {
  return store_text(connection, body, length, kFlowDirection);
}

int get_operator_id(http_connection* connection, const char*, unsigned long, void*) {
  return send_text(connection, kOperatorId);
}

int put_operator_id(http_connection* connection, const char* body, unsigned long length, void*) {
  return store_text(connection, body, length, kOperatorId);
}

int get_filename(http_connection* connection, const char*, unsigned long, void*) {
  return send_text(connection, kFilename);
}

int put_filename(http_connection* connection, const char* body, unsigned long length, void*) {
  return store_text(connection, body, length, kFilename);
}
