#include "api/text_route.h"

#include "base/trace.h"
#include "http/json_body.h"
#include "http/response.h"

int get_text(http_connection* connection, const text_route& route) {
  char text[kRouteTextSize];
  route.load(text, sizeof text);
  return send_text(connection, route.key, text);
}

int put_text(http_connection* connection, json_object* body, const text_route& route) {
  char text[kRouteTextSize];
  if (!copy_body_text(body, route.key, text, route.size)) return send_status(connection, route.is_optional);
  trace(kTraceApi, "%s '%s'", route.label, text);
  return send_status(connection, route.set(text) >= 0);
}
