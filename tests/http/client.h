// The server with its clients on one thread: it takes a step only when the test makes it.
#pragma once

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <string_view>
#include <vector>

#include "base/clock.h"
#include "http/routes.h"
#include "http/server.h"

inline constexpr unsigned short kTestPort = 8080;

struct client {
  int fd = socket(AF_INET, SOCK_STREAM, 0);
  std::string received;
  bool ended = false;  // the server has closed
  bool reset = false;  // not in order

  explicit client(std::string_view request = "", unsigned short port = kTestPort) {
    sockaddr_in address{AF_INET, htons(port), {htonl(INADDR_LOOPBACK)}, {}};
    EXPECT_EQ(connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    send(request);
  }
  client(const client&) = delete;
  ~client() { drop(false); }

  void send(std::string_view text) const {
    EXPECT_EQ(::send(fd, text.data(), text.size(), MSG_NOSIGNAL), static_cast<ssize_t>(text.size()));
  }
  void drop(bool with_reset) {
    const linger at_once{with_reset, 0};
    setsockopt(fd, SOL_SOCKET, SO_LINGER, &at_once, sizeof at_once);
    if (fd >= 0) close(fd);
    fd = -1;
  }
  // Takes what is there, in reads of 64 KiB. True when that was the last of it.
  bool receive(int reads = 1000) {
    std::vector<char> buffer(65536);
    for (; !ended && reads > 0; --reads) {
      const ssize_t count = recv(fd, buffer.data(), buffer.size(), MSG_DONTWAIT);
      if (count < 0 && errno == EAGAIN) break;
      reset = count < 0;
      ended = count <= 0;
      if (!ended) received.append(buffer.data(), static_cast<size_t>(count));
    }
    if (!ended) return false;
    int error = 0;  // a reset behind the end shows nowhere else
    socklen_t size = sizeof error;
    reset = getsockopt(fd, SOL_SOCKET, SO_ERROR, &error, &size) != 0 || error != 0 || reset;
    return true;
  }
};

struct test_server {
  http_server* server = http_server_init(kTestPort, kHttpConnections);

  ~test_server() { http_server_destroy(server); }

  void route(const char* method, const char* path, http_handler handler, const void* data = nullptr) const {
    EXPECT_EQ(http_server_register_handler(server, method, path, handler, nullptr, const_cast<void*>(data)),
              0);
  }
  // Serves until `done`; false when that takes more than 5 s.
  template <typename Done>
  bool serve_until(Done done) const {
    const int64_t limit_ns = monotonic_ns() + 5'000 * kNanosecondsPerMillisecond;
    while (!done() && monotonic_ns() < limit_ns) http_server_process_events(server, 1);
    return done();
  }
  // What the client gets until the server closes.
  std::string reply_to(client* one) const {
    EXPECT_TRUE(serve_until([&] { return one->receive(); }));
    return one->reset ? "reset" : one->received;
  }
  [[nodiscard]] std::string ask(std::string_view request) const {
    client one(request);
    return reply_to(&one);
  }
  // Serves what there is to do; whether it then sleeps most of the time.
  bool settle(int wait_ms = 0) const {
    for (int i = 0; i < 20; ++i) http_server_process_events(server, 0);
    const int64_t start_ns = monotonic_ns();
    for (int i = 0; i < 8; ++i) http_server_process_events(server, wait_ms);
    return monotonic_ns() - start_ns > 3 * wait_ms * kNanosecondsPerMillisecond;
  }
};
