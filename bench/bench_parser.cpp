// The request parser beside http-parser, over the same bytes, in rounds in which each has its turn.
// bench_parser [ROUNDS]

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string_view>
#include <vector>

#include "base/clock.h"
#include "http/request.h"

#ifdef WITH_HTTP_PARSER
#include <http_parser.h>
#endif

namespace {

constexpr int kRequests = 100'000;  // a turn

constexpr struct {
  const char* name;
  std::string_view text;
} kTexts[] = {
    {"POST",
     "POST /api/camera/zoom/increment HTTP/1.1\r\nHost: 192.168.0.1:60102\r\nUser-Agent: tablet/2.1\r\n"
     "Accept: application/json\r\nConnection: keep-alive\r\nContent-Length: 2\r\n\r\n{}"},
    {"GET",
     "GET /api/led/mode HTTP/1.1\r\nHost: 127.0.0.1:60102\r\nAccept: */*\r\nUser-Agent: tablet/2.1\r\n\r\n"},
};

using parse = bool(std::string_view text);  // true when the request is complete

bool parse_ours(std::string_view text) {
  static http_request request;
  http_request_reset(&request);
  return http_request_parse_http_header(&request, text.data(), text.size(), nullptr) == 0;
}

#ifdef WITH_HTTP_PARSER
bool is_complete = false;
std::string_view last_text;

int complete(http_parser*) { return is_complete = true, 0; }
int note(http_parser*, const char* text, size_t length) { return last_text = {text, length}, 0; }

bool execute(std::string_view text, const http_parser_settings& settings) {
  http_parser parser;
  http_parser_init(&parser, HTTP_REQUEST);
  is_complete = false;
  http_parser_execute(&parser, &settings, text.data(), text.size());
  return is_complete;
}

bool parse_theirs(std::string_view text) {
  static const http_parser_settings settings = [] {
    http_parser_settings made{};
    made.on_message_complete = complete;
    return made;
  }();
  return execute(text, settings);
}

// As a server has to: told where each text is.
bool parse_noting(std::string_view text) {
  static const http_parser_settings settings = [] {
    http_parser_settings made{};
    made.on_message_complete = complete;
    made.on_url = made.on_header_field = made.on_header_value = made.on_body = note;
    return made;
  }();
  return execute(text, settings);
}
#endif

struct contestant {
  const char* name;
  parse* function;
};

constexpr contestant kContestants[] = {
    {"ours", parse_ours},
#ifdef WITH_HTTP_PARSER
    {"http-parser, told of the end only", parse_theirs},
    {"http-parser, told of each text", parse_noting},
#endif
};
constexpr size_t kCount = std::size(kContestants);

double time_ns(parse* function, std::string_view text) {
  const int64_t start = monotonic_ns();
  for (int i = 0; i < kRequests; ++i) {
    if (!function(text)) exit(1);
  }
  return static_cast<double>(monotonic_ns() - start) / kRequests;
}

double median(std::vector<double> values) {
  std::ranges::sort(values);
  return values[values.size() / 2];
}

void compare(const char* name, std::string_view text, long rounds) {
  std::vector<double> times[kCount];
  std::vector<double> ratios[kCount];
  for (long round = 0; round < rounds; ++round) {
    for (size_t i = 0; i < kCount; ++i) {
      times[i].push_back(time_ns(kContestants[i].function, text));
      ratios[i].push_back(times[0].back() / times[i].back());
    }
  }
  printf("%s of %zu bytes:\n", name, text.size());
  for (size_t i = 0; i < kCount; ++i) {
    printf("  %-35s %7.1f ns", kContestants[i].name, median(times[i]));
    i == 0 ? puts("") : printf(", ours takes %.2f times as long\n", median(ratios[i]));
  }
}

}  // namespace

int main(int count, char** arguments) {
  const long rounds = count > 1 ? strtol(arguments[1], nullptr, 10) : 11;
  if (rounds < 1) return 2;
  for (const auto& request : kTexts) compare(request.name, request.text, rounds);
#ifndef WITH_HTTP_PARSER
  puts("http-parser: not built in (package libhttp-parser-dev)");
#endif
  return 0;
}
