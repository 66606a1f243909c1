// The server under clients that are many, slow, silent or gone.
#include <sys/resource.h>

#include <algorithm>
#include <list>
#include <tuple>

#include "http/client.h"
#include "http/response.h"

namespace {

const std::string kGet = "GET /a HTTP/1.1\r\n\r\n";
const std::string kGetLarge = "GET /large HTTP/1.1\r\n\r\n";
const std::string kOk =
    "HTTP/1.1 200 OK\r\nContent-Length: 15\r\nContent-Type: application/json\r\n\r\n{\"status\":\"OK\"}";

// "/a" answers at once, "/large" with more than any socket takes at once.
struct busy_server : test_server {
  std::string large = std::string(12 << 20, 'x');
  std::string seen;  // bodies

  busy_server() {
    std::generate(large.begin(), large.end(), [i = 0]() mutable { return static_cast<char>(i++ / 1000); });
    const auto small = [](http_connection* c, const char* body, unsigned long length, void* unit) {
      static_cast<busy_server*>(unit)->seen += "(" + std::string(body, body + length) + ")";
      return send_status(c, true);
    };
    const auto many = [](http_connection* c, const char*, unsigned long, void* unit) {
      const std::string& body = static_cast<busy_server*>(unit)->large;
      return http_connection_send(c, "head", 4, body.data(), body.size()), 0;
    };
    route("*", "/a", small, this);
    route("GET", "/large", many, this);
  }
};

TEST(HttpServer, LetsTheSixteenthWait) {
  const busy_server unit;
  std::list<client> idle(kHttpConnections);
  EXPECT_TRUE(unit.serve_until([&] { return unit.server->active_count == kHttpConnections; }));
  client next(kGet);
  EXPECT_TRUE(unit.settle(20)) << "full, and one waits";
  EXPECT_FALSE(next.receive());
  EXPECT_EQ(next.received, "");
  idle.pop_back();
  EXPECT_EQ(unit.reply_to(&next), kOk);
  EXPECT_EQ(unit.ask(kGet), kOk);
  EXPECT_EQ(unit.server->active_count, kHttpConnections - 1U) << "idle peers keep their places";
  EXPECT_EQ(unit.server->accepted_count, kHttpConnections + 2U);
}

TEST(HttpServer, ClosesOnceWhenThePeerHangsUp) {
  busy_server unit;
  const std::string body(100'000, 'b');
  const std::string put = "PUT /a HTTP/1.1\r\nContent-Length: 100000\r\n\r\n" + body;
  // What is sent, and the bodies that the handler sees.
  const std::pair<std::string, std::string> cases[] = {
      {kGet, "()"},      {put, "(" + body + ")"}, {put.substr(0, put.size() - 1), ""},
      {"GET /a HT", ""}, {"G/T /" + kGet, ""},    {"", ""}};
  for (const auto& [sent, seen] : cases) {
    for (const bool at_once : {true, false}) {
      SCOPED_TRACE(sent.substr(0, 20) + (at_once ? ", at once" : ", later"));
      unit.seen.clear();
      client one(sent);
      if (!at_once) unit.settle();
      EXPECT_EQ(unit.server->active_count, !at_once && seen.empty() ? 1U : 0U) << "silence leaves it open";
      shutdown(one.fd, SHUT_WR);
      EXPECT_EQ(unit.reply_to(&one), seen.empty() ? "" : kOk);
      EXPECT_EQ(unit.seen, seen);
      EXPECT_EQ(unit.server->active_count, 0U);
    }
  }
}

TEST(HttpServer, ServesOthersBesideSlowClients) {
  const busy_server unit;
  client sender, reader(kGetLarge), half_closed(kGetLarge);
  shutdown(half_closed.fd, SHUT_WR);
  EXPECT_TRUE(unit.settle(20)) << "waits for all three";
  for (const char byte : kGet) {
    sender.send({&byte, 1});
    reader.receive(1);
    half_closed.receive(1);
    EXPECT_EQ(unit.ask(kGet), kOk);
  }
  EXPECT_FALSE(reader.ended);
  EXPECT_EQ(unit.reply_to(&sender), kOk);
  EXPECT_TRUE(unit.reply_to(&reader) == "head" + unit.large);
  EXPECT_TRUE(unit.reply_to(&half_closed) == "head" + unit.large);
}

TEST(HttpServer, DropsAReaderThatStallsForFiveSeconds) {
  const busy_server unit;
  client stalled(kGetLarge);
  unit.settle(10);
  ASSERT_EQ(unit.server->active_count, 1U);
  const auto pass_ms = [&](int64_t ms) {
    unit.server->active->progress_ns = monotonic_ns() - ms * kNanosecondsPerMillisecond;
    unit.settle();
  };
  pass_ms(4'500);
  ASSERT_EQ(unit.server->active_count, 1U);
  const int64_t before_ns = unit.server->active->progress_ns;
  stalled.receive(60);
  EXPECT_TRUE(unit.serve_until([&] { return unit.server->active->progress_ns > before_ns; })) << "progress";
  pass_ms(5'001);
  EXPECT_EQ(unit.server->active_count, 0U);
  EXPECT_TRUE(stalled.receive());
  EXPECT_LT(stalled.received.size(), unit.large.size());
}

TEST(HttpServer, OutlivesClientsThatGo) {
  const busy_server unit;
  client gone("GET /gone HTTP/1.1\r\n\r\n");
  const auto answer_nobody = [](http_connection* c, const char*, unsigned long, void* one) {
    static_cast<client*>(one)->drop(true);
    for (int i = 0; i < 3; ++i) response_handler(c);  // a write after the reset raises SIGPIPE
    return 0;
  };
  unit.route("GET", "/gone", answer_nobody, &gone);
  unit.settle(10);
  EXPECT_EQ(gone.fd, -1);
  const int free_descriptor = client().fd;
  const std::string sent[] = {"", "GET /a HT", kGet, "PUT /a HTTP/1.1\r\nContent-Length: 9000\r\n\r\nx"};
  for (int i = 0; i < 10'000; ++i) {
    client one(i % 250 == 0 ? kGetLarge : sent[i % 4]);
    if (i % 3 != 0) http_server_process_events(unit.server, 0);
    one.drop(i % 2 != 0);
    if (i % 10 != 9) continue;
    ASSERT_TRUE(unit.serve_until([&] { return unit.server->active_count == 0; })) << i;
  }
  EXPECT_EQ(client().fd, free_descriptor) << "none is left open";
  EXPECT_EQ(unit.ask(kGet), kOk);
}

TEST(HttpServer, SleepsWhileDescriptorsAreOut) {
  const busy_server unit;
  client one(kGet);
  rlimit usual{};
  getrlimit(RLIMIT_NOFILE, &usual);
  const rlimit none{3, usual.rlim_max};
  setrlimit(RLIMIT_NOFILE, &none);
  EXPECT_TRUE(unit.settle(20));
  setrlimit(RLIMIT_NOFILE, &usual);
  EXPECT_EQ(unit.reply_to(&one), kOk);
}

}  // namespace
