// The server with its clients on one thread: reply forms byte by byte, routes, and clients that are many,
// slow, silent or gone.
#include "http/server.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <deque>

#include "api/http_thread.h"
#include "api/routes.h"
#include "base/clock.h"
#include "http/lane.h"
#include "http/response.h"

namespace {

constexpr unsigned short kPort = 8080;
const std::string kGet = "GET /small HTTP/1.1\r\n\r\n";
const std::string kGetLarge = "GET /large HTTP/1.1\r\n\r\n";
const std::string kOk =
    "HTTP/1.1 200 OK\r\nContent-Length: 15\r\nContent-Type: application/json\r\n\r\n{\"status\":\"OK\"}";
const std::string kNotFound =
    "HTTP/1.1 404 Not Found\r\nConnection: close\r\nContent-Length: 106\r\n\r\n<!DOCTYPE html>\r\n"
    "<html><head><title>404 Not Found</title></head><body><h2>404 Not Found</h2></body></html>";

struct client {
  int fd = socket(AF_INET, SOCK_STREAM, 0);
  std::string received;  // "reset" when the server has not closed in order

  explicit client(std::string_view request = "") {
    const sockaddr_in address{AF_INET, htons(kPort), {}, {}};
    EXPECT_EQ(connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    send(request);
  }
  client(const client&) = delete;
  ~client() { drop(false); }

  void send(std::string_view text) const { EXPECT_GE(::send(fd, text.data(), text.size(), MSG_NOSIGNAL), 0); }
  void drop(bool with_reset) {
    const linger at_once{with_reset, 0};
    setsockopt(fd, SOL_SOCKET, SO_LINGER, &at_once, sizeof at_once);
    if (fd >= 0) close(fd);
    fd = -1;
  }
  // Takes what is there, in reads of 64 KiB. True when that was the last of it.
  bool receive(int reads = 1000) {
    static char buffer[65536];
    ssize_t count = 1;
    for (; count > 0 && reads > 0; --reads) {
      count = recv(fd, buffer, sizeof buffer, MSG_DONTWAIT);
      if (count < 0 && errno == EAGAIN) return false;
      if (count > 0) received.append(buffer, static_cast<size_t>(count));
    }
    int error = 0;  // a reset behind the end shows nowhere else
    socklen_t size = sizeof error;
    getsockopt(fd, SOL_SOCKET, SO_ERROR, &error, &size);
    if (count < 0 || error != 0) received = "reset";
    return count <= 0;
  }
};

// "/small" answers at once, "/large" with more than any socket takes at once.
struct test_server {
  http_server* server = http_server_init(kPort, kHttpConnections);
  std::string large = std::string(12 << 20, 'x');
  std::string seen;  // bodies sent to "/small"

  test_server() {
    for (size_t i = 0; i < large.size(); ++i) large[i] = static_cast<char>(i / 1000);
    const auto small = [](http_connection* c, const char* body, unsigned long length, void* unit) {
      static_cast<test_server*>(unit)->seen += "(" + std::string(body, body + length) + ")";
      return send_status(c, true);
    };
    const auto many = [](http_connection* c, const char*, unsigned long, void* unit) {
      const std::string& body = static_cast<test_server*>(unit)->large;
      return http_connection_send(c, "head", 4, body.data(), body.size()), 0;
    };
    route("*any", "/small", small, this);
    route("GET", "/large", many, this);
  }
  ~test_server() { http_server_destroy(server); }

