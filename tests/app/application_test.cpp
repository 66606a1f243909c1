// The main loop and what hangs on it: the command pipe and the Redis publisher, on a simulated board.
#include "base/application.h"

#include "app/command_pipe.h"
#include "app/redis_publisher.h"
#include "base/redis_server.h"
#include "power_board/power_board.h"
#include "sim/board/bus.h"
#include "sim/board/control.h"

namespace {

class unit : public testing::Test {
 protected:
  void SetUp() override {
    set_wire_time(false);
    ASSERT_EQ(orb_application_init(&application, "orbd"), 0);
  }

  static void run(double seconds) {
    const auto end = [](int, void*) { ev_break(application.loop, EVBREAK_ONE); };
    ev_once(application.loop, -1, 0, seconds, end, nullptr);
    orb_application_run(&application);
  }

  static inline orb_application application;
  static inline orb_power_board board;
};

// A loop that reaps them takes the exit status from whoever started the child.
TEST_F(unit, leaves_children_to_those_who_wait_for_them) {
  const pid_t child = fork();
  if (child == 0) _exit(3);
  run(0.05);
  EXPECT_EQ(waitpid(child, nullptr, 0), child);
}

// A line that is not meant for it, or half a word, switches power.
TEST_F(unit, command_pipe) {
  with_board([](board_model& model) {
    model.power_enable = kBoardPowerMain | 0x40;
    model.led_enable = 0x12;
    model.led_pwm = 40;
  });
  const unique_fd in_the_way(creat(paths::kCommandPipe, 0644));
  ASSERT_EQ(start_command_pipe(&application, &board), 0);
  ASSERT_EQ(orb_power_board_init(&board, &application, 1), 0);
  ASSERT_EQ(orb_power_board_start_service(&board), 0);
  run(0.4);
  orb_power_board_suspend_refresh(&board);  // from now on the last reading stands
  const std::string kLines =                // to register and data in hexadecimal
      "camera enabled, please>0 46|camera disable>0 42|laser enable>0 4a|laser disable>0 42|"
      "lowest>1 09 28|medium>1 12 28|high>1 24 28|strip>1 c0 28|leds_off>1 00 28|"
      "pwm \t+8 9>1 00 08|pwm -5>1 00 00|pwm 99999999999999999999>1 00 ff|"
      "Low>| low>|camera  enable>|>|low\nhigh>1 09 ff|unknown>1 24 ff|";
  const unique_fd pipe(open(paths::kCommandPipe, O_WRONLY | O_NONBLOCK));
  std::string expected;
  for (const auto& [line, write] : rows_of(kLines)) {  // one is obeyed at each wake-up
    EXPECT_TRUE(write_all(pipe.get(), line + "\n"));
    ev_run(application.loop, EVRUN_NOWAIT);
    if (!write.empty()) expected += write + "\n";
  }
  orb_power_board_stop_service(&board);  // after all that waits
  const std::string log = with_board([](board_model& model) { return board_command(model, "log"); });
  const std::string seen = std::regex_replace(log, std::regex("0\\.000 (6 ff\n)?"), "");
  EXPECT_EQ(seen, expected);
}

// The loop must neither end nor wait while there is no Redis.
TEST_F(unit, publishes_what_the_board_reads) {
  on_redis_timeout(nullptr, nullptr, 0);  // neither board nor Redis
  power_board_instance = &board;
  on_redis_timeout(nullptr, nullptr, 0);
  run(0.1);
  start_redis();
  {
    const mutex_lock lock(board.readings_lock);
    board.readings.monitor_vin_volts = 19.999F;
    board.readings.bme280_temperature = -10.5F;
    board.readings.motor_type = kMotorPan;
  }
  on_redis_timeout(nullptr, nullptr, 0);
  on_redis_timeout(nullptr, nullptr, 0);  // the loop was late
  run(0.2);
  for (const auto& [key, text] :
       {std::pair("avr-voltage", "19.999001"), {"avr-temperature", "-10.500000"}, {"orb-motor-type", "pan"}})
    EXPECT_STREQ(ask_redis("GET %s", key)->str, text);
}

}  // namespace
