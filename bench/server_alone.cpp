// The daemon's HTTP server with two constant answers: what it costs without the daemon's routes and handlers.
// server_alone PORT

#include <csignal>
#include <cstdlib>
#include <string>

#include "api/http_thread.h"
#include "bench/served.h"
#include "http/server.h"

namespace {

struct answer {
  explicit answer(const served& what) : body(read_answer(what)) {
    const std::string whole = whole_answer(body);
    header = whole.substr(0, whole.size() - body.size());
  }
  std::string body;
  std::string header;
};

int send_answer(http_connection* connection, const char*, unsigned long, void* user_data) {
  const auto* what = static_cast<const answer*>(user_data);
  http_connection_send(connection, what->header.data(), what->header.size(), what->body.data(),
                       what->body.size());
  return 0;
}

}  // namespace

int main(int count, char** arguments) {
  if (count < 2) return 2;
  signal(SIGPIPE, SIG_IGN);
  http_server* server =
      http_server_init(static_cast<unsigned short>(strtol(arguments[1], nullptr, 10)), kHttpConnections);
  if (server == nullptr) return 1;
  for (const served& what : {kSmall, kStatus})
    http_server_register_handler(server, "GET", what.path.data(), send_answer, nullptr, new answer(what));
  while (http_server_process_events(server, 100) == 0) {
  }
  return 1;
}
