// The data logger, its minute stepped without a clock: its two files to the byte, and its dated ones.
#include "store/logger.h"

#include "log_files/current_readings.h"

#include <future>

#include "base/trace_reader.h"
#include "log_files/log_files.h"
#include "store/saves.h"
#include "store/statistics.h"
#include "tests/scarcity.h"

namespace {

constexpr const char* kFile[] = {paths::kLoggerFile0, paths::kLoggerFile1};

void start_afresh() { fs::remove_all(paths::kLoggerFolder), orb_init_logger(); }
std::string content(int file) { return ::content(kFile[file]); }
std::string reading(const std::string& key) {
  return json_text(orb_get_logger_current_readings().get(), key.c_str());
}

void end_minute() { tick_logger(), save_logger_minute(); }

constexpr void (*kSamples[])(double) = {
    orb_report_logger_up_temperature,          orb_report_logger_camera_cpu_temperature,
    orb_report_logger_camera_fpga_temperature, orb_report_logger_camera_lens_temperature,
    orb_report_logger_psb_temperature,         orb_report_logger_internal_humidity,
    orb_report_logger_internal_pressure};

constexpr void (*kEvents[])() = {orb_report_logger_height_motor_warning,
                                 orb_report_logger_tilt_motor_warning,
                                 orb_report_logger_pan_motor_warning,
                                 orb_report_logger_high_temperature_warning,
                                 orb_report_logger_high_pressure_warning,
                                 orb_report_logger_high_humidity_warning,
                                 orb_report_logger_invalid_camera_cpu_temperature,
                                 orb_report_logger_invalid_camera_fpga_temperature,
                                 orb_report_logger_invalid_camera_lens_temperature};

// A history of three minutes as a file holds it, with parts replaced: in each minute the quantities were
// sampled twice, around 10, 20 to 70; one report of the first event, two of the second...
std::string record(int previous, int current, const std::string& changes = "") {
  return golden_record("history.json", previous, current, changes);
}

TEST(logger, files_and_readings_to_the_byte) {
  start_trace();
  start_afresh();
  flushed.clear();
  for (int i = 0; i < 9; ++i)
    for (int times = 0; times <= i; ++times) kEvents[i]();
  for (const double off : {0.5, 1.5, 1.0}) {
    for (int i = 0; i < 7; ++i)
      for (const double plus : {off, static_cast<double>(NAN), -off}) kSamples[i](10.0 * (i + 1) + plus);
    end_minute();
  }
  EXPECT_EQ(content(0), record(3, 4)) << "the fourth save";
  EXPECT_EQ(flushed, "log0.json logger log1.json logger log0.json logger ");
  const json_owner readings = orb_get_logger_current_readings();
  std::string text = json_object_to_json_string_ext(readings.get(), JSON_C_TO_STRING_PLAIN);
  text = std::regex_replace(text, std::regex(R"(\d{4}-\d\d-\d\d)"), "DATE");
  EXPECT_EQ(std::regex_replace(text, std::regex(R"(\d\d:\d\d:\d\d)"), "TIME"), golden("readings.json"));
  orb_init_logger();
  EXPECT_EQ(reading("present_runtime") + reading("present_up_max_temperature"), "0 MIN0.0 °C");
  end_minute();
  EXPECT_EQ(content(1), record(4, 5)) << "no samples: nothing changes";
  EXPECT_EQ(traces("LGGR"),
            "init;create '/home/orb/logger';create '/media/usb99/ApiLogs';reset historical;"
            "stored 1 to file 1;stored 2 to file 0;stored 3 to file 1;stored 4 to file 0;"
            "init;start 4 from file 0;stored 5 to file 1;");
}

// A file can hold more than a count ever reaches.
TEST(logger, counters_and_averages_saturate) {
  for (const int64_t count : {4'294'967'294, 4'294'967'295, 5'000'000'000}) {
    const int room = count == 4'294'967'294 ? 1 : 0;  // for one more
    statistics numbers;
    numbers.session.quantities[kPsbTemperature] = {50, 1, 4.0 * (65535 - room), 65535 - room};
    numbers.session.runtime_minutes = 65535;
    numbers.history = {.runtime_minutes = INT64_MAX, .sessions = 65535};
    numbers.history.quantities[kPsbTemperature] = {50, 1, 4.0 * static_cast<double>(count), count};
    for (statistics_set* set : {&numbers.session, &numbers.history}) set->counters.fill(65535 - room);
    numbers.history = parse_history(history_record(numbers.history).get());
    count_event(numbers, kInvalidCameraLens);
    add_sample(numbers, kPsbTemperature, 50);
    for (int minute = 0; minute < 3; ++minute) step_minute(numbers);
    const statistics_set& lifetime = numbers.history;
    EXPECT_EQ(std::tuple(numbers.session.runtime_minutes, lifetime.runtime_minutes, lifetime.sessions),
              std::tuple(65535, INT64_MAX, 65535));
    for (const statistics_set* set : {&numbers.session, &numbers.history}) {
      const int64_t limit = set == &numbers.session ? 65535 : count + room;
      EXPECT_EQ(set->counters[kInvalidCameraLens], 65535);
      EXPECT_EQ(set->quantities[kPsbTemperature].average_count, limit);
      EXPECT_DOUBLE_EQ(set->quantities[kPsbTemperature].average_sum, 4.0 * static_cast<double>(limit) + 46);
    }
  }
}

TEST(logger, bad_numbers_of_a_file_take_their_defaults) {
  start_afresh();
  std::ofstream(kFile[1]) << record(
      0, 1,
      R"(time":3>time":-3|n_count":1>n_count":1.0|tilt_motor_warnings":2>tilt_motor_warnings":70000|)"
      R"("pan_motor_warnings":3,>|count":9>count":"9"|11.5>NaN|8.5>null|21.5>Infinity|61.5>1e999|)"
      R"(58.5>58|71.5>true|acc":150.0>acc":-Infinity|up_avg_temperature_count":3>up_avg_temperature_count":-3)");
  orb_init_logger();
  // The average begins anew, without what is absurd; the extremes of a lifetime stand.
  for (const double value : {50.0, 1e300, -1e300}) orb_report_logger_psb_temperature(value);
  end_minute();
  EXPECT_EQ(
      content(0),
      record(
          1, 2,
          R"(time":3>time":0|n_count":1>n_count":0|tilt_motor_warnings":2>tilt_motor_warnings":65535|)"
          R"(pan_motor_warnings":3>pan_motor_warnings":0|count":9>count":0|11.5>0.0|8.5>0.0|21.5>0.0|61.5>0.0|)"
          R"(58.5>58.0|71.5>0.0|acc":150.0>acc":50.0|psb_avg_temperature_count":3>psb_avg_temperature_count":1|)"
          R"(acc":30.0>acc":0.0|up_avg_temperature_count":3>up_avg_temperature_count":0)"));
}

TEST(logger, nothing_comes_back_after_a_reset) {
  const std::string mark = paths::kLoggerResetMark;
  for (const int live : {0, 1})
    for (const bool fails : {false, true}) {
      start_afresh();
      for (int minute = 0; minute < 5 + live; ++minute) orb_report_logger_up_temperature(50), end_minute();
      orb_report_logger_up_temperature(50);
      flushed.clear();
      flush_fails = fails;
      orb_check_logger_reset();  // there is no mark yet
      std::ofstream(mark) << "any content";
      orb_check_logger_reset();
      fs::remove(mark);
      flush_fails = false;
      if (fails) end_minute();
      const std::string other = live == 0 ? "log1.json " : "log0.json ";
      EXPECT_EQ(flushed, fails ? other + other + "logger " : other + "logger logger ");
      for (int starts = 0; starts < 3; ++starts) {
        EXPECT_EQ(reading("historical_total_runtime"), "0 MIN") << live << fails << starts;
        EXPECT_EQ(reading("historical_up_max_temperature"), "0.0 °C");
        orb_init_logger();
        if (starts == 1) end_minute(), orb_init_logger();
      }
    }
}

// The main loop ends a minute, and the board's thread reports, while a save hangs. Two minutes are one save
// then, the daemon's end waits for it, and a reset behind it leaves nothing.
TEST(logger, neither_minutes_nor_reports_wait_for_a_save) {
  static std::atomic<bool> hangs;
  for (const bool reset : {false, true}) {
    start_afresh();
    hangs = true;
    on_flush = [] { await([] { return !hangs; }); };
    tick_logger();
    std::future<void> thread = std::async(std::launch::async, save_logger_minute);
    const int64_t start = monotonic_ns();
    sleep_ms(50);
    orb_report_logger_tilt_motor_warning(), tick_logger(), tick_logger(), tick_logger();
    EXPECT_LT(monotonic_ns() - start, 500 * kNanosecondsPerMillisecond);
    const auto save = [reset] { reset ? static_cast<void>(orb_reset_logger()) : save_logger_minute(); };
    std::future<void> end = std::async(std::launch::async, save);
    EXPECT_EQ(end.wait_for(std::chrono::milliseconds(50)), std::future_status::timeout);
    hangs = false;
    end.get(), thread.get();
    on_flush = nullptr;
    if (reset) save_logger_minute();  // what the minutes asked for before it
    orb_init_logger();
    EXPECT_EQ(reading("historical_total_runtime"), reset ? "0 MIN" : "4 MIN");
    EXPECT_EQ(reading("historical_tilt_motor_warnings"), reset ? "0" : "1");
    EXPECT_TRUE(contains(content(reset ? 0 : 1), reset ? R"(_id":2,)" : R"(_id":3,)"));
  }
}

// Minute k counts one event more: what is loaded tells whole minutes from mixed ones.
void save_minute(int) { orb_report_logger_pan_motor_warning(), end_minute(); }

int load_minute() {
  orb_init_logger();
  const std::string minute = reading("historical_pan_motor_warnings");
  return reading("historical_total_runtime") == minute + " MIN" ? std::stoi(minute) : -1;
}

TEST(logger, a_kill_loses_no_more_than_the_minute_in_flight) {
  start_afresh();
  kill_while_saving(0, 100, save_minute, load_minute);
}

TEST(logger, a_thread_that_cannot_be_had_is_asked_for_each_minute) {
  start_afresh();
  {
    const no_more_threads now;
    start_logger_timer(ev_default_loop(0));
  }
  tick_logger();
  EXPECT_TRUE(await([] { return content(0).find("_id\":2,") != std::string::npos; }));
}

const std::string kLogs = paths::kUsbLogs + std::string("/");

std::string text_of(const json_owner& value) {
  return json_object_to_json_string_ext(value.get(), JSON_C_TO_STRING_NOSLASHESCAPE);
}

TEST(log_files, of_one_second_are_a_second_apart_and_whole) {
  orb_init_logger();
  fs::remove_all(kLogs);  // another stick
  const std::string before = local_time_text(0);
  while (local_time_text(0) == before) sleep_ms(1);
  std::vector<std::string> expected;
  for (const int later_s : {0, 1, 2}) expected.push_back("log_" + local_time_text(later_s) + ".json");
  for (int i = 0; i < 3; ++i) EXPECT_EQ(orb_create_logger_file(), 0);
  flush_fails = true;
  EXPECT_EQ(orb_create_logger_file(), -1);
  flush_fails = false;
  EXPECT_EQ(file_names(kLogs.c_str(), ""), expected);
  const json_owner readings = orb_get_logger_file_readings(expected[0]);
  EXPECT_EQ(json_text(readings.get(), "historical_session_count"), "0");
}

TEST(log_files, are_read_listed_and_deleted) {
  start_trace();
  fs::remove_all(kLogs);
  orb_init_logger();
  for (const char* json : {"", "{", "[1]", R"({"a":"b/c"})"}) {
    put(kLogs + "a.json", json);
    for (const char* name : {"none.json", "", "..", "../ApiLogs/a.json"})
      EXPECT_EQ(text_of(orb_get_logger_file_readings(name)), "{}") << name;
    EXPECT_EQ(text_of(orb_get_logger_file_readings("a.json")), strlen(json) > 5 ? json : "{}");
  }
  put(kLogs + "a.json", "{\"a\":\"\xE4\"}");  // another program's
  EXPECT_EQ(text_of(orb_get_logger_file_readings("a.json")), R"({"a":"?"})");
  put(kLogs + "\xE4.json", "");
  for (const char* name : {"b.json", "d.jso", ".json"}) put(kLogs + name, "12345678");
  put("/media/usb-cpy/b.json", "12");
  EXPECT_EQ(
      orb_get_logger_files(),
      R"([{"path":"/ApiLogs","name":"a.json","data_store":"Main USB","size":"9","percent_copied":""},)"
      R"({"path":"/ApiLogs","name":"b.json","data_store":"Main USB","size":"8","percent_copied":"25.0 %"},)"
      R"({"path":"/ApiLogs","name":"?.json","data_store":"Main USB","size":"0","percent_copied":""}])");
  json_object* list = json_tokener_parse(R"([{"name":"a.json"},{"name":"x/../b.json"}])");
  EXPECT_EQ(orb_delete_logger_files(list, json_owner(list)), 0);
  while (!traces("LGGR").ends_with("delete 'x/../b.json';file '/media/usb99/ApiLogs/' missing;delete end;"))
    sleep_ms(5);
  EXPECT_TRUE(!fs::exists(kLogs + "a.json") && fs::exists(kLogs + "b.json"));
}

}  // namespace
