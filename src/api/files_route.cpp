#include "api/files_route.h"

#include <utility>

#include "base/trace.h"
#include "http/json_body.h"
#include "http/response.h"

int post_files(http_connection* connection, const char* body, unsigned long length,
               const files_route& route) {
  if (route.message != nullptr) trace(kTraceApi, "%s", route.message);
  json_owner root = read_json_body(connection, body, length);
  json_object* list = json_member(root.get(), "files");
  return send_job_status(connection, route.start(list, std::move(root)));
}
