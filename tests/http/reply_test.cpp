// What a client reads: the reply forms byte by byte, the routes, and JSON bodies.
#include <json-c/json.h>

#include <fstream>
#include <optional>
#include <thread>
#include <vector>

#include "http/client.h"
#include "http/json_body.h"
#include "http/response.h"

namespace {

const std::string kNotFoundReply =
    "HTTP/1.1 404 Not Found\r\nConnection: close\r\nContent-Length: 106\r\n\r\n<!DOCTYPE html>\r\n"
    "<html><head><title>404 Not Found</title></head><body><h2>404 Not Found</h2></body></html>";

const std::string kType = "Content-Type: application/json\r\n";
const std::string kClose = "Connection: close\r\n";

TEST(HttpReply, HasTheExactBytesOfItsForm) {
  const test_server unit_without_routes;
  EXPECT_EQ(http_server_init(kTestPort, 1), nullptr) << "the port is taken";
  EXPECT_EQ(kNotFoundReply.size(), 172U);
  EXPECT_EQ(unit_without_routes.ask("GET / HTTP/1.0\r\n\r\n"), kNotFoundReply);
}

TEST(HttpReply, EchoesTheVersionInEveryForm) {
  test_server unit;
  const auto path = [] {
    json_object* object = json_object_new_object();
    json_object_object_add(object, "path", json_object_new_string("/a"));
    return object;
  };
  unit.route("GET", "/json", [&](auto* c, auto) { return json_response_handler(c, path()), 0; });
  unit.route("GET", "/none", [](auto* c, auto) { return json_response_handler(c, nullptr), 0; });
  unit.route("GET", "/empty", [](auto* c, auto) { return response_handler(c), 0; });
  unit.route("GET", "/v1/json", [&](auto* c, auto) { return json_v1_response_handler(c, path()), -1; });
  unit.route("GET", "/v1/empty", [](auto* c, auto) { return empty_v1_response_handler(c), 0; });
  unit.route("GET", "/good", [](auto* c, auto) { return send_status(c, true); });
  unit.route("GET", "/bad", [](auto* c, auto) { return send_status(c, false); });
  const auto reply = [](const char* length, const std::string& lines, const char* body) {
    return std::string(" 200 OK\r\nContent-Length: ") + length + "\r\n" + lines + "\r\n" + body;
  };
  const std::pair<const char*, std::string> cases[] = {
      {"/json", reply("13", kType, R"({"path":"/a"})")},
      {"/empty", reply("0", kType + kClose, "")},
      {"/v1/json", reply("13", kType + kClose, R"({"path":"/a"})")},
      {"/v1/empty", reply("2", kType + kClose, "{}")},
      {"/good", reply("15", kType, R"({"status":"OK"})")},
      {"/bad", reply("24", kType, R"({"status":"BAD_REQUEST"})")},
  };
  for (const auto& [target, expected] : cases) {
    for (const std::string version : {"HTTP/1.0", "HTTP/1.1", "HTTP/2.10"}) {
      EXPECT_EQ(unit.ask("GET " + std::string(target) + " " + version + "\r\n\r\n"), version + expected);
    }
  }
  EXPECT_EQ(unit.ask("GET /none HTTP/1.1\r\n\r\n"), "");
  // Answered at the empty line: the bytes behind it must not take the reply away.
  const std::string late_body = "\r\ncontent-length: 9\r\n\r\n" + std::string(100'000, 'x');
  EXPECT_EQ(unit.ask("GET /bad HTTP/1.1" + late_body), "HTTP/1.1" + cases[5].second);
  EXPECT_EQ(unit.ask("PUT /bad HTTP/1.1" + late_body), kNotFoundReply);
}

TEST(HttpRoutes, TakeRequestsInTheirOrder) {
  test_server unit;
  for (const http_route_row& row : http_routes()) {
    const std::string name = std::string(row.method) + " " + row.path;
    unit.route(row.method, row.path, [name](auto* c, auto) {
      return json_response_handler(c, json_object_new_string(name.c_str())), 0;
    });
  }
  unit.route("*any", "/any", [](auto* c, auto) { return response_handler(c), 0; });
  const auto taken_by = [&](const std::string& method_and_path) {
    const std::string reply = unit.ask(method_and_path + " HTTP/1.1\r\n\r\n");
    return reply == kNotFoundReply ? "404" : reply.substr(reply.find("\r\n\r\n") + 4);
  };
  for (const http_route_row& row : http_routes()) {
    const std::string name = std::string(row.method) + " " + row.path;
    for (const char* more : {"", "?a=/api/1.0/camera", "s/x"}) {
      EXPECT_EQ(taken_by(name + more), "\"" + name + "\"") << more;
    }
  }
  EXPECT_EQ(taken_by("GET /api/1.0/camera/zoo"), "\"GET /api/1.0/camera\"");
  EXPECT_EQ(taken_by("PATCH /anything"), "");
  for (const char* other : {"DELETE /api/camera/defog", "get /api/camera/defog", "PUTT /api/camera/defog",
                            "GET /api/camera/defo", "GET /api/camera/zoom/reset", "GET api/camera/defog",
                            "GET //api/camera/defog", "GET /API/camera/defog", "POST /an"}) {
    EXPECT_EQ(taken_by(other), "404") << other;
  }
}

TEST(HttpRoutes, AreServedByTheThread) {
  std::thread(http_server_thread).detach();
  const auto content = [](const char* path) {
    std::string text;
    return std::getline(std::ifstream(path), text), text;
  };
  for (int i = 0; i < 500 && content("/tmp/zoom_speed").empty(); ++i) sleep_ms(10);
  EXPECT_EQ(content("/tmp/intensity"), "25");
  EXPECT_EQ(content("/tmp/focus_speed"), "2");
  EXPECT_EQ(content("/tmp/zoom_speed"), "3");
  const std::pair<const char*, const char*> cases[] = {{"/api/camera/focus/speed", R"({"speed":2})"},
                                                       {"/api/camera/focus/spee", "</html>"}};
  for (const auto& [path, end] : cases) {
    client one(60102);
    one.send("GET " + std::string(path) + " HTTP/1.1\r\n\r\n");
    for (int i = 0; i < 500 && !one.ended; ++i) one.receive(), sleep_ms(10);
    EXPECT_TRUE(one.received.ends_with(end)) << one.received;
  }
}

TEST(HttpJsonBody, TakesOnlyWhatItCanUse) {
  using namespace std::string_literals;
  struct {
    std::string body;
    bool object;
    std::optional<std::string> text;
    std::optional<int> integer;
  } const cases[] = {
      {R"({"v":"on"})", true, "on", {}},
      {R"({"v":""})", true, "", {}},
      {R"({"v":"123456789012345"})", true, "123456789012345", {}},
      {R"({"v":"1234567890123456"})", true, "123456789012345", {}},
      {R"({"v":-7})", true, {}, -7},
      {R"({"v":2.9})", true, {}, 2},
      {R"({"v":true})", true, {}, 1},
      {R"({"v":99999999999999999999})", true, {}, INT32_MAX},
      {R"({"v":-1e300})", true, {}, INT32_MIN},
      {R"({"v":NaN})", true, {}, {}},
      {R"({"v":null})", true, {}, {}},
      {R"({"v":[1]})", true, {}, {}},
      {R"({"v":{"v":1}})", true, {}, {}},
      {R"({"w":1})", true, {}, {}},
      {"{}", true, {}, {}},
      {R"([{"v":1}])", true, {}, {}},
      {R"("v")", true, {}, {}},
      {" {\"v\":1} x", true, {}, 1},
      {"null", false, {}, {}},
      {"", false, {}, {}},
      {"   ", false, {}, {}},
      {"{", false, {}, {}},
      {R"({"v":1)", false, {}, {}},
      {R"({"v":"on)", false, {}, {}},
      {"v=1", false, {}, {}},
      {"{\"v\":\"\xFF\"}", false, {}, {}},
      {"\0"s, false, {}, {}},
      {std::string(100'000, '['), false, {}, {}},
  };
  for (const auto& [body, object, text, integer] : cases) {
    SCOPED_TRACE(body.substr(0, 40));
    http_connection connection;
    connection.request.content_length = static_cast<long>(body.size());
    const std::vector<char> exact(body.begin(), body.end());
    const json_owner parsed = read_json_body(&connection, exact.data(), exact.size());
    EXPECT_EQ(parsed != nullptr, object);
    const std::optional<body_word> word = body_text(parsed.get(), "v");
    EXPECT_EQ(word ? std::optional<std::string>(word->text) : std::nullopt, text);
    EXPECT_EQ(body_integer(parsed.get(), "v"), integer);
    http_request_context_free(&connection.request);
  }
}

}  // namespace
