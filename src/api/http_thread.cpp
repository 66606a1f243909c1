#include "api/http_thread.h"

#include "api/lens_speeds.h"
#include "api/routes.h"
#include "base/clock.h"
#include "base/paths.h"
#include "base/trace.h"
#include "base/value_file.h"
#include "camera/speeds.h"
#include "power_board/lighting.h"
#include "seats/seats.h"

namespace {

constexpr int kEventWait_ms = 100;

// The port lies among those that the kernel gives to outgoing connections, so something may hold it for a
// moment at start; a unit without its API would be of no use until the next start.
constexpr int kStartAttempts = 10;
constexpr int64_t kStartPause_ms = 500;

// The current values that other programs read start afresh with the daemon.
void prepare_shared_state() {
  init_seats();
  init_lighting();
  write_value_file(paths::kIntensity, kStartIntensity);
  write_value_file(paths::kFocusSpeed, kDefaultFocusSpeed);
  write_value_file(paths::kZoomSpeed, kDefaultZoomSpeed);
}

http_server* start_server() {
  for (int attempt = 1;; ++attempt) {
    http_server* server = http_server_init(addresses::kApiPort, kHttpConnections);
    if (server != nullptr || attempt == kStartAttempts) return server;
    sleep_ms(kStartPause_ms);
  }
}

int ask_lane(http_connection* connection, const char*, unsigned long, void* row) {
  const auto* asked = static_cast<const http_route_row*>(row);
  return answer_in_lane(asked->lane, connection, asked->handler);
}

void register_routes(http_server* server) {
  for (const route_group* group : route_groups()) {
    for (const http_route_row& row : *group) {
      http_server_register_handler(server, row.method, row.path, row.lane == nullptr ? row.handler : ask_lane,
                                   nullptr, const_cast<http_route_row*>(&row));
    }
  }
}

}  // namespace

int http_server_thread() {
  trace(kTraceHttpServer, "thread start");
  http_server* server = start_server();
  if (server == nullptr) return -1;
  prepare_shared_state();
  watch_lens_speeds(server);
  register_routes(server);
  for (;;) {
    if (http_server_process_events(server, kEventWait_ms) != 0) sleep_ms(kEventWait_ms);
  }
}
