#include "api/text_route.h"

#include "base/trace.h"
#include "http/json_body.h"
#include "http/response.h"

int send_text(http_connection* connection, const text_route& route) {
  char text[kRouteTextSize];
  route.load(text, sizeof text);
  return send_member(connection, route.key, json_object_new_string(text));
}

int store_text(http_connection* connection, const char* body, unsigned long length, const text_route& route) {
  const json_owner object = read_json_body(connection, body, length);
  char text[kRouteTextSize];
  const bool given = copy_body_text(object.get(), route.key, text, route.size);
  if (!given) return send_status(connection, route.is_optional);
  trace(kTraceApi, "%s '%s'", route.message, text);
  return send_status(connection, route.set(text) >= 0);
}