  void route(const char* method, const char* path, http_handler handler, const void* data = nullptr) const {
    http_server_register_handler(server, method, path, handler, nullptr, const_cast<void*>(data));
  }
  // Serves until `done`; false when that takes more than 5 s.
  template <typename Done>
  bool serve_until(Done done) const {
    const int64_t limit_ns = monotonic_ns() + 5'000 * kNanosecondsPerMillisecond;
    while (!done() && monotonic_ns() < limit_ns) http_server_process_events(server, 1);
    return done();
  }
  std::string reply_to(client* one) const {
    EXPECT_TRUE(serve_until([&] { return one->receive(); }));
    return one->received;
  }
  std::string ask(std::string_view request) const {
    client one(request);
    return reply_to(&one);
  }
  // Serves what there is to do; whether it then sleeps most of the time.
  bool settle(int wait_ms = 0) const {
    for (int i = 0; i < 20; ++i) http_server_process_events(server, 0);
    const int64_t start_ns = monotonic_ns();
    for (int i = 0; i < 8; ++i) http_server_process_events(server, wait_ms);
    return monotonic_ns() - start_ns > 3 * kNanosecondsPerMillisecond * wait_ms;
  }
};

// Answered at the empty line: the bytes behind it must not take the reply away.
TEST(HttpReply, OutlivesWhatComesBehindItsRequest) {
  const test_server unit;
  const auto object = [](auto* c, auto...) {
    return json_v1_response_handler(c, json_tokener_parse(R"({"path":"\/a"})")), -1;
  };
  unit.route("GET", "/v1", object);
  const std::string late_body = "\r\ncontent-length: 9\r\n\r\n" + std::string(100'000, 'x');
  EXPECT_EQ(unit.ask("GET /v1 HTTP/2.10" + late_body),
            "HTTP/2.10 200 OK\r\nContent-Length: 13\r\nContent-Type: application/json\r\n"
            "Connection: close\r\n\r\n{\"path\":\"/a\"}");
  EXPECT_EQ(unit.ask("PUT /v1 HTTP/1.0" + late_body), kNotFound);
}

// No route hides one that is registered behind it, and no group is forgotten.
TEST(HttpRoutes, TakeRequestsInTheirOrder) {
  const test_server unit;
  const auto tell = [](http_connection* c, const char*, unsigned long, void* data) {
    const auto* row = static_cast<const http_route_row*>(data);
    return http_connection_send(c, row->method, strlen(row->method), row->path, strlen(row->path)), 0;
  };
  const auto taken_by = [&](const std::string& name) { return unit.ask(name + " HTTP/1.1\r\n\r\n"); };
  std::vector<http_route_row> rows;
  for (const route_group* group : route_groups()) rows.insert(rows.end(), group->begin(), group->end());
  EXPECT_EQ(count_rows(rows), (route_counts{.get = 75, .put = 57, .post = 74}));
  for (const http_route_row& row : rows) unit.route(row.method, row.path, tell, &row);
  for (const http_route_row& row : rows) {
    for (const char* more : {"", "?a=/api/1.0/camera", "s/x"})
      EXPECT_EQ(taken_by(std::string(row.method) + " " + row.path + more),
                std::string(row.method) + row.path);
  }
  for (const char* other : {"get /api/camera/defog", "PUTT /api/camera/defog", "GET /api/camera/defo"})
    EXPECT_EQ(taken_by(other), kNotFound) << other;
}

// A request is answered when it is whole, and its peer's place is free again.
TEST(HttpServer, ClosesOnceWhenThePeerHangsUp) {
  test_server unit;
  const std::string body(100'000, 'b');
  const std::string put = "PUT /small HTTP/1.1\r\nContent-Length: 100000\r\n\r\n" + body;
  for (const std::string& sent : {kGet, put, put.substr(0, put.size() - 1), "G/T /" + kGet}) {
    const bool whole = sent == kGet || sent == put;
    for (const bool at_once : {true, false}) {
      SCOPED_TRACE(sent.substr(0, 20) + (at_once ? ", at once" : ", later"));
      unit.seen.clear();
      client one(sent);
      if (!at_once) unit.settle();
      EXPECT_EQ(unit.server->active_count, at_once || whole ? 0U : 1U) << "silence leaves it open";
      shutdown(one.fd, SHUT_WR);
      EXPECT_EQ(unit.reply_to(&one), whole ? kOk : "");
      EXPECT_EQ(unit.seen, sent == put ? "(" + body + ")" : whole ? "()" : "");
      EXPECT_EQ(unit.server->active_count, 0U);
    }
  }
}

// One client keeps nobody else waiting, and one that has stopped sending still reads.
TEST(HttpServer, ServesOthersBesideSlowClients) {
  const test_server unit;
  client sender, reader(kGetLarge), half_closed(kGetLarge);
  shutdown(half_closed.fd, SHUT_WR);
  EXPECT_TRUE(unit.settle(20)) << "waits for all three";
  for (const char byte : kGet) {
    sender.send({&byte, 1});
    reader.receive(1);
    EXPECT_EQ(unit.ask(kGet), kOk);
  }
  EXPECT_EQ(unit.reply_to(&sender), kOk);
  EXPECT_TRUE(unit.reply_to(&reader) == "head" + unit.large);
  EXPECT_TRUE(unit.reply_to(&half_closed) == "head" + unit.large);
}

// A client that goes meanwhile, and one that reads slowly, change nothing.
TEST(HttpLane, AnswersInOrderWhileOthersAreServed) {
  static http_lane lane{"lane"};
  static std::atomic<bool> goes_on = false;
  static std::string order;
  const test_server unit;
  const auto slow = [](http_connection* c, const char* body, unsigned long length, void*) {
    while (!goes_on) sleep_ms(1);
    order.append(body, length);
    const std::string large(length == 1 ? 0 : 1 << 23, 'x');
    return http_connection_send(c, order.data(), order.size(), large.data(), large.size()), 0;
  };
  const auto ask_lane = [](http_connection* c, auto, auto, void* its) {
    return answer_in_lane(&lane, c, reinterpret_cast<http_handler>(its));
  };
  unit.route("PUT", "/slow", ask_lane, reinterpret_cast<void*>(+slow));
  const auto put = [](const std::string& body) {
    return "PUT /slow HTTP/1.1\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
  };
  client first(put("1")), gone(put("2")), large(put("3 ")), split, last(put("4"));
  unit.settle();
  for (const char byte : put("5")) {
    split.send({&byte, 1});
    EXPECT_EQ(unit.ask(kGet), kOk);
  }
  gone.drop(true);
  EXPECT_EQ(unit.ask(kGet), kOk);
  EXPECT_EQ(unit.server->active_count, 5U);
  std::deque<client> more;
  while (more.size() + 5 < kLaneLimit) more.emplace_back(put("6"));
  sleep_ms(kLaneHangs_ns / kNanosecondsPerMillisecond);
  unit.settle();
  EXPECT_TRUE(unit.ask(put("7")).ends_with(R"({"status":"BUSY"})")) << "places are left for others";
  EXPECT_TRUE(unit.settle(10)) << "sleeps meanwhile";
  goes_on = true;
  EXPECT_EQ(unit.reply_to(&more.back()), "123 45" + std::string(more.size(), '6'));
  EXPECT_EQ(unit.reply_to(&split), "123 45");
  EXPECT_EQ(unit.reply_to(&first) + unit.reply_to(&last), "1123 4");
  EXPECT_EQ(unit.reply_to(&large).size(), 4U + (1 << 23));
  for (client& one : more) unit.reply_to(&one);
  EXPECT_EQ(unit.server->active_count, 0U);
}

// No route waits for it, and what its handler has sent goes out at once.
TEST(HttpServer, KeepsAConnectionThatItsHandlerKeeps) {
  const test_server unit;
  unit.route("GET", "/stream", [](http_connection* c, const char*, unsigned long length, void*) {
    http_connection_send(c, "part", 4, nullptr, 0);
    return length == 3 ? 0 : 1;
  });
  client one("GET /stream HTTP/1.1\r\n\r\n");
  for (const char* all : {"part", "partpart"}) {
    const int64_t start_ns = monotonic_ns();
    EXPECT_TRUE(unit.serve_until([&] { return one.receive(), one.received == all; }));
    EXPECT_LT(monotonic_ns() - start_ns, 100 * kNanosecondsPerMillisecond);
    one.send("more");
  }
}

// Its place would be lost for ever.
TEST(HttpServer, DropsAReaderThatStallsForFiveSeconds) {
  const test_server unit;
  client stalled(kGetLarge);
  unit.settle(10);
  const auto active_after = [&](int64_t ms) {
    unit.server->active->progress_ns = monotonic_ns() - ms * kNanosecondsPerMillisecond;
    unit.settle();
    return unit.server->active_count;
  };
  ASSERT_EQ(active_after(4'500), 1U);
  stalled.receive(60);
  ASSERT_TRUE(unit.settle(10));
  EXPECT_LT(monotonic_ns() - unit.server->active->progress_ns, 4'000 * kNanosecondsPerMillisecond);
  EXPECT_EQ(active_after(5'001), 0U);
}

// No signal ends the daemon, and no descriptor or place stays taken.
TEST(HttpServer, OutlivesClientsThatGo) {
  const test_server unit;
  client gone("GET /gone HTTP/1.1\r\n\r\n");
  const auto answer_nobody = [](http_connection* c, const char*, unsigned long, void* one) {
    static_cast<client*>(one)->drop(true);
    for (int i = 0; i < 3; ++i) response_handler(c);  // a write after the reset raises SIGPIPE
    return 0;
  };
  unit.route("GET", "/gone", answer_nobody, &gone);
  EXPECT_TRUE(unit.serve_until([&] { return gone.fd < 0; }));
  const int free_descriptor = client().fd;
  const std::string sent[] = {"", "GET /a HT", kGet, "PUT /a HTTP/1.1\r\nContent-Length: 9000\r\n\r\nx"};
  for (int i = 0; i < 2'000; ++i) {
    client one(i % 250 == 0 ? kGetLarge : sent[i % 4]);
    if (i % 3 != 0) http_server_process_events(unit.server, 0);
    one.drop(i % 2 != 0);
    if (i % 10 == 9) unit.settle();
  }
  EXPECT_TRUE(unit.serve_until([&] { return unit.server->active_count == 0; }));
  shutdown(unit.server->fd, SHUT_RD);  // somebody who had a copy of it
  unit.settle();
  EXPECT_EQ(unit.ask(kGet), kOk);
  EXPECT_EQ(client().fd, free_descriptor) << "none is left open";
}

}  // namespace
