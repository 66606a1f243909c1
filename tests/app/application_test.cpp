// The main loop and what hangs on it: signals, the command pipe and the Redis publisher, with the real board
// service on a simulated board.
#include "app/application.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <string>
#include <vector>

#include "app/command_pipe.h"
#include "app/redis_publisher.h"
#include "base/file.h"
#include "base/paths.h"
#include "base/redis.h"
#include "base/redis_server.h"
#include "power_board/power_board.h"
#include "sim/board/bus.h"

namespace {

class unit : public testing::Test {
 protected:
  void SetUp() override {
    set_wire_time(false);
    ASSERT_EQ(orb_application_init(&application, "orbd"), 0);
  }

  void start_board() {
    ASSERT_EQ(orb_power_board_init(&board, &application, 1), 0);
    power_board_instance = &board;
    ASSERT_EQ(orb_power_board_start_service(&board), 0);
  }

  // Runs the loop for so long; false when it was ended before that.
  bool run(double seconds) {
    static bool expired;
    expired = false;
    ev_timer timer{};
    const auto end = [](struct ev_loop* loop, ev_timer*, int) {
      expired = true;
      ev_break(loop, EVBREAK_ONE);
    };
    ev_timer_init(&timer, end, seconds, 0.);
    ev_timer_start(application.loop, &timer);
    orb_application_run(&application);
    ev_timer_stop(application.loop, &timer);
    return expired;
  }

  power_board_readings readings() {
    power_board_readings now;
    orb_power_board_load_registers(&board, &now);
    return now;
  }

  static inline orb_application application;
  static inline orb_power_board board;
};

TEST_F(unit, signals) {
  EXPECT_STREQ(application.program_name, "orbd");
  for (const int ignored : {SIGUSR1, SIGUSR2}) {
    raise(ignored);
    EXPECT_TRUE(run(0.02)) << ignored;
  }
  for (const int ending : {SIGHUP, SIGINT, SIGTERM}) {
    raise(ending);
    EXPECT_FALSE(run(2)) << ending;
  }
  // The loop leaves children to those who wait for them.
  const pid_t child = fork();
  if (child == 0) _exit(3);
  run(0.02);
  int status = 0;
  EXPECT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(WEXITSTATUS(status), 3);
  EXPECT_EQ(WEXITSTATUS(system("exit 4")), 4);
  EXPECT_EQ(WEXITSTATUS(pclose(popen("exit 5", "r"))), 5);
  orb_application_set_power_board(&application, &board);
  EXPECT_EQ(orb_application_get_power_board(&application), &board);
  orb_application_destroy(&application);
  const pid_t ended = fork();  // without the loop the signals end the process again
  if (ended == 0) {
    raise(SIGTERM);
    _exit(0);
  }
  EXPECT_EQ(waitpid(ended, &status, 0), ended);
  EXPECT_TRUE(WIFSIGNALED(status)) << status;
}

TEST_F(unit, command_pipe) {
  with_board([](board_model& model) {
    model.power_enable = kPowerMain | 0x40;
    model.led_enable = 0x12;
    model.led_pwm = 40;
  });
  const unique_fd in_the_way(creat(paths::kCommandPipe, 0644));
  ASSERT_EQ(start_command_pipe(&application, &board), 0);
  start_board();
  while (readings().led_pwm != 40) ASSERT_TRUE(run(0.02));
  orb_power_board_suspend_refresh(&board);  // from now on the last reading stands
  const struct {
    std::string line;
    std::vector<uint8_t> write;  // register and data; empty: none
  } rows[] = {
      {"camera enable\n", {0, 0x46}},
      {"camera enabled, please\n", {0, 0x46}},
      {"camera disable\n", {0, 0x42}},
      {"laser enable\n", {0, 0x4A}},
      {"laser disable\n", {0, 0x42}},
      {"low\n", {1, 0x09, 40}},
      {"lowest\n", {1, 0x09, 40}},
      {"medium\n", {1, 0x12, 40}},
      {"high\n", {1, 0x24, 40}},
      {"strip\n", {1, 0xC0, 40}},
      {"leds_off\n", {1, 0x00, 40}},
      {"pwm 100\n", {1, 0x12, 100}},
      {"pwm7\n", {1, 0x12, 7}},
      {"pwm \t+8 9\n", {1, 0x12, 8}},
      {"pwm 300\n", {1, 0x12, 255}},
      {"pwm -5\n", {1, 0x12, 0}},
      {"pwm 99999999999999999999\n", {1, 0x12, 255}},
      {"pwm\n", {1, 0x12, 0}},
      {"pwm 0x20\n", {1, 0x12, 0}},
      {"Low\n", {}},
      {" low\n", {}},
      {"camera  enable\n", {}},
      {"camera enabl\n", {}},
      {"\n", {}},
      {std::string("\0low\n", 5), {}},
      {std::string(1022, 'x') + "\n", {}},
      {"low\nhigh\nmedium\n", {1, 0x09, 40}},  // one line a wake-up
      {"unknown\n", {1, 0x24, 40}},
      {"strip", {1, 0x12, 40}},
      {"", {}},
  };
  const unique_fd pipe(open(paths::kCommandPipe, O_WRONLY | O_NONBLOCK));
  std::vector<std::vector<uint8_t>> expected, seen;
  for (const auto& row : rows) {
    EXPECT_TRUE(write_all(pipe.get(), row.line));
    ev_run(application.loop, EVRUN_NOWAIT);
    if (!row.write.empty()) expected.push_back(row.write);
  }
  orb_power_board_stop_service(&board);  // after all that waits
  with_board([&](board_model& model) {
    for (const register_write& write : model.log) {
      seen.push_back({write.reg});
      seen.back().insert(seen.back().end(), write.data.begin(), write.data.begin() + write.size);
    }
  });
  EXPECT_EQ(seen, expected);
  struct stat info {};
  ASSERT_EQ(stat(paths::kCommandPipe, &info), 0);
  EXPECT_EQ(info.st_mode, S_IFIFO | 0600U);
}

TEST_F(unit, command_pipe_that_cannot_be_made) {
  ASSERT_EQ(rename("/run/orb", "/run/away"), 0);
  testing::internal::CaptureStderr();
  EXPECT_EQ(start_command_pipe(&application, &board), -1);
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "orbd: mkdifo() failed at line 208: No such file or directory\n");
}

