// Identity and battery type, and the order in which shutdowns are served.

#include "supervisor/shutdown.h"
#include "api/api_client.h"
#include "base/redis_server.h"
#include "power_board/events.h"
#include "power_board/power_board.h"
#include "recorder/bench.h"
#include "store/identity.h"
#include "supervisor/supervisor.h"
#include "supervisor/versions.h"

namespace {

constexpr char kConfig[] = "/config/system.json";

TEST(identity, battery_type_is_kept_in_redis_and_in_the_file) {
  EXPECT_EQ(orb_set_supervisor_battery_type("Indi"), -1);
  EXPECT_EQ(orb_set_supervisor_battery_type("Dewalt"), 0);  // Redis is down
  EXPECT_EQ(loaded(orb_load_supervisor_battery_type), "unknown");
  EXPECT_EQ(
      content(kConfig),
      R"({"model_number":"ORB-2","model_name":"ORB Advanced","serial_number":"SIM-0001","battery":"Dewalt"})");

  start_redis();
  start_api();
  replace_file(kConfig, R"({"other":1,"model_name":"a/b","battery":"Dewalt"})");
  chmod(kConfig, 0600);
  EXPECT_EQ(orb_set_supervisor_battery_type("Indipro"), 0);
  struct stat info {};
  EXPECT_TRUE(stat(kConfig, &info) == 0 && (info.st_mode & 07777) == 0600);
  EXPECT_EQ(loaded(orb_load_supervisor_battery_type, 4), "Ind");
  EXPECT_EQ(content(kConfig), R"({"model_name":"a/b","battery":"Indipro"})");
  ask_redis("SET orb-serial-number %s", "A\xFF");
  ask_redis("SET orb-model-name %s", "ORB of a long name");
  EXPECT_EQ(ask("GET", "/serial_number"), "{'serial_number':'A?'}");
  EXPECT_EQ(ask("GET", "/model"), "{'model':'ORB of a long n'}");
  EXPECT_EQ(ask("GET", "/setup/battery_type"), "{'battery_type':'Indipro'}");

  // A file that cannot be written beside, or read, stays as it is.
  mkdir("/config/system.json.new", 0755);
  EXPECT_EQ(orb_set_supervisor_battery_type("Dewalt"), 0);
  EXPECT_EQ(content(kConfig), R"({"model_name":"a/b","battery":"Indipro"})");
  rmdir("/config/system.json.new");
  replace_file(kConfig, "{broken");
  EXPECT_EQ(orb_set_supervisor_battery_type("Dewalt"), 0);
  EXPECT_EQ(content(kConfig), "{broken");
}

TEST(identity, voltage_comes_with_the_level) {
  static orb_power_board board;
  board.battery_thresholds = &orb_power_board_dewalt_thresholds;
  power_board_instance = &board;
  power_board_readings readings;
  readings.monitor_vin_volts = 18.04F;
  for (int refresh = 0; refresh < 64; ++refresh) average_battery(&board, readings);
  EXPECT_EQ(loaded(orb_load_supervisor_battery_voltage), "");
  average_battery(&board, readings);
  EXPECT_EQ(loaded(orb_load_supervisor_battery_voltage), "18.0 V");
}

std::string power_calls() {
  return std::regex_replace(read_file("/tmp/power_calls", 4096).value_or(""), std::regex("\\S+T\\S+ "), "");
}

TEST(shutdown, requests_are_served_once_each_and_wait_for_a_completion) {
  start_shutdown_thread();
  set_stage(recorder_stage::recovering);  // a take that was stopped long ago
  orb_trigger_supervisor_shutdown(kShutdownReboot);
  sleep_ms(1000);
  for (int i = 0; i < 5; ++i) orb_trigger_supervisor_shutdown(kShutdownReboot);
  EXPECT_EQ(power_calls(), "");
  set_stage(recorder_stage::idle);
  EXPECT_EQ(orb_start_recorder(), -1);
  EXPECT_FALSE(is_recorder_busy());
  sleep_ms(2500);
  EXPECT_EQ(power_calls(), "reboot\nreboot\n");

  // A hot unit turns the reboot into a power off, and waits for no completion.
  set_stage(recorder_stage::working);
  recorder.recording = 1;
  orb_trigger_supervisor_shutdown(kShutdownReboot);
  ASSERT_TRUE(await([] { return recorder.recording == 0; }));
  for (int i = 0; i < 30; ++i) orb_trigger_supervisor_shutdown(kShutdownTemperature), sleep_ms(100);
  orb_trigger_supervisor_shutdown(kShutdownReboot);
  sleep_ms(1500);
  EXPECT_EQ(power_calls(), "reboot\nreboot\nshutdown -P now\n");
  EXPECT_TRUE(is_recorder_busy());
}

TEST(shutdown, a_power_off_that_fails_is_tried_again_for_a_wish_that_came_meanwhile_and_for_heat) {
  mkdir("/tmp/bin", 0755);
  replace_file("/tmp/bin/shutdown", "#!/bin/sh\necho tried >>/tmp/power_calls\nsleep 0.5\nexit 1\n");
  chmod("/tmp/bin/shutdown", 0755);
  setenv("PATH", "/tmp/bin:/usr/bin:/bin", 1);
  start_shutdown_thread();
  set_stage(recorder_stage::idle);
  orb_trigger_supervisor_shutdown(0);
  ASSERT_TRUE(await([] { return power_calls() == "tried\n"; }));
  orb_trigger_supervisor_shutdown(kShutdownBoard);  // it asks once
  EXPECT_TRUE(await([] { return power_calls() == "tried\ntried\n" && !is_recorder_held(); }));

  const auto tries_while_hot = [](const std::string& calls) {
    return orb_trigger_supervisor_shutdown(kShutdownTemperature), power_calls() == "tried\ntried\n" + calls;
  };
  EXPECT_TRUE(await([&] { return tries_while_hot("tried\n"); }, 3));
  const int64_t begin = monotonic_ns();
  EXPECT_FALSE(await([&] { return tries_while_hot("tried\ntried\n"); }, 9)) << "at once";
  EXPECT_TRUE(await([&] { return tries_while_hot("tried\ntried\n"); }, 4));
  EXPECT_GT(monotonic_ns() - begin, 10'000 * kNanosecondsPerMillisecond);
  EXPECT_TRUE(is_recorder_held());
  EXPECT_TRUE(await([] { return !is_recorder_held(); }, 14));
  EXPECT_EQ(power_calls(), "tried\ntried\ntried\ntried\n");
}

}  // namespace
