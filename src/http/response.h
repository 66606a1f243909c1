// The reply forms of the API. Each echoes the request's HTTP version into its status line. HTTP server
// thread.
#pragma once

#include <string>
#include <string_view>
#include <utility>

#include "base/json.h"

struct http_connection;

// 200 with a picture as its body.
void jpeg_response_handler(http_connection* connection, std::string_view picture);

// 200 with an empty body.
void response_handler(http_connection* connection);

// The version-1.0 routes: 200 with "Connection: close" and the object (taken over) or "{}" as its body.
void json_v1_response_handler(http_connection* connection, json_object* object);
void json_v1_text_response_handler(http_connection* connection, std::string_view json);
void empty_v1_response_handler(http_connection* connection);

// 204 without headers: the version-1.0 laser commands.
void no_content_response_handler(http_connection* connection);

// {"status": "OK"} when `good`, else {"status": "BAD_REQUEST"}. Returns 0, the result of a handler.
int send_status(http_connection* connection, bool good);

// The same of an operation that may be occupied: 0 is "OK", 1 "BUSY", anything else "BAD_REQUEST".
int send_job_status(http_connection* connection, int result);

// Adds {"status": "OK"} or {"status": "BAD_REQUEST"} to an answer that has other members too.
void add_status(json_object* answer, bool good);

// 200 with an object of one member, or with `value` as it is: null, which could not be made, sends nothing.
// Return 0.
int send_text(http_connection* connection, const char* key, const std::string& text);
int send_number(http_connection* connection, const char* key, int64_t number);
int send_flag(http_connection* connection, const char* key, bool is_on);
int send_json(http_connection* connection, json_owner value);

// 200 with what is JSON already. Returns 0.
int send_json_text(http_connection* connection, std::string_view json);

// 200 with an object that `fill` adds its members to. Returns 0.
template <typename Fill>
int send_object(http_connection* connection, Fill fill) {
  json_owner object(json_object_new_object());
  if (object) fill(object.get());
  return send_json(connection, std::move(object));
}
