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

json_object* path_object() { return json_tokener_parse(R"({"path":"\/a"})"); }

TEST(HttpReply, HasTheExactBytesOfItsForm) {
  const test_server unit;
  EXPECT_EQ(http_server_init(kTestPort, 1), nullptr) << "the port is taken";
  EXPECT_EQ(kNotFoundReply.size(), 172U);
  EXPECT_EQ(unit.ask("GET / HTTP/1.0\r\n\r\n"), kNotFoundReply);
  unit.route("GET", "/json", [](auto* c, auto...) { return json_response_handler(c, path_object()), 0; });
  unit.route("GET", "/none", [](auto* c, auto...) { return json_response_handler(c, nullptr), 0; });
  unit.route("GET", "/empty", [](auto* c, auto...) { return response_handler(c), 0; });
  unit.route("GET", "/v1/json",
             [](auto* c, auto...) { return json_v1_response_handler(c, path_object()), -1; });
  unit.route("GET", "/v1/empty", [](auto* c, auto...) { return empty_v1_response_handler(c), 0; });
  unit.route("GET", "/bad", [](auto* c, auto...) { return send_status(c, false); });
  const auto reply = [](const char* length, const std::string& lines, const char* body) {
    return std::string(" 200 OK\r\nContent-Length: ") + length + "\r\n" + lines + "\r\n" + body;
  };
  const std::pair<const char*, std::string> cases[] = {
      {"/json", reply("13", kType, R"({"path":"/a"})")},
      {"/empty", reply("0", kType + kClose, "")},
      {"/v1/json", reply("13", kType + kClose, R"({"path":"/a"})")},
      {"/v1/empty", reply("2", kType + kClose, "{}")},
      {"/bad", reply("24", kType, R"({"status":"BAD_REQUEST"})")}};
  for (const auto& [target, expected] : cases) {
    for (const std::string version : {"HTTP/1.0", "HTTP/1.1", "HTTP/2.10"}) {
      EXPECT_EQ(unit.ask("GET " + std::string(target) + " " + version + "\r\n\r\n"), version + expected);
    }
  }
  EXPECT_EQ(unit.ask("GET /none HTTP/1.1\r\n\r\n"), "");
  // Answered at the empty line: the bytes behind it must not take the reply away.
  const std::string late_body = "\r\ncontent-length: 9\r\n\r\n" + std::string(100'000, 'x');
  EXPECT_EQ(unit.ask("GET /bad HTTP/1.1" + late_body), "HTTP/1.1" + cases[4].second);
  EXPECT_EQ(unit.ask("PUT /bad HTTP/1.1" + late_body), kNotFoundReply);
}

TEST(HttpRoutes, TakeRequestsInTheirOrder) {
  const test_server unit;
  const auto tell = [](http_connection* c, const char*, unsigned long, void* data) {
    const auto* row = static_cast<const http_route_row*>(data);
    const std::string name = std::string(row->method) + " " + row->path;
    return json_response_handler(c, json_object_new_string(name.c_str())), 0;
  };
  const http_route_row any{"*any", "/any", nullptr, nullptr};
  for (const http_route_row& row : http_routes()) unit.route(row.method, row.path, tell, &row);
  unit.route(any.method, any.path, tell, &any);
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
  EXPECT_EQ(taken_by("PATCH /anything"), "\"*any /any\"");
  for (const char* other : {"DELETE /api/camera/defog", "get /api/camera/defog", "PUTT /api/camera/defog",
                            "GET /api/camera/defo", "GET /api/camera/zoom/reset", "GET //api/camera/defog"}) {
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
  EXPECT_EQ(content("/tmp/intensity") + content("/tmp/focus_speed") + content("/tmp/zoom_speed"), "2523");
  client one("GET /api/camera/focus/speed HTTP/1.1\r\n\r\n", 60102);
  for (int i = 0; i < 500 && !one.ended; ++i) one.receive(), sleep_ms(10);
  EXPECT_TRUE(one.received.ends_with(R"({"focus_speed":2})")) << one.received;
}

std::string found_in(const std::string& body) {
  http_connection connection;
  connection.request.content_length = static_cast<long>(body.size());
  const std::vector<char> exact(body.begin(), body.end());
  const json_owner parsed = read_json_body(&connection, exact.data(), exact.size());
  http_request_context_free(&connection.request);
  if (!parsed) return "not JSON";
  const std::optional<body_word> text = body_text(parsed.get(), "v");
  const std::optional<int> integer = body_integer(parsed.get(), "v");
  return (text ? "'" + std::string(text->text) + "'" : "") + (integer ? std::to_string(*integer) : "");
}

TEST(HttpJsonBody, TakesOnlyWhatItCanUse) {
  using namespace std::string_literals;
  // A member "v" of each kind, and its text or number; nothing where it is of no use.
  const std::pair<const char*, const char*> values[] = {{R"("on")", "'on'"},
                                                        {R"("")", "''"},
                                                        {R"("1234567890123456")", "'123456789012345'"},
                                                        {"-7", "-7"},
                                                        {"2.9", "2"},
                                                        {"true", "1"},
                                                        {"99999999999999999999", "2147483647"},
                                                        {"-1e300", "-2147483648"},
                                                        {"NaN", ""},
                                                        {"null", ""},
                                                        {"[1]", ""},
                                                        {R"({"v":1})", ""}};
  for (const auto& [value, expected] : values) {
    EXPECT_EQ(found_in("{\"v\":" + std::string(value) + "}"), expected) << value;
  }
  for (const char* body : {R"({"w":1})", "{}", R"([{"v":1}])", R"("v")"})
    EXPECT_EQ(found_in(body), "") << body;
  for (const std::string& body : {""s, "   "s, "null"s, "{\"v\":1"s, "{\"v\":\"on"s, "v=1"s,
                                  "{\"v\":\"\xFF\"}"s, "\0"s, std::string(100'000, '[')}) {
    EXPECT_EQ(found_in(body), "not JSON") << body.substr(0, 40);
  }
}

}  // namespace
