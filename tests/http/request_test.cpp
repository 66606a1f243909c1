// The request parser: chunkings, where bodies go, known headers and hostile input.
#include "http/request.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace {

struct parser {
  std::unique_ptr<http_request> request = std::make_unique<http_request>();
  size_t consumed = 0;  // of all chunks

  parser() { http_request_reset(request.get()); }
  ~parser() { http_request_context_free(request.get()); }

  // Each chunk ends where its allocation ends.
  int feed(std::string_view bytes) {
    const std::vector<char> chunk(bytes.begin(), bytes.end());
    size_t taken = 0;
    const int result = http_request_parse_http_header(request.get(), chunk.data(), chunk.size(), &taken);
    EXPECT_LE(taken, chunk.size());
    consumed += taken;
    return result;
  }

  int feed_bytewise(std::string_view bytes) {
    int result = 1;
    for (size_t i = 0; i < bytes.size(); ++i) result = feed(bytes.substr(i, 1));
    return result;
  }

  [[nodiscard]] std::string content() const {
    return request->content == nullptr
               ? ""
               : std::string(request->content, static_cast<size_t>(request->content_length));
  }

  // Everything that a handler can see of it.
  [[nodiscard]] std::string seen() const {
    std::string text;
    for (const char* part :
         {request->method, request->path, request->host, request->connection, request->user_agent,
          request->accept, request->accept_language, request->accept_encoding, request->referer,
          request->content_type, request->x_requested_with}) {
      text += part == nullptr ? "(null)|" : std::string(part) + "|";
    }
    return text + std::to_string(request->major_version) + "." + std::to_string(request->minor_version) +
           "|" + content();
  }
};

std::string filled(size_t length) {
  std::string body(length, '\0');
  for (size_t i = 0; i < length; ++i) body[i] = static_cast<char>(i * 7 + i / 256);
  return body;
}

struct sample {
  std::string text;
  const char* seen;
};

const sample kSamples[] = {
    {"GET / HTTP/1.1\r\n\r\n", "GET|/|(null)|(null)|(null)|(null)|(null)|(null)|(null)|(null)|(null)|1.1|"},
    {"PUT /api/led/mode?a=b%20c HTTP/1.0\r\nHost: unit:60102\r\nContent-Length: 12\r\nX-Other:\r\n\r\n"
     "{\"mode\":\"x\"}",
     "PUT|/api/led/mode?a=b%20c|unit:60102|(null)|(null)|(null)|(null)|(null)|(null)|(null)|(null)|1.0|"
     "{\"mode\":\"x\"}"},
    {"M-*! /~ HTTP/12.345\r\nHost:a\r\nConnection: \t b\r\nUser-Agent: c d \r\nAccept: */*\r\n"
     "Accept-Language: e\r\nAccept-Encoding: f\r\nReferer: g\xC3\xA4\r\nContent-Type:\r\n"
     "X-Requested-With: i:\r\n\r\n",
     "M-*!|/~|a|b|c d |*/*|e|f|g\xC3\xA4||i:|12.345|"},
    // Names count only as they are written here: nothing of this is remembered, and the body is not read.
    {"POST /x HTTP/1.1\r\ncontent-length: 5\r\nhost: a\r\nHosts: b\r\nHos: c\r\n\r\n",
     "POST|/x|(null)|(null)|(null)|(null)|(null)|(null)|(null)|(null)|(null)|1.1|"},
};

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
    http_request_reset(bytes.request.get());
    EXPECT_EQ(bytes.feed(kSamples[0].text), 0) << "reused";
    EXPECT_EQ(bytes.seen(), kSamples[0].seen) << "reused";
  }
}

TEST(HttpRequest, KeepsABodyInItsStorageWhenItFits) {
  // Stored of the header: "PUT", "/b", and "Content-Length" with `digits`, each with a zero byte.
  const auto header_of = [](size_t length) {
    return "PUT /b HTTP/1.1\r\nContent-Length: " + std::to_string(length) + "\r\n\r\n";
  };
  const size_t stored = 4 + 3 + 15 + 5;
  const size_t last = header_of(8000).size() - 1;
  struct {
    const char* name;
    size_t first_chunk;  // of the header
    size_t offset;       // of a body in the storage
  } const cases[] = {{"in one chunk", last + 1, last},
                     {"last byte alone", last, stored},
                     {"last two bytes alone", last - 1, stored},
                     {"first byte alone", 1, last - 1}};
  for (const auto& [name, first_chunk, offset] : cases) {
    const size_t limit = kHttpStorageSize - offset;
    for (const size_t length : {limit - 1, limit, limit + 1, kHttpStorageSize, size_t{5000}}) {
      SCOPED_TRACE(std::string(name) + ", body of " + std::to_string(length));
      const std::string header = header_of(length);
      const std::string body = filled(length);
      parser parsed;
      EXPECT_EQ(parsed.feed(header.substr(0, first_chunk)), 1);
      EXPECT_EQ(parsed.feed(header.substr(first_chunk) + body.substr(0, 100)), 1);
      EXPECT_EQ(parsed.feed(body.substr(100, length - 101)), 1);
      EXPECT_EQ(parsed.feed(body.substr(length - 1) + "beyond"), 0);
      EXPECT_EQ(parsed.request->content_allocated, length >= limit);
      if (length < limit) {
        EXPECT_EQ(parsed.request->content, parsed.request->storage.data() + offset);
      }
      EXPECT_EQ(parsed.content(), body);
      EXPECT_STREQ(parsed.request->method, "PUT");
      EXPECT_STREQ(parsed.request->path, "/b");
      EXPECT_STREQ(parsed.request->header_value, std::to_string(length).c_str());
    }
  }
}

