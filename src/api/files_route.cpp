#include "api/files_route.h"

#include <utility>

#include "http/json_body.h"
#include "http/response.h"

int hand_files_over(http_connection* connection, const char* body, unsigned long length, files_job* job) {
  json_owner root = read_json_body(connection, body, length);
  json_object* list = json_member(root.get(), "files");
  return send_job_status(connection, job(list, std::move(root)));
}
