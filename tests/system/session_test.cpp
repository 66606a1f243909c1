// Whole sessions: a client's requests, what they were answered, what the devices saw and what was traced,
// kept as text and replayed. "> METHOD path body" is a request, "! DEVICE WORDS" a word to a simulated
// device, "pause N" lets the next request work for N s more, "restart" kills the unit and starts it again;
// everything else is what the unit made of it.

#include "system/unit.h"

namespace {

constexpr char kTraceMask[] = "0x00001190";  // API, focus and zoom loops, camera controller

// What has been added to a text that grows, each line behind `mark`.
struct follower {
  std::string mark;
  std::string (*read)();
  size_t seen = 0;

  std::string added() {
    const std::string text = read(), added = text.substr(std::min(seen, text.size()));
    seen = text.size();
    return std::regex_replace(added, std::regex("(.*)\n"), mark + "$1\n");
  }
};

// Times, and positions of lenses that are moving, are not the same twice.
std::string without_chance(std::string text) {
  static const std::pair<std::regex, const char*> kRules[] = {
      {std::regex(R"re((zoom|focus|_position)":-?\d+)re"), "$1\":N"},
      {std::regex(R"re((magnification|depth_of_field)":"[^"]*")re"), "$1\":\"T\""},
      {std::regex(R"re((sample_count|distance)":[-\d.e]+)re"), "$1\":N"},
      {std::regex(R"re((firmware_version|camera_version)":"[^"]*")re"), "$1\":\"T\""},
      {std::regex(R"re("time":"\d\d:\d\d:\d\d")re"), R"("time":"HH:MM:SS")"},
      {std::regex(R"re("date":"\d{4}-\d\d-\d\d")re"), R"("date":"YYYY-MM-DD")"},
      {std::regex(R"re("metadata_(date|time)":"[-\d]+")re"), R"("metadata_$1":"T")"},
      {std::regex(R"re((Content-Length: )\d+(.*":N))re"), "$1N$2"}};
  for (const auto& [pattern, with] : kRules) text = std::regex_replace(text, pattern, with);
  return text;
}

// Threads trace and send beside each other: the API's lines and the overlay's titles stand first.
std::string ordered(const std::string& text) {
  std::string first, others;
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    const bool is_first = line.rfind("trace HAPI", 0) == 0 || line.rfind("camera 81 01 04 7", 0) == 0;
    (is_first ? first : others) += line + "\n";
  }
  return first + others;
}

std::string replaced(std::string text, const std::string& from, const std::string& to) {
  for (size_t at = 0; (at = text.find(from, at)) != text.npos; at += to.size())
    text.replace(at, from.size(), to);
  return text;
}

// The seats' tokens are random: in the text the first one is $0, the second $1.
struct token_names {
  std::vector<std::string> tokens;

  void learn(const std::string& reply) {
    static const std::regex kToken(R"re("seat_token":"([0-9A-Za-z]{16})")re");
    std::smatch match;
    if (std::regex_search(reply, match, kToken)) tokens.push_back(match[1]);
  }
  std::string hidden(std::string text) const {
    for (size_t i = 0; i < tokens.size(); ++i) text = replaced(text, tokens[i], "$" + std::to_string(i));
    return text;
  }
  std::string shown(std::string text) const {
    for (size_t i = 0; i < tokens.size(); ++i) text = replaced(text, "$" + std::to_string(i), tokens[i]);
    return text;
  }
};

// The body; the version-1.0 routes, which have headers of their own, are shown whole.
std::string shown_part(const std::string& path, const reply& answer) {
  if (path.rfind("/api/1.0", 0) != 0 || answer.head.empty()) return answer.body;
  return replaced(answer.head, "\r\n", ", ") + ": " + answer.body;
}

// What a device was told, without its times.
std::string log_of(const char* device) {
  return std::regex_replace(ctl(device, "log"), std::regex("(^|\n)[\\d.]+ "), "$1");
}

// Until both power-ups have been seen, of the link and of the camera.
void await_start() {
  ASSERT_TRUE(await_api());
  for (const char* last : {"81 09 00 02 FF", "81 01 04 37 0"})  // the defog, whatever it is
    ASSERT_TRUE(await([last] { return contains(log_of("camera"), last); }));
  // The date would show when it is.
  http("PUT", "/api/osd/date_time", R"({"date_time_osd":0})");
  ASSERT_TRUE(await([] { return ctl("camera", "titles").find(" on") == std::string::npos; }));
  usleep(500'000);
}

std::string replay(const std::string& session) {
  child block, daemon;
  follower camera{"camera ", [] { return log_of("camera"); }};
  follower board{"board ", [] { return log_of("board"); }};
  follower trace{"trace ", trace_log};
  const auto begin = [&] {
    daemon = child(), block = child();
    block = start_camera();
    daemon = start_daemon();
    await_start();
    for (follower* each : {&camera, &board, &trace}) each->added();
  };
  begin();
  std::string result;
  token_names tokens;
  useconds_t pause_s = 0;
  std::istringstream lines(session);
  for (std::string line; std::getline(lines, line);) {
    std::istringstream words(line);
    std::string kind, first, second, rest;  // of a request: ">", method, path and body
    words >> kind >> first >> second >> std::ws;
    std::getline(words, rest);
    const bool is_request = kind == ">";
    if (is_request || kind == "!" || kind == "pause" || kind == "restart") result += line + "\n";
    if (kind == "restart") begin();
    if (kind == "pause") pause_s = static_cast<useconds_t>(std::stoi(first));
    if (kind == "!") ctl(first, second + " " + rest), usleep(700'000);
    if (!is_request) continue;
    const std::string answer = shown_part(second, http(first, second, tokens.shown(rest)));
    tokens.learn(answer);
    result += "< " + tokens.hidden(without_chance(answer)) + "\n";
    // The camera thread looks at the acknowledges ten times a second.
    usleep(350'000 + 1'000'000 * std::exchange(pause_s, 0));
    result += tokens.hidden(ordered(without_chance(trace.added())));
    result += ordered(camera.added()) + board.added();
  }
  return result;
}

class session : public testing::TestWithParam<const char*> {};

TEST_P(session, is_as_it_was) {
  write_text("/media/usb99/trace_mask", kTraceMask);
  const std::string kept = read_text(std::string(ORB_SESSIONS_FOLDER "/") + GetParam() + ".txt");
  const std::string now = replay(kept);
  // With sim/box --share: the text to keep after a wanted change.
  write_text(std::string("/run/bench/") + GetParam() + ".txt", now);
  EXPECT_EQ(now, kept);
}

INSTANTIATE_TEST_SUITE_P(kept, session,
                         testing::Values("camera", "board", "osd", "seats", "setup", "version_1", "files"),
                         [](const auto& file) { return file.param; });

}  // namespace