// One whose method, path and only header take `total` bytes of the storage.
std::string storing(size_t total) {
  return "GET / HTTP/1.1\r\nA:" + std::string(total - 9, 'v') + "\r\n\r\n";
}

std::string with_length(const std::string& value) {
  return "PUT / HTTP/1.1\r\nContent-Length: " + value + "\r\n\r\n";
}

std::string with_line(const std::string& line) { return "GET / HTTP/1.1\r\n" + line + "\r\n\r\n"; }

std::string many_headers() {
  std::string lines;
  for (int i = 0; i < 3000; ++i) lines += "A:b\r\n";
  return with_line(lines);
}

TEST(HttpRequest, StandsHostileInput) {
  using namespace std::string_literals;
  struct {
    const char* name;
    std::string input;
    int result;
  } const cases[] = {
      {"slash in the method", "GE/T / HTTP/1.1\r\n\r\n", -1},
      {"no method", " / HTTP/1.1\r\n\r\n", -1},
      {"zero byte in the method", "G\0T / HTTP/1.1\r\n\r\n"s, -1},
      {"8-bit method", "G\xC4T / HTTP/1.1\r\n\r\n", -1},
      {"delete in the method", "G\x7FT / HTTP/1.1\r\n\r\n", -1},
      {"line end first", "\r\nGET / HTTP/1.1\r\n\r\n", -1},
      {"TLS hello", "\x16\x03\x01\x02\0\x01"s, -1},
      {"no path", "GET  HTTP/1.1\r\n\r\n", -1},
      {"tab in the path", "GET /\ta HTTP/1.1\r\n\r\n", -1},
      {"zero byte in the path", "GET /\0 HTTP/1.1\r\n\r\n"s, -1},
      {"8-bit path", "GET /\xC3\xA4 HTTP/1.1\r\n\r\n", -1},
      {"no version", "GET /\r\n\r\n", -1},
      {"lower-case protocol", "GET / http/1.1\r\n\r\n", -1},
      {"no major version", "GET / HTTP/.1\r\n\r\n", -1},
      {"no minor version", "GET / HTTP/1.\r\n\r\n", -1},
      {"version of letters", "GET / HTTP/1.x\r\n\r\n", -1},
      {"version beyond an int", "GET / HTTP/99999999999999999999.1\r\n\r\n", -1},
      {"minor version beyond an int", "GET / HTTP/1.4294967297\r\n\r\n", -1},
      {"bare line feeds", "GET / HTTP/1.1\n\n", -1},
      {"return without line feed", "GET / HTTP/1.1\r\r\n\r\n", -1},
      {"last return without line feed", "GET / HTTP/1.1\r\n\rx", -1},
      {"header without a name", with_line(":v"), -1},
      {"header without a colon", with_line("Name"), -1},
      {"blank in a header name", with_line("Content Length: 1"), -1},
      {"folded header", with_line("A: b\r\n c"), -1},
      {"only the names of headers", with_line("A:\r\nB: "), 0},
      {"length negative", with_length("-1"), -1},
      {"length most negative", with_length("-9223372036854775808"), -1},
      {"length beyond a long", with_length("99999999999999999999999"), -1},
      {"length above the limit", with_length("16777217"), -1},
      {"length at the limit", with_length("16777216"), 1},
      {"length of 2^32 and a bit", with_length("4294967304"), -1},
      {"length no number", with_length("many"), 0},
      {"length empty", with_length(""), 0},
      {"second length negative", with_line("Content-Length: 4\r\nContent-Length: -4"), -1},
      {"storage not quite filled", storing(kHttpStorageSize - 1), 0},
      {"storage overfilled by one", storing(kHttpStorageSize + 1), -1},
      {"endless method", std::string(9000, 'A'), -1},
      {"endless path", "GET /" + std::string(9000, 'a'), -1},
      {"endless header name", "GET / HTTP/1.1\r\n" + std::string(9000, 'n'), -1},
      {"endless header value", "GET / HTTP/1.1\r\nA:" + std::string(20000, 'v'), -1},
      {"endless blanks before a value", "GET / HTTP/1.1\r\nA:" + std::string(20000, ' ') + "v\r\n\r\n", 0},
      {"too many headers", many_headers(), -1},
      {"body behind 20000 blanks", with_length(std::string(20000, ' ') + "4") + "abcd", 0},
  };
  for (const auto& [name, input, result] : cases) {
    SCOPED_TRACE(name);
    parser whole, bytes;
    EXPECT_EQ(whole.feed(input), result);
    EXPECT_EQ(bytes.feed_bytewise(input), result);
    EXPECT_EQ(whole.consumed, bytes.consumed);
    if (result == 0) {
      EXPECT_EQ(whole.seen(), bytes.seen());
    }
    if (result == -1) {
      EXPECT_EQ(whole.feed(kSamples[0].text), -1) << "malformed for ever";
      EXPECT_FALSE(whole.request->content_allocated);
    }
  }
}

}  // namespace
