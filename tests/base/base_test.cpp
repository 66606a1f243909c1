// Value files, shell commands, and the Redis client against a Redis that is well, away, frozen or full.
#include <arpa/inet.h>
#include <sys/socket.h>

#include "base/redis_exchange.h"
#include "base/redis_server.h"
#include "store/identity.h"
#include "tests/scarcity.h"

namespace {

constexpr char kPath[] = "/tmp/zoom_speed";

TEST(value_file, texts_as_numbers) {
  EXPECT_EQ(read_value_file(kPath), std::nullopt);
  EXPECT_EQ(read_value_file("/tmp"), std::nullopt);
  const std::pair<const char*, std::optional<int>> rows[] = {
      {"auto", std::nullopt}, {" -5 and more\n", -5}, {"0000000000001234", 12}};  // 14 characters count
  for (const auto& [text, value] : rows) {
    std::ofstream(kPath) << text;
    EXPECT_EQ(read_value_file(kPath), value) << text;
  }
}

TEST(value_file, reader_sees_whole_values) {
  write_value_file(kPath, "auto");
  std::atomic<int> writing = 2;
  const auto write = [&](const char* word) {
    for (int i = 0; i < 1000; ++i) EXPECT_TRUE(write_value_file(kPath, word));
    --writing;
  };
  std::thread one(write, "auto"), other(write, "1234567");
  while (writing > 0) {
    const std::string seen = read_file(kPath, 100).value_or("nothing");
    EXPECT_TRUE(seen == "auto" || seen == "1234567") << seen;
  }
  one.join(), other.join();
  fs::remove(kPath);
  fs::create_directory(kPath);
  EXPECT_FALSE(write_value_file(kPath, "auto"));
  fs::remove(kPath);
  for (const auto& entry : fs::directory_iterator("/tmp"))
    EXPECT_NE(entry.path().string().find(kPath), 0) << "left beside the file: " << entry.path();
}

TEST(shell, lines_and_the_exit_status) {
  const std::tuple<std::string, int, std::string> rows[] = {
      {"echo one; echo; printf 'abcdefgh\\nlast'", 0, "[one][][abcde][last]"},
      {"/no/such/program", 127, ""},
      {"echo x; kill -9 $$", 137, "[x]"},
      {"cat; echo end", 0, "[end]"}};
  for (const auto& [command, status, expected] : rows) {
    std::string lines;
    const auto take = [&lines](std::string_view line) { lines += "[" + std::string(line) + "]"; };
    EXPECT_EQ(run_shell(command, 5, take), status) << command;
    EXPECT_EQ(lines, expected);
  }
  EXPECT_EQ(shell_first_line("echo; echo two", 9), "");
  for (const std::string word : {"/media/a_1.2-b.zip", "", "a b", "$(id)'\"", "*", "~", "\xC3\xA9"})
    EXPECT_EQ(shell_first_line("printf %s " + shell_word(word), 99), word);
  EXPECT_EQ(shell_word("/media/a_1.2-b.zip"), "/media/a_1.2-b.zip");
}

// Slow while it prints, behind a closed output, or through what it has started; or never silent.
TEST(shell, ends_in_its_time) {
  for (const char* command : {"echo one; sleep 30; echo two", "echo one; exec >&-; sleep 30",
                              "echo one; (sleep 30); :", "yes one"}) {
    const int64_t begin = monotonic_ns();
    std::set<std::string> lines;
    std::optional<no_more_files> from_now_on;
    const auto take = [&](std::string_view line) { lines.emplace(line), from_now_on.emplace(); };
    EXPECT_EQ(run_shell(command, 5, take, {.timeout_ms = 200}), kTimedOut);
    from_now_on.reset();
    EXPECT_LT(monotonic_ns() - begin, 2000 * kNanosecondsPerMillisecond) << command;
    EXPECT_EQ(lines, std::set<std::string>{"one"});
  }
  if (fork() == 0) shell_first_line("sleep 30", 1, {.ends_with_us = true});
  EXPECT_TRUE(await([] { return shell_first_line("pgrep -x sleep", 9) != ""; }));
  shell_first_line("kill -9 $(pgrep -P " + std::to_string(getpid()) + " test_base)", 1);
  EXPECT_TRUE(await([] { return shell_first_line("pgrep -x sleep", 9).empty(); }));
}

// The fastest of three, so that a busy machine does not count.
int64_t ms_to_fail() {
  int64_t best = INT64_MAX;
  for (int i = 0; i < 3; ++i) {
    const int64_t start = monotonic_ns();
    loaded([](char* text, size_t size) { EXPECT_FALSE(redis_get_text("orb-battery", text, size)); });
    best = std::min(best, (monotonic_ns() - start) / kNanosecondsPerMillisecond);
  }
  return best;
}

TEST(redis, texts_and_a_frozen_server) {
  EXPECT_EQ(loaded(orb_load_supervisor_battery_type), "unknown");
  start_redis();
  ask_redis("SET orb-model-name %s", "ORB Advanced with a long name");
  EXPECT_EQ(loaded(orb_load_supervisor_model_name, 12), "ORB Advance");
  ask_redis("RPUSH orb-serial-number 1");  // no text under the key
  EXPECT_EQ(loaded(orb_load_supervisor_serial_number, 4), "unk");
  signal_redis("STOP");
  EXPECT_LT(ms_to_fail(), 100);
  redis_connection connection = redis_connect();
  EXPECT_FALSE(redis_command(connection, "PING"));
  signal_redis("CONT");
  sleep_ms(100);
  connection.deadline_ns += 1000 * kNanosecondsPerMillisecond;
  EXPECT_FALSE(redis_command(connection, "PING")) << "an answer that came late would be taken for this one's";
  EXPECT_TRUE(ask_redis("PING"));
}

std::string heard;  // the replies, a blank behind each

void hear(const redisReply* reply) {
  const std::string number = reply != nullptr && reply->type == REDIS_REPLY_INTEGER ? "number" : "null";
  heard += (reply != nullptr && reply->str != nullptr ? reply->str : number) + " ";
}

// Runs the loop until the exchange is over, at most for its time.
std::string exchange_two() {
  static redis_exchange exchange;
  heard.clear();
  const int64_t start = monotonic_ns();
  if (!begin_redis_exchange(&exchange, hear)) return "refused";
  add_redis_command(&exchange, "SET a %s", "1 2");
  add_redis_command(&exchange, "GET %s", "a");
  EXPECT_FALSE(begin_redis_exchange(&exchange)) << "one is under way";
  ev_run(ev_default_loop(0), 0);
  EXPECT_LT(monotonic_ns() - start, 200 * kNanosecondsPerMillisecond);
  EXPECT_EQ(exchange.context, nullptr);
  return heard;
}

TEST(redis_exchange, goes_on_when_redis_comes_back) {
  EXPECT_EQ(exchange_two(), "null null ");
  start_redis();
  EXPECT_EQ(exchange_two(), "OK 1 2 ");
  signal_redis("STOP");
  for (int i = 0; i < 3; ++i) EXPECT_EQ(exchange_two(), "null null ");
  signal_redis("CONT");
  EXPECT_TRUE(await([] { return exchange_two() == "OK 1 2 "; }));
}

// A server that says something else, in whole or a byte every 10 ms, costs neither time nor the process.
TEST(redis, and_its_exchanges_with_a_server_that_is_none) {
  const sockaddr_in address{AF_INET, htons(addresses::kRedisPort), {htonl(INADDR_LOOPBACK)}, {}};
  const unique_fd listener(socket(AF_INET, SOCK_STREAM, 0));
  ASSERT_EQ(bind(listener.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  ASSERT_EQ(listen(listener.get(), 8), 0);
  const std::pair<std::string, std::string> rows[] = {
      {"garbage\r\n", "null null "},
      {"-ERR max number of clients reached\r\n", "ERR max number of clients reached null "},
      {"+1\r\n:2\r\n+3\r\n+4\r\n", "1 number "},  // more than was asked for
      {"+1\r\n$5\r\nab", "1 null "},
      {"", "null null "}};
  for (const auto& [words, expected] : rows) {
    const std::jthread server([&listener, said = words] {
      const unique_fd client(accept(listener.get(), nullptr, nullptr));
      send(client.get(), said.data(), said.size(), MSG_NOSIGNAL);
      if (!said.empty()) shutdown(client.get(), SHUT_WR), sleep_ms(70);
    });
    EXPECT_EQ(exchange_two(), expected);
  }
  const std::jthread dripping([&listener](const std::stop_token& ended) {
    while (!ended.stop_requested()) {
      const unique_fd client(accept(listener.get(), nullptr, nullptr));
      while (!ended.stop_requested() && send(client.get(), "+", 1, MSG_NOSIGNAL) == 1) sleep_ms(10);
    }
  });
  EXPECT_LT(ms_to_fail(), 100);
  EXPECT_EQ(exchange_two(), "null null ");
  shutdown(listener.get(), SHUT_RDWR);
}

}  // namespace
