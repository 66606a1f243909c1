// The main loop and what hangs on it: signals, the command pipe and the Redis publisher, with the real board
// service on a simulated board.
#include "app/application.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <sstream>
#include <string>

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

std::string redis_text(const char* key) {
  char text[32] = "-";
  redis_get_text(key, text, sizeof text);
  return std::string(text) + " ";
}

TEST_F(unit, signals) {
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
  orb_application_destroy(&application);
}

TEST_F(unit, command_pipe) {
  with_board([](board_model& model) {
    model.power_enable = kBoardPowerMain | 0x40;
    model.led_enable = 0x12;
    model.led_pwm = 40;
  });
  const unique_fd in_the_way(creat(paths::kCommandPipe, 0644));
  ASSERT_EQ(start_command_pipe(&application, &board), 0);
  start_board();
  while (readings().led_pwm != 40) ASSERT_TRUE(run(0.02));
  orb_power_board_suspend_refresh(&board);  // from now on the last reading stands
  std::istringstream script(                // line > register and data in hexadecimal
      "camera enable>00 46 |camera enabled, please>00 46 |camera disable>00 42 |laser enable>00 4A |"
      "laser disable>00 42 |low>01 09 28 |lowest>01 09 28 |medium>01 12 28 |high>01 24 28 |strip>01 C0 28 |"
      "leds_off>01 00 28 |pwm 100>01 12 64 |pwm7>01 12 07 |pwm \t+8 9>01 12 08 |pwm 300>01 12 FF |"
      "pwm -5>01 12 00 |pwm 99999999999999999999>01 12 FF |pwm>01 12 00 |Low>| low>|camera  enable>|>|"
      "low\nhigh\nmedium>01 09 28 |unknown>01 24 28 |nothing more>01 12 28 |");
  const unique_fd pipe(open(paths::kCommandPipe, O_WRONLY | O_NONBLOCK));
  std::string expected, seen;
  std::string line, write;  // one line is obeyed at each wake-up
  while (std::getline(script, line, '>') && std::getline(script, write, '|')) {
    EXPECT_TRUE(write_all(pipe.get(), line + "\n"));
    ev_run(application.loop, EVRUN_NOWAIT);
    if (!write.empty()) expected += write + "\n";
  }
  orb_power_board_stop_service(&board);  // after all that waits
  with_board([&](board_model& model) {
    for (const register_write& done : model.log) {
      char text[64];
      int used = snprintf(text, sizeof text, "%02X ", done.reg);
      for (size_t i = 0; i < done.size; ++i) used += snprintf(text + used, 4, "%02X ", done.data.at(i));
      seen += std::string(text) + "\n";
    }
  });
  EXPECT_EQ(seen, expected);
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
  power_board_instance = &board;
  on_redis_timeout(nullptr, nullptr, 0);
  start_redis();
  const struct {
    float volts, temperature;
    uint8_t motor;
    const char* published;
  } rows[] = {{18.25F, -10.5F, 1, "18.250000 -10.500000 height "},
              {0, 25.5F, 2, "0.000000 25.500000 pan "},
              {19.999F, 0, 0, "19.999001 0.000000 none "},
              {19.999F, 0, 3, "19.999001 0.000000 none "}};
  for (const auto& row : rows) {
    {
      const mutex_lock lock(board.readings_lock);
      board.readings.monitor_vin_volts = row.volts;
      board.readings.bme280_temperature = row.temperature;
      board.readings.motor_type = row.motor;
    }
    on_redis_timeout(nullptr, nullptr, 0);
    EXPECT_EQ(redis_text("avr-voltage") + redis_text("avr-temperature") + redis_text("orb-motor-type"),
              row.published);
  }
}

TEST_F(unit, refresh_goes_on_with_a_frozen_redis) {
  start_redis();
  start_board();
  start_redis_publisher(&application);
  EXPECT_TRUE(run(0.8));
  EXPECT_EQ(redis_text("avr-voltage"), "- ") << "before the first second";
  EXPECT_TRUE(run(0.4));
  EXPECT_EQ(redis_text("avr-voltage"), "20.000000 ");
  signal_redis("STOP");
  const auto reads = [] { return with_board([](board_model& model) { return model.counts.reads; }); };
  const auto before = reads();
  EXPECT_TRUE(run(1.2));  // one publishing in it
  EXPECT_GE(reads() - before, 8U);
  orb_power_board_destroy(&board);
}

}  // namespace
