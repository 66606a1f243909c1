// The server with its clients on one thread: it takes a step only when the test makes it.
#pragma once

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <deque>
#include <functional>
#include <string>
#include <string_view>

#include "base/clock.h"
#include "http/routes.h"
#include "http/server.h"

inline constexpr unsigned short kTestPort = 8080;

struct client {
  int fd = socket(AF_INET, SOCK_STREAM, 0);
  std::string received;
  bool ended = false;  // the server has closed
  bool reset = false;  // not in order

  explicit client(unsigned short port = kTestPort) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    EXPECT_EQ(connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address), 0) << errno;
  }
  explicit client(std::string_view text) : client() { send(text); }
  client(const client&) = delete;
  ~client() { close_now(); }

  void send(std::string_view text) const {
    EXPECT_EQ(::send(fd, text.data(), text.size(), MSG_NOSIGNAL), static_cast<ssize_t>(text.size()));
  }
  void end_sending() const { shutdown(fd, SHUT_WR); }
  void close_now() {
    if (fd >= 0) close(fd);
    fd = -1;
  }
  void reset_now() {
    const linger at_once{1, 0};
    setsockopt(fd, SOL_SOCKET, SO_LINGER, &at_once, sizeof at_once);
    close_now();
  }
  void receive(size_t limit = SIZE_MAX) {
    char buffer[65536];
    while (!ended && limit > 0) {
      const ssize_t count = recv(fd, buffer, std::min(limit, sizeof buffer), MSG_DONTWAIT);
      if (count < 0 && errno == EAGAIN) return;
      reset = count < 0;
      ended = count <= 0;
      if (count > 0) received.append(buffer, static_cast<size_t>(count));
      if (count > 0) limit -= static_cast<size_t>(count);
    }
  }
};

using test_handler = std::function<int(http_connection*, std::string_view)>;

struct test_server {
  http_server* server = http_server_init(kTestPort, kHttpConnections);
  std::deque<test_handler> handlers;

  ~test_server() { http_server_destroy(server); }

  void route(const char* method, const char* path, test_handler handler, http_close_handler close = nullptr) {
    handlers.push_back(std::move(handler));
    const auto call = [](http_connection* connection, const char* body, unsigned long length, void* data) {
      return (*static_cast<test_handler*>(data))(connection, {body == nullptr ? "" : body, length});
    };
    EXPECT_EQ(http_server_register_handler(server, method, path, call, close, &handlers.back()), 0);
  }

  // Serves until `done`; false when that takes more than 5 s.
  template <typename Done>
  bool serve_until(Done done) const {
    const int64_t limit_ns = monotonic_ns() + 5'000 * kNanosecondsPerMillisecond;
    while (!done()) {
      if (monotonic_ns() > limit_ns) return false;
      EXPECT_EQ(http_server_process_events(server, 1), 0);
    }
    return true;
  }
  // Serves what there is to do.
  void settle() const {
    for (int i = 0; i < 20; ++i) http_server_process_events(server, 0);
  }
  // Whether it sleeps while nothing happens.
  [[nodiscard]] bool is_idle() const {
    settle();
    const int64_t start_ns = monotonic_ns();
    for (int i = 0; i < 3; ++i) http_server_process_events(server, 50);
    return monotonic_ns() - start_ns > 100 * kNanosecondsPerMillisecond;
  }
  // What a client gets until the server closes.
  [[nodiscard]] std::string ask(std::string_view request) const {
    client one(request);
    EXPECT_TRUE(serve_until([&] { return one.receive(), one.ended; })) << request;
    EXPECT_FALSE(one.reset) << request;
    return one.received;
  }
};
