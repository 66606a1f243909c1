// The server under clients that are many, slow, silent or gone.
#include <fcntl.h>
#include <netinet/tcp.h>
#include <sys/resource.h>

#include <list>

#include "http/client.h"
#include "http/response.h"

namespace {

constexpr char kGet[] = "GET /a HTTP/1.1\r\n\r\n";

// "/a" answers at once, "/large" with more than any socket takes at once.
struct busy_server : test_server {
  std::string large = std::string(12 << 20, 'x');
  std::string seen;  // bodies
  int calls = 0;

  busy_server() {
    for (size_t i = 0; i < large.size(); i += 1000) large[i] = static_cast<char>('a' + i / 1000 % 26);
    route("*", "/a", [&](http_connection* c, std::string_view body) {
      ++calls;
      seen = body;
      return send_status(c, true);
    });
    route("GET", "/large", [&](http_connection* c, std::string_view) {
      http_connection_send(c, "head", 4, large.data(), large.size());
      return 0;
    });
  }
  void expect_served(const char* what) const {
    EXPECT_TRUE(ask(kGet).ends_with("{\"status\":\"OK\"}")) << what;
  }
};

TEST(HttpServer, LetsTheSixteenthWait) {
  const busy_server unit;
  std::list<client> idle(kHttpConnections);
  EXPECT_TRUE(unit.serve_until([&] { return unit.server->active_count == kHttpConnections; }));
  client next{std::string_view(kGet)};
  EXPECT_TRUE(unit.is_idle()) << "full, and one waits";
  next.receive();
  EXPECT_TRUE(next.received.empty() && !next.ended);
  idle.back().send("GET /"), unit.settle();
  idle.pop_back();
  EXPECT_TRUE(unit.serve_until([&] { return next.receive(), next.ended; }));
  EXPECT_TRUE(next.received.ends_with("{\"status\":\"OK\"}"));
  unit.expect_served("as the fifteenth");
  EXPECT_EQ(unit.server->active_count, kHttpConnections - 1U) << "idle peers keep their places";
  EXPECT_EQ(unit.server->accepted_count, kHttpConnections + 2U);
}

TEST(HttpServer, ClosesOnceWhenThePeerHangsUp) {
  busy_server unit;
  const std::string body(100'000, 'b');
  const std::string put = "PUT /a HTTP/1.1\r\nContent-Length: 100000\r\n\r\n" + body;
  struct {
    std::string_view name, sent;
    bool answered;
  } const cases[] = {{"request", kGet, true},
                     {"large request", put, true},
                     {"large request cut short", std::string_view(put).substr(0, put.size() - 1), false},
                     {"half a request", "GET /a HT", false},
                     {"malformed", "G/T /a HTTP/1.1\r\n\r\nGET /a HTTP/1.1\r\n\r\n", false},
                     {"nothing", "", false}};
  for (const auto& [name, sent, answered] : cases) {
    for (const bool at_once : {true, false}) {
      SCOPED_TRACE(std::string(name) + (at_once ? ", at once" : ", later"));
      unit.calls = 0;
      client one(sent);
      if (!at_once) {
        unit.settle();
        EXPECT_EQ(unit.server->active_count, answered ? 0U : 1U) << "silence leaves it open";
      }
      one.end_sending();
      EXPECT_TRUE(unit.serve_until([&] { return one.receive(), one.ended; }));
      EXPECT_FALSE(one.reset);
      EXPECT_EQ(one.received.ends_with("{\"status\":\"OK\"}"), answered);
      EXPECT_EQ(one.received.empty(), !answered);
      EXPECT_EQ(unit.calls, answered ? 1 : 0);
      EXPECT_EQ(unit.server->active_count, 0U);
      if (sent == put) {
        EXPECT_EQ(unit.seen, body);
      }
    }
  }
}

TEST(HttpServer, KeepsAStreamBoundToItsRoute) {
  static int closed;
  busy_server unit;
  std::string stream;
  unit.route(
      "PUT", "/stream",
      [&](http_connection*, std::string_view bytes) {
        stream += std::string(bytes) + "|";
        return 1;
      },
      [](http_connection*, void*, http_route* route) { closed += route->path == std::string("/stream"); });
  client one(std::string_view("PUT /stream HTTP/1.1\r\nContent-Length: 3\r\n\r\none"));
  unit.settle();
  one.send("two");
  unit.settle();
  EXPECT_EQ(stream, "one|two|");
  one.end_sending();
  EXPECT_TRUE(unit.serve_until([&] { return one.receive(), one.ended; }));
  EXPECT_EQ(closed, 1);
  EXPECT_EQ(unit.server->active_count, 0U);
}

TEST(HttpServer, ServesOthersBesideASlowSender) {
  const busy_server unit;
  client slow;
  for (const char byte : std::string_view(kGet)) {
    EXPECT_FALSE(slow.ended);
    slow.send({&byte, 1});
    unit.expect_served("beside it");
  }
  EXPECT_TRUE(unit.serve_until([&] { return slow.receive(), slow.ended; }));
  EXPECT_TRUE(slow.received.ends_with("{\"status\":\"OK\"}"));
}

TEST(HttpServer, ServesOthersBesideASlowReader) {
  const busy_server unit;
  for (const bool half_closed : {false, true}) {
    SCOPED_TRACE(half_closed);
    client slow(std::string_view("GET /large HTTP/1.1\r\n\r\n"));
    if (half_closed) slow.end_sending();
    unit.settle();
    EXPECT_TRUE(unit.is_idle()) << "waits for the reader";
    for (int i = 0; i < 20; ++i) {
      slow.receive(100'000);
      unit.expect_served("beside it");
    }
    EXPECT_FALSE(slow.ended);
    EXPECT_TRUE(unit.serve_until([&] { return slow.receive(), slow.ended; }));
    EXPECT_FALSE(slow.reset);
    EXPECT_TRUE(slow.received == "head" + unit.large);
  }
}

TEST(HttpServer, DropsAReaderThatStallsForFiveSeconds) {
  const busy_server unit;
  client stalled(std::string_view("GET /large HTTP/1.1\r\n\r\n"));
  EXPECT_TRUE(
      unit.serve_until([&] { return unit.server->active != nullptr && unit.server->active->unsent; }));
  unit.settle();
  const auto pass_ms = [&](int64_t ms) {
    unit.server->active->progress_ns = monotonic_ns() - ms * kNanosecondsPerMillisecond;
    unit.settle();
  };
  pass_ms(4'500);
  EXPECT_EQ(unit.server->active_count, 1U);
  stalled.receive(4'000'000);
  EXPECT_TRUE(unit.serve_until([&] {
    return unit.server->active->progress_ns > monotonic_ns() - kNanosecondsPerMillisecond * 1000;
  })) << "what it takes counts as progress";
  pass_ms(5'001);
  EXPECT_EQ(unit.server->active_count, 0U);
  stalled.receive();
  EXPECT_TRUE(stalled.ended);
  EXPECT_LT(stalled.received.size(), unit.large.size());
}

int open_descriptors() {
  int count = 0;
  for (int fd = 0; fd < 1024; ++fd) count += fcntl(fd, F_GETFD) >= 0;
  return count;
}

TEST(HttpServer, OutlivesClientsThatGo) {
  busy_server unit;
  client* answered = nullptr;
  unit.route("GET", "/gone", [&](http_connection* c, std::string_view) {
    answered->reset_now();
    for (int i = 0; i < 3; ++i) response_handler(c);  // would raise SIGPIPE
    return 0;
  });
  client gone(std::string_view("GET /gone HTTP/1.1\r\n\r\n"));
  answered = &gone;
  unit.settle();
  EXPECT_EQ(unit.server->active_count, 0U);
  const int open_before = open_descriptors();
  const char* const sent[] = {"", "GET /a HT", kGet, "GET /large HTTP/1.1\r\n\r\n",
                              "PUT /a HTTP/1.1\r\nContent-Length: 9000000\r\n\r\nx"};
  const int64_t start_ns = monotonic_ns();
  for (int i = 0; i < 10'000; ++i) {
    client one(std::string_view(sent[i % 5]));
    if (i % 3 != 0) http_server_process_events(unit.server, 0);
    if (i % 2 != 0) one.reset_now();
    one.close_now();
    if (i % 10 == 9) {
      ASSERT_TRUE(unit.serve_until([&] { return unit.server->active_count == 0; })) << i;
    }
  }
  EXPECT_LT(monotonic_ns() - start_ns, 60'000 * kNanosecondsPerMillisecond);
  EXPECT_EQ(open_descriptors(), open_before);
  unit.expect_served("afterwards");
}

TEST(HttpServer, SleepsWhileDescriptorsAreOut) {
  const busy_server unit;
  client one{std::string_view(kGet)};
  rlimit usual{};
  getrlimit(RLIMIT_NOFILE, &usual);
  const rlimit none{3, usual.rlim_max};
  setrlimit(RLIMIT_NOFILE, &none);
  EXPECT_TRUE(unit.is_idle());
  setrlimit(RLIMIT_NOFILE, &usual);
  EXPECT_TRUE(unit.serve_until([&] { return one.receive(), one.ended; }));
  EXPECT_TRUE(one.received.ends_with("{\"status\":\"OK\"}"));
}

TEST(HttpServer, FindsADeadPeerInFifteenSeconds) {
  const busy_server unit;
  const client idle;
  EXPECT_TRUE(unit.serve_until([&] { return unit.server->active_count == 1; }));
  const auto option = [&](int level, int name) {
    int value = -1;
    socklen_t size = sizeof value;
    EXPECT_EQ(getsockopt(unit.server->active->fd, level, name, &value, &size), 0);
    return value;
  };
  EXPECT_EQ(option(SOL_SOCKET, SO_KEEPALIVE), 1);
  const int seconds = option(IPPROTO_TCP, TCP_KEEPIDLE) +
                      option(IPPROTO_TCP, TCP_KEEPINTVL) * option(IPPROTO_TCP, TCP_KEEPCNT);
  EXPECT_GE(seconds, 10);
  EXPECT_LE(seconds, 16);
}

}  // namespace
