// Requests for a job on files: {"files": [...]}. Its lane.
#pragma once

#include <utility>

#include "base/trace.h"
#include "http/json_body.h"
#include "http/response.h"

struct files_route {
  // Takes the array over with the value that owns it: 0, 1 when it is busy, -1. The array is null when the
  // body has none.
  int (*start)(json_object* list, json_owner root);
  const char* message;  // in the trace; null: none
};

inline int post_files(http_connection* connection, const char* body, unsigned long length,
                      const files_route& route) {
  if (route.message != nullptr) trace(kTraceApi, "%s", route.message);
  json_owner root = read_json_body(connection, body, length);
  json_object* list = json_member(root.get(), "files");
  return send_job_status(connection, route.start(list, std::move(root)));
}
