// The servers that the daemon's is measured against, with its two answers as constants: a bare loop, the
// least that a request can cost here, and two libraries. Not linked with libev: that has functions of
// libevent's names.
// server_others PORT bare|microhttpd|evhttp

#include <netinet/in.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "bench/served.h"

#ifdef WITH_MICROHTTPD
#include <microhttpd.h>
#endif
#ifdef WITH_EVHTTP
#include <event2/buffer.h>
#include <event2/event.h>
#include <event2/http.h>
#endif

namespace {

struct bodies {
  std::string small = read_answer(kSmall);
  std::string status = read_answer(kStatus);
};

bool is_small(std::string_view path) { return path.starts_with(kSmall.path); }

int listen_on(uint16_t port) {
  const int fd = socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  const int on = 1;
  setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  if (bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 || listen(fd, 64) != 0)
    exit(1);
  return fd;
}

bool watch(int epoll, int fd) {
  epoll_event event{.events = EPOLLIN, .data = {.fd = fd}};
  return epoll_ctl(epoll, EPOLL_CTL_ADD, fd, &event) == 0;
}

// One connection a wakeup; its request is read at once, and waited for only when it is not there yet. It has
// to come in one piece: nothing is parsed but its end.
class bare_loop {
 public:
  explicit bare_loop(uint16_t port) : listener_(listen_on(port)) { watch(epoll_, listener_); }

  void run() {
    epoll_event events[16];
    for (;;) {
      const int count = epoll_wait(epoll_, events, 16, -1);
      for (int i = 0; i < count; ++i) {
        const int fd = events[i].data.fd;
        if (fd != listener_) {
          serve(fd, true);
        } else if (const int taken = accept4(fd, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
                   taken >= 0) {
          serve(taken, false);
        }
      }
    }
  }

 private:
  void serve(int fd, bool is_watched) {
    char request[8192];
    const ssize_t count = recv(fd, request, sizeof request, 0);
    if (count < 0 && errno == EAGAIN && (is_watched || watch(epoll_, fd))) return;
    const std::string_view text(request, count < 0 ? 0 : static_cast<size_t>(count));
    if (text.find("\r\n\r\n") != std::string_view::npos) {
      const std::string& answer = is_small(text.substr(4)) ? small_ : status_;
      send(fd, answer.data(), answer.size(), MSG_NOSIGNAL);
    }
    close(fd);
  }

  std::string small_ = whole_answer(bodies().small);
  std::string status_ = whole_answer(bodies().status);
  int epoll_ = epoll_create1(EPOLL_CLOEXEC);
  int listener_;
};

int serve_bare(uint16_t port) { return bare_loop(port).run(), 1; }

#ifdef WITH_MICROHTTPD
struct microhttpd_answers {
  explicit microhttpd_answers(bodies& from) : small(make(from.small)), status(make(from.status)) {}

  static MHD_Response* make(std::string& body) {
    MHD_Response* response =
        MHD_create_response_from_buffer(body.size(), body.data(), MHD_RESPMEM_PERSISTENT);
    MHD_add_response_header(response, MHD_HTTP_HEADER_CONTENT_TYPE, kJson);
    MHD_add_response_header(response, MHD_HTTP_HEADER_CONNECTION, "close");
    return response;
  }

  MHD_Response* small;
  MHD_Response* status;
};

// Called for the header, and again when the whole request is there.
MHD_Result answer_microhttpd(void* user_data, MHD_Connection* connection, const char* path, const char*,
                             const char*, const char*, size_t*, void** seen) {
  if (*seen == nullptr) return *seen = user_data, MHD_YES;
  const auto* answers = static_cast<const microhttpd_answers*>(user_data);
  return MHD_queue_response(connection, MHD_HTTP_OK, is_small(path) ? answers->small : answers->status);
}

int serve_microhttpd(uint16_t port) {
  bodies texts;
  microhttpd_answers answers(texts);
  MHD_Daemon* daemon = MHD_start_daemon(MHD_USE_EPOLL | MHD_USE_TURBO | MHD_USE_SUPPRESS_DATE_NO_CLOCK, port,
                                        nullptr, nullptr, answer_microhttpd, &answers, MHD_OPTION_END);
  if (daemon == nullptr) return 1;
  while (MHD_run_wait(daemon, 100) == MHD_YES) {
  }
  return 1;
}
#endif

#ifdef WITH_EVHTTP
void answer_evhttp(evhttp_request* request, void* user_data) {
  const auto* texts = static_cast<const bodies*>(user_data);
  const std::string& body = is_small(evhttp_request_get_uri(request)) ? texts->small : texts->status;
  evkeyvalq* headers = evhttp_request_get_output_headers(request);
  evhttp_add_header(headers, "Content-Type", kJson);
  evhttp_add_header(headers, "Connection", "close");
  evbuffer_add_reference(evhttp_request_get_output_buffer(request), body.data(), body.size(), nullptr,
                         nullptr);
  evhttp_send_reply(request, 200, "OK", nullptr);
}

int serve_evhttp(uint16_t port) {
  bodies texts;
  event_base* base = event_base_new();
  evhttp* server = evhttp_new(base);
  if (evhttp_bind_socket(server, "0.0.0.0", port) != 0) return 1;
  evhttp_set_gencb(server, answer_evhttp, &texts);
  event_base_dispatch(base);
  return 1;
}
#endif

}  // namespace

int main(int count, char** arguments) {
  if (count != 3) return 2;
  signal(SIGPIPE, SIG_IGN);
  const auto port = static_cast<uint16_t>(strtol(arguments[1], nullptr, 10));
  const std::string_view name = arguments[2];
  if (name == "bare") return serve_bare(port);
#ifdef WITH_MICROHTTPD
  if (name == "microhttpd") return serve_microhttpd(port);
#endif
#ifdef WITH_EVHTTP
  if (name == "evhttp") return serve_evhttp(port);
#endif
  return 2;
}
