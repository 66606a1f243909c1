// "/api/logger": the readings of now, and the log files.

#include <string>

#include "api/files_route.h"
#include "api/routes.h"
#include "base/trace.h"
#include "http/response.h"
#include "log_files/current_readings.h"
#include "log_files/log_files.h"
#include "store/logger.h"

namespace {

constexpr files_route kCopy{orb_copy_logger_files, nullptr};
constexpr files_route kDelete{orb_delete_logger_files, "logger delete"};

int get_readings(http_connection* connection) {
  trace(kTraceApi, "get logger readings");
  return send_json(connection, orb_get_logger_current_readings());
}

int get_file(http_connection* connection, json_object* body) {
  if (!text_member(body, "file_name")) return send_status(connection, false);
  const std::string name = json_text(body, "file_name");
  trace(kTraceApi, "read logger file '%s'", name.c_str());
  return send_json(connection, orb_get_logger_file_readings(name));
}

int post_file(http_connection* connection) {
  trace(kTraceApi, "create logger file");
  return send_status(connection, orb_create_logger_file() == 0);
}

int post_reset(http_connection* connection) {
  trace(kTraceApi, "logger reset");
  return send_status(connection, orb_reset_logger() == 0);
}

int get_files(http_connection* connection) {
  trace(kTraceApi, "logger files");
  return send_json_text(connection, orb_get_logger_files());
}

constexpr http_path kPaths[] = {
    {"/api/logger/readings", get<get_readings>.in(files_lane)},
    {"/api/logger/log_file", get<get_file>.in(files_lane), post<post_file>.in(store_lane)},
    {"/api/logger/reset", post<post_reset>.in(store_lane)},
    {"/api/logger/files", get<get_files>.in(files_lane)},
    {"/api/logger/copy", post<post_files, kCopy>.in(files_lane)},
    {"/api/logger/delete", post<post_files, kDelete>.in(files_lane)},
};

}  // namespace

constinit const route_group logger_routes(kRows<kPaths, route_counts{.get = 3, .post = 4}>);
