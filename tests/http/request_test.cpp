// The request parser: chunkings, where bodies go and hostile input; and JSON bodies.
#include "http/request.h"

#include <gtest/gtest.h>

#include "http/json_body.h"
#include "http/server.h"

namespace {

struct parser {
  std::unique_ptr<http_request> request = std::make_unique<http_request>();
  size_t consumed = 0;  // of all chunks

  ~parser() { http_request_context_free(request.get()); }

  // Each chunk ends where its allocation ends.
  int feed(std::string_view bytes) {
    const std::vector<char> chunk(bytes.begin(), bytes.end());
    size_t taken = 0;
    const int result = http_request_parse_http_header(request.get(), chunk.data(), chunk.size(), &taken);
    consumed += taken;
    return result;
  }

  std::string seen() const {
    const http_request& r = *request;
    std::string text;
    for (const char* part :
         {r.method, r.path, r.host, r.connection, r.user_agent, r.accept, r.accept_language,
          r.accept_encoding, r.referer, r.content_type, r.x_requested_with})
      text += std::string(part == nullptr ? "-" : part) + "|";
    text += std::to_string(r.major_version) + "." + std::to_string(r.minor_version) + "|";
    return r.content == nullptr ? text : text.append(r.content, static_cast<size_t>(r.content_length));
  }
};

const std::pair<std::string, const char*> kSamples[] = {
    {"PUT /api/led/mode?a=b%20c HTTP/1.0\r\nHost: unit:60102\r\nContent-Length: 5\r\nX:\r\n\r\n{\"a\"}",
     "PUT|/api/led/mode?a=b%20c|unit:60102|-|-|-|-|-|-|-|-|1.0|{\"a\"}"},
    {"M-*! /~ HTTP/12.345\r\nHost:a\r\nConnection: \t b\r\nUser-Agent: c d \r\nAccept: */*\r\n"
     "Accept-Language: e\r\nAccept-Encoding: f\r\nReferer: g\xC3\xA4\r\nContent-Type:\r\n"
     "X-Requested-With: i:\r\n\r\n",
     "M-*!|/~|a|b|c d |*/*|e|f|g\xC3\xA4||i:|12.345|"},
    // Names count only as they are written here: nothing of this is remembered, and no body follows.
    {"POST /x HTTP/1.1\r\ncontent-length: 5\r\nhost: a\r\nHosts: b\r\nHos: c\r\n\r\n",
     "POST|/x|-|-|-|-|-|-|-|-|-|1.1|"}};

TEST(HttpRequest, IsTheSameInEveryChunking) {
  for (const auto& [text, seen] : kSamples) {
    for (size_t split = 0; split <= text.size(); ++split) {
      SCOPED_TRACE(text.substr(0, split));
      parser halves;
      EXPECT_EQ(halves.feed(std::string_view(text).substr(0, split)), split == text.size() ? 0 : 1);
      EXPECT_EQ(halves.feed(text.substr(split) + "GET"), 0);
      EXPECT_EQ(halves.consumed, text.size());
      EXPECT_EQ(halves.seen(), seen);
    }
  }
}

// A body runs over neither the storage nor the headers that are kept in it, wherever the chunks end.
TEST(HttpRequest, KeepsABodyInItsStorageWhenItFits) {
  constexpr size_t kStored = 4 + 3 + 15 + 5;  // each of the four texts with its zero byte
  const std::string start = "PUT /b HTTP/1.1\r\nContent-Length: ";
  const size_t last = start.size() + 4 + 4 - 1;
  // How much of the header the first chunk has, and where that puts a body in the storage.
  for (const auto& [first_chunk, offset] : {std::pair(last + 1, last), {last, kStored}}) {
    for (const size_t length : {kHttpStorageSize - offset - 1, kHttpStorageSize - offset}) {
      std::string body(length, 'b');
      for (size_t i = 0; i < length; ++i) body[i] = static_cast<char>(i * 7 + i / 256);
      const std::string text = start + std::to_string(length) + "\r\n\r\n" + body;
      parser parsed;
      EXPECT_EQ(parsed.feed(text.substr(0, first_chunk)), 1);
      EXPECT_EQ(parsed.feed(text.substr(first_chunk) + "beyond"), 0);
      EXPECT_EQ(parsed.request->content == parsed.request->storage.data() + offset,
                length < kHttpStorageSize - offset);
      EXPECT_EQ(parsed.seen(), "PUT|/b|-|-|-|-|-|-|-|-|-|1.1|" + body);
      EXPECT_EQ(parsed.request->header_value, std::to_string(length)) << "overwritten";
    }
  }
}

std::string with_line(const std::string& line) { return "GET / HTTP/1.1\r\n" + line + "\r\n\r\n"; }
std::string with_length(const std::string& value) { return with_line("Content-Length: " + value); }
// One whose method, path and only header take `total` bytes of the storage.
std::string storing(size_t total) { return with_line("A:" + std::string(total - 9, 'v')); }

// Refused without a byte beyond the storage, and for ever: what follows on the link is no new request.
TEST(HttpRequest, StandsHostileInput) {
  const std::pair<std::string, int> cases[] = {
      {"GE/T / HTTP/1.1\r\n\r\n", -1},
      {std::string("GET /\0 HTTP/1.1\r\n\r\n", 19), -1},
      {"GET / HTTP/9999999999.1\r\n\r\n", -1},
      {with_line("Name"), -1},
      {with_line("A: b\nHost: c"), -1},
      {with_line("Content-Length: 4\r\nContent-Length: -4"), -1},
      {with_length("16777217"), -1},
      {with_length("16777216"), 1},
      {storing(kHttpStorageSize + 1), -1},
      {storing(kHttpStorageSize), 0},
      {with_length(std::string(20000, ' ') + "4") + "abcd", 0}};  // blanks take no room
  for (const auto& [input, result] : cases) {
    SCOPED_TRACE(input.substr(0, 60));
    parser whole, bytes;
    EXPECT_EQ(whole.feed(input), result);
    int last = 1;
    for (const char byte : input) last = bytes.feed({&byte, 1});
    EXPECT_EQ(last, result);
    EXPECT_EQ(whole.consumed, bytes.consumed);
    EXPECT_EQ(whole.feed("GET / HTTP/1.1\r\n\r\n"), result);
  }
}

std::optional<int> integer_in(const std::string& body) {
  http_connection connection;
  connection.request.content_length = static_cast<long>(body.size());
  const std::vector<char> exact(body.begin(), body.end());
  const json_owner parsed = read_json_body(&connection, exact.data(), exact.size());
  http_request_context_free(&connection.request);
  return body_integer(parsed.get(), "v");
}

// No number that a handler takes is out of range, and no small text makes a large object.
TEST(HttpJsonBody, TakesOnlyWhatItCanUse) {
  const std::string blanks((1 << 20) - 8, ' ');  // to 1 MiB
  for (const auto& [body, number] : {std::pair(std::string(R"({"v":-2.9})"), -2),
                                     {R"({"v":99999999999999999999})", 2147483647},
                                     {R"({"v":-1e300})", -2147483648},
                                     {"{\"v\":1 " + blanks + "}", 1}})
    EXPECT_EQ(integer_in(body), number) << body.substr(0, 40);
  for (const std::string& body :
       {"{\"v\":1  " + blanks + "}", std::string("{\"v\":NaN}"), std::string("[1]"), std::string("{\"v\":1"),
        std::string("{\"v\":1,\"w\":\"\xFF\"}"), std::string(1, '\0'), std::string(100'000, '[')})
    EXPECT_EQ(integer_in(body), std::nullopt) << body.substr(0, 40);
}

}  // namespace
