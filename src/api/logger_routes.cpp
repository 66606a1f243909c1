#include "api/logger_routes.h"

#include <string>

#include "api/files_route.h"
#include "base/trace.h"
#include "http/json_body.h"
#include "http/response.h"
#include "log_files/current_readings.h"
#include "log_files/log_files.h"
#include "store/logger.h"

namespace {

int send_json(http_connection* connection, json_owner value) {
  json_response_handler(connection, value.release());
  return 0;
}

}  // namespace

int get_logger_readings(http_connection* connection, const char*, unsigned long, void*) {
  trace(kTraceApi, "get logger readings");
  return send_json(connection, orb_get_logger_current_readings());
}

int get_log_file(http_connection* connection, const char* body, unsigned long length, void*) {
  const json_owner object = read_json_body(connection, body, length);
  if (!text_member(object.get(), "file_name")) return send_status(connection, false);
  const std::string name = json_text(object.get(), "file_name");
  trace(kTraceApi, "read logger file '%s'", name.c_str());
  return send_json(connection, orb_get_logger_file_readings(name));
}

int post_log_file(http_connection* connection, const char*, unsigned long, void*) {
  trace(kTraceApi, "create logger file");
  return send_status(connection, orb_create_logger_file() == 0);
}

int post_logger_reset(http_connection* connection, const char*, unsigned long, void*) {
  trace(kTraceApi, "logger reset");
  return send_status(connection, orb_reset_logger() == 0);
}

int get_logger_files(http_connection* connection, const char*, unsigned long, void*) {
  trace(kTraceApi, "logger files");
  return send_json(connection, orb_get_logger_files());
}

int post_logger_copy(http_connection* connection, const char* body, unsigned long length, void*) {
  return hand_files_over(connection, body, length, orb_copy_logger_files);
}

int post_logger_delete(http_connection* connection, const char* body, unsigned long length, void*) {
  trace(kTraceApi, "logger delete");
  return hand_files_over(connection, body, length, orb_delete_logger_files);
}
