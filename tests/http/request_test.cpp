// The request parser: chunkings, where bodies go, known headers and hostile input.
#include "http/request.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

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

  int feed_bytewise(std::string_view bytes) {
    int result = 1;
    for (size_t i = 0; i < bytes.size(); ++i) result = feed(bytes.substr(i, 1));
    return result;
  }

  // Everything that a handler can see of it.
  [[nodiscard]] std::string seen() const {
    const http_request& r = *request;
    std::string text;
    for (const char* part :
         {r.method, r.path, r.host, r.connection, r.user_agent, r.accept, r.accept_language,
          r.accept_encoding, r.referer, r.content_type, r.x_requested_with}) {
      text += part == nullptr ? "-|" : std::string(part) + "|";
    }
    text += std::to_string(r.major_version) + "." + std::to_string(r.minor_version) + "|";
    if (r.content != nullptr) text.append(r.content, static_cast<size_t>(r.content_length));
    return text;
  }
};

const std::pair<std::string, const char*> kSamples[] = {
    {"GET / HTTP/1.1\r\n\r\n", "GET|/|-|-|-|-|-|-|-|-|-|1.1|"},
    {"PUT /api/led/mode?a=b%20c HTTP/1.0\r\nHost: unit:60102\r\nContent-Length: 5\r\nX:\r\n\r\n{\"a\"}",
     "PUT|/api/led/mode?a=b%20c|unit:60102|-|-|-|-|-|-|-|-|1.0|{\"a\"}"},
    {"M-*! /~ HTTP/12.345\r\nHost:a\r\nConnection: \t b\r\nUser-Agent: c d \r\nAccept: "
     "*/*\r\nAccept-Language: "
     "e\r\nAccept-Encoding: f\r\nReferer: g\xC3\xA4\r\nContent-Type:\r\nX-Requested-With: i:\r\n\r\n",
     "M-*!|/~|a|b|c d |*/*|e|f|g\xC3\xA4||i:|12.345|"},
    // Names count only as they are written here: nothing of this is remembered, and no body follows.
    {"POST /x HTTP/1.1\r\ncontent-length: 5\r\nhost: a\r\nHosts: b\r\nHos: c\r\n\r\n",
     "POST|/x|-|-|-|-|-|-|-|-|-|1.1|"}};

TEST(HttpRequest, IsTheSameInEveryChunking) {
  for (const auto& [text, seen] : kSamples) {
    SCOPED_TRACE(text);
    for (size_t split = 0; split <= text.size(); ++split) {
      parser halves;
      EXPECT_EQ(halves.feed(std::string_view(text).substr(0, split)), split == text.size() ? 0 : 1);
      EXPECT_EQ(halves.feed(text.substr(split) + "GET"), 0) << split;
      EXPECT_EQ(halves.consumed, text.size()) << split;
      EXPECT_EQ(halves.seen(), seen) << split;
    }
    parser bytes;
    EXPECT_EQ(bytes.feed_bytewise(text), 0);
    EXPECT_EQ(bytes.seen(), seen);
  }
}

TEST(HttpRequest, KeepsABodyInItsStorageWhenItFits) {
  const auto header_of = [](size_t length) {
    return "PUT /b HTTP/1.1\r\nContent-Length: " + std::to_string(length) + "\r\n\r\n";
  };
  constexpr size_t kStored = 4 + 3 + 15 + 5;  // each of the four texts with its zero byte
  const size_t last = header_of(8000).size() - 1;
  // How much of the header the first chunk has, and where that puts a body in the storage.
  const std::pair<size_t, size_t> cases[] = {
      {last + 1, last}, {last, kStored}, {last - 1, kStored}, {1, last - 1}};
  for (const auto& [first_chunk, offset] : cases) {
    const size_t limit = kHttpStorageSize - offset;
    for (const size_t length : {limit - 1, limit, limit + 1, kHttpStorageSize, size_t{5000}}) {
      SCOPED_TRACE(std::to_string(first_chunk) + " bytes first, body of " + std::to_string(length));
      const std::string header = header_of(length);
      std::string body(length, 'b');
      for (size_t i = 0; i < length; ++i) body[i] = static_cast<char>(i * 7 + i / 256);
      parser parsed;
      EXPECT_EQ(parsed.feed(header.substr(0, first_chunk)), 1);
      EXPECT_EQ(parsed.feed(header.substr(first_chunk) + body.substr(0, 100)), 1);
      EXPECT_EQ(parsed.feed(body.substr(100, length - 101)), 1);
      EXPECT_EQ(parsed.feed(body.substr(length - 1) + "beyond"), 0);
      EXPECT_EQ(parsed.request->content_allocated, length >= limit);
      EXPECT_EQ(parsed.request->content == parsed.request->storage.data() + offset, length < limit);
      EXPECT_EQ(parsed.seen(), "PUT|/b|-|-|-|-|-|-|-|-|-|1.1|" + body);
      EXPECT_EQ(parsed.request->header_value, std::to_string(length));
    }
  }
}

std::string with_line(const std::string& line) { return "GET / HTTP/1.1\r\n" + line + "\r\n\r\n"; }
std::string with_length(const std::string& value) { return with_line("Content-Length: " + value); }
// One whose method, path and only header take `total` bytes of the storage.
std::string storing(size_t total) { return with_line("A:" + std::string(total - 9, 'v')); }

TEST(HttpRequest, StandsHostileInput) {
  using namespace std::string_literals;
  const std::tuple<const char*, std::string, int> cases[] = {
      {"slash in the method", "GE/T / HTTP/1.1\r\n\r\n", -1},
      {"no method", " / HTTP/1.1\r\n\r\n", -1},
      {"line end first", "\r\nGET / HTTP/1.1\r\n\r\n", -1},
      {"zero byte in the path", "GET /\0 HTTP/1.1\r\n\r\n"s, -1},
      {"lower-case protocol", "GET / http/1.1\r\n\r\n", -1},
      {"no minor version", "GET / HTTP/1.\r\n\r\n", -1},
      {"version beyond an int", "GET / HTTP/99999999999999999999.1\r\n\r\n", -1},
      {"bare line feeds", "GET / HTTP/1.1\n\n", -1},
      {"header without a colon", with_line("Name"), -1},
      {"folded header", with_line("A: b\r\n c"), -1},
      {"length negative", with_length("-1"), -1},
      {"length beyond a long", with_length("99999999999999999999999"), -1},
      {"length above the limit", with_length("16777217"), -1},
      {"second length negative", with_line("Content-Length: 4\r\nContent-Length: -4"), -1},
      {"storage overfilled by one", storing(kHttpStorageSize + 1), -1},
      {"endless method", std::string(9000, 'A'), -1},
      {"endless header value", "GET / HTTP/1.1\r\nA:" + std::string(20000, 'v'), -1},
      {"only the names of headers", with_line("A:\r\nB: "), 0},
      {"length at the limit", with_length("16777216"), 1},
      {"storage not quite filled", storing(kHttpStorageSize - 1), 0},
      {"body behind 20000 blanks", with_length(std::string(20000, ' ') + "4") + "abcd", 0}};
  for (const auto& [name, input, result] : cases) {
    parser whole, bytes;
    EXPECT_EQ(whole.feed(input), result) << name;
    EXPECT_EQ(bytes.feed_bytewise(input), result) << name;
    EXPECT_EQ(whole.consumed, bytes.consumed) << name;
    EXPECT_EQ(whole.feed("GET / HTTP/1.1\r\n\r\n"), result) << name << ", then another";
  }
}

}  // namespace
