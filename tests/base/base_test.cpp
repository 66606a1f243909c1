// Value files, and the Redis client against a Redis that is well, away, frozen or full.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <sys/socket.h>

#include <atomic>
#include <climits>
#include <filesystem>
#include <fstream>
#include <thread>
#include <vector>

#include "base/clock.h"
#include "base/file.h"
#include "base/paths.h"
#include "base/redis.h"
#include "base/redis_server.h"
#include "base/value_file.h"
#include "supervisor/identity.h"

namespace fs = std::filesystem;

namespace {

constexpr char kPath[] = "/tmp/zoom_speed";

TEST(value_file, texts_as_numbers) {
  EXPECT_EQ(read_value_file(kPath), std::nullopt);
  const std::pair<std::string, int> rows[] = {// only 14 characters count
                                              {"12", 12},
                                              {"", 0},
                                              {" -5 and more\n", -5},
                                              {"auto", 0},
                                              {"00000000000012345", 12},
                                              {"9999999999", INT_MAX},
                                              {"-9999999999999999", INT_MIN},
                                              {{"7\0"
                                                "8",
                                                3},
                                               7}};
  for (const auto& [text, value] : rows) {
    std::ofstream(kPath) << text;
    EXPECT_EQ(read_value_file(kPath), value) << text;
  }
  EXPECT_EQ(read_value_file("/tmp"), std::nullopt);
}

TEST(value_file, writes) {
  for (const int value : {0, 255, INT_MAX, INT_MIN}) {
    EXPECT_TRUE(write_value_file(kPath, value));
    EXPECT_EQ(read_file(kPath, 100), std::to_string(value));
    EXPECT_EQ(read_value_file(kPath), value);
  }
  EXPECT_TRUE(write_value_file(kPath, "manual"));
  EXPECT_EQ(read_file(kPath, 100), "manual");
  EXPECT_FALSE(write_value_file("/nowhere/zoom_speed", 1));
  fs::create_directory("/tmp/folder");
  EXPECT_FALSE(write_value_file("/tmp/folder", 1));
  fs::remove(kPath), fs::remove("/tmp/folder");
  EXPECT_TRUE(fs::is_empty("/tmp")) << "something was left beside the files";
}

TEST(value_file, reader_sees_whole_values) {
  write_value_file(kPath, "automatic");
  std::atomic<int> writing = 2;
  const auto write = [&](const char* word) {
    for (int i = 0; i < 1000; ++i) EXPECT_TRUE(write_value_file(kPath, word));
    --writing;
  };
  std::thread one(write, "automatic"), other(write, "1234567");
  while (writing > 0) {
    const std::string seen = read_file(kPath, 100).value_or("nothing");
    EXPECT_TRUE(seen == "automatic" || seen == "1234567") << seen;
  }
  one.join(), other.join();
}

std::string identity(void (*load)(char*, size_t), size_t size = 32) {
  std::string text(40, '#');
  load(text.data(), size);
  EXPECT_EQ(text.substr(size), std::string(40 - size, '#'));
  return text.c_str();
}

TEST(redis, identity_texts) {
  EXPECT_EQ(identity(orb_load_supervisor_model_name), "unknown");
  EXPECT_EQ(identity(orb_load_supervisor_serial_number, 4), "unk");
  start_redis();
  EXPECT_EQ(identity(orb_load_supervisor_battery_type), "unknown");
  const redis_connection connection = redis_connect();
  redis_command(connection, "SET orb-battery %s", "Indipro");
  redis_command(connection, "SET orb-model-name %s", "ORB Advanced with a name far too long for it");
  redis_command(connection, "RPUSH orb-serial-number 1");
  EXPECT_EQ(identity(orb_load_supervisor_battery_type), "Indipro");
  EXPECT_EQ(identity(orb_load_supervisor_battery_type, 8), "Indipro");
  EXPECT_EQ(identity(orb_load_supervisor_battery_type, 7), "Indipr");
  EXPECT_EQ(identity(orb_load_supervisor_model_name), "ORB Advanced with a name far to");
  EXPECT_EQ(identity(orb_load_supervisor_serial_number), "unknown");  // no text under the key
}

// The best of three, so that a busy machine does not count.
int64_t fastest_ms(void (*call)()) {
  int64_t best = INT64_MAX;
  for (int i = 0; i < 3; ++i) {
    const int64_t start = monotonic_ns();
    call();
    best = std::min(best, (monotonic_ns() - start) / kNanosecondsPerMillisecond);
  }
  return best;
}

void ask() {
  char text[8];
  EXPECT_FALSE(redis_get_text("orb-battery", text, sizeof text));
}

TEST(redis, frozen_server_costs_little_time) {
  start_redis();
  const redis_connection connection = redis_connect();
  signal_redis("STOP");
  EXPECT_LT(fastest_ms(ask), 100);
  EXPECT_FALSE(redis_command(connection, "PING"));
  signal_redis("CONT");
  sleep_ms(100);
  EXPECT_FALSE(redis_command(connection, "PING")) << "an answer that came late would be taken for this one's";
  EXPECT_TRUE(redis_command(redis_connect(), "PING"));
}

TEST(redis, full_backlog_costs_little_time) {
  const sockaddr_in address{.sin_family = AF_INET,
                            .sin_port = htons(addresses::kRedisPort),
                            .sin_addr = {htonl(INADDR_LOOPBACK)},
                            .sin_zero = {}};
  const auto* where = reinterpret_cast<const sockaddr*>(&address);
  const unique_fd listener(socket(AF_INET, SOCK_STREAM, 0));
  ASSERT_EQ(bind(listener.get(), where, sizeof address), 0);
  ASSERT_EQ(listen(listener.get(), 0), 0);
  std::vector<unique_fd> waiting;
  for (int i = 0; i < 4; ++i) {
    waiting.emplace_back(socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK, 0));
    connect(waiting.back().get(), where, sizeof address);
  }
  EXPECT_LT(fastest_ms(ask), 100);
}

}  // namespace