TEST_F(unit, publishes_what_the_board_reads) {
  on_redis_timeout(nullptr, nullptr, 0);  // neither board nor Redis
  ASSERT_EQ(orb_power_board_init(&board, &application, 1), 0);
  power_board_instance = &board;
  on_redis_timeout(nullptr, nullptr, 0);
  const redis_server server;
  const struct {
    float volts, temperature;
    uint8_t motor;
    std::string published;
  } rows[] = {
      {18.25F, -10.5F, 1, "18.250000 -10.500000 height"},
      {0, 25.1F, 2, "0.000000 25.100000 pan"},
      {19.999F, 0, 0, "19.999001 0.000000 none"},
      {19.999F, 0, 3, "19.999001 0.000000 none"},
  };
  for (const auto& row : rows) {
    {
      const mutex_lock lock(board.readings_lock);
      board.readings.monitor_vin_volts = row.volts;
      board.readings.bme280_temperature = row.temperature;
      board.readings.motor_type = row.motor;
    }
    on_redis_timeout(nullptr, nullptr, 0);
    std::string published;
    for (const char* key : {"avr-voltage", "avr-temperature", "orb-motor-type"}) {
      char text[32] = "";
      EXPECT_TRUE(redis_get_text(key, text, sizeof text));
      published += (published.empty() ? "" : " ") + std::string(text);
    }
    EXPECT_EQ(published, row.published);
  }
}

TEST_F(unit, refresh_goes_on_with_a_frozen_redis) {
  const redis_server server;
  start_board();
  start_redis_publisher(&application);
  const auto reads_in = [&](double seconds) {
    const auto reads = [] { return with_board([](board_model& model) { return model.counts.reads; }); };
    const auto before = reads();
    EXPECT_TRUE(run(seconds));
    return reads() - before;
  };
  char text[32];
  EXPECT_GE(reads_in(0.9), 6U);
  EXPECT_FALSE(redis_get_text("avr-voltage", text, sizeof text)) << "before the first second";
  EXPECT_TRUE(run(0.4));
  EXPECT_TRUE(redis_get_text("avr-voltage", text, sizeof text));
  EXPECT_STREQ(text, "20.000000");
  server.freeze();
  EXPECT_GE(reads_in(1.2), 8U);  // one publishing in it
  orb_power_board_destroy(&board);
}

}  // namespace
