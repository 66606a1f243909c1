// The data logger: the minute stepped without a clock, its two files to the byte, and what a reset, bad
// numbers and a kill leave of the history.
#include "store/logger.h"

#include <gtest/gtest.h>

#include <climits>
#include <filesystem>
#include <fstream>
#include <regex>
#include <sstream>
#include <thread>

#include "app/trace_reader.h"
#include "base/file.h"
#include "store/saves.h"
#include "store/statistics.h"

namespace fs = std::filesystem;

namespace {

constexpr const char* kFile[] = {paths::kLoggerFile0, paths::kLoggerFile1};

void restart() { orb_init_logger(); }
void start_afresh() { fs::remove_all(paths::kLoggerFolder), restart(); }
std::string content(int file) { return read_file(kFile[file], 1 << 20).value_or("nothing"); }
std::string reading(const std::string& key) {
  return json_text(orb_get_logger_current_readings().get(), key.c_str());
}

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

// A history of three minutes, in each of which the quantities were sampled twice, around 10, 20 to 70, and
// with one report of the first event, two of the second and so on.
constexpr const char* kHistory =
    R"(,"total_runtime":3,"session_count":1,"height_motor_warnings":1,"tilt_motor_warnings":2,)"
    R"("pan_motor_warnings":3,"high_temperature_warnings":4,"high_pressure_warnings":5,)"
    R"("high_humidity_warnings":6,"up_max_temperature":11.5,"up_min_temperature":8.5,)"
    R"("up_avg_temperature_acc":30.0,"up_avg_temperature_count":3,"camera_cpu_max_temperature":21.5,)"
    R"("camera_cpu_min_temperature":18.5,"camera_cpu_avg_temperature_acc":60.0,)"
    R"("camera_cpu_avg_temperature_count":3,"invalid_camera_cpu_temperature_count":7,)"
    R"("camera_fpga_max_temperature":31.5,"camera_fpga_min_temperature":28.5,)"
    R"("camera_fpga_avg_temperature_acc":90.0,"camera_fpga_avg_temperature_count":3,)"
    R"("invalid_camera_fpga_temperature_count":8,"camera_lens_max_temperature":41.5,)"
    R"("camera_lens_min_temperature":38.5,"camera_lens_avg_temperature_acc":120.0,)"
    R"("camera_lens_avg_temperature_count":3,"invalid_camera_lens_temperature_count":9,)"
    R"("psb_max_temperature":51.5,"psb_min_temperature":48.5,"psb_avg_temperature_acc":150.0,)"
    R"("psb_avg_temperature_count":3,"internal_max_humidity":61.5,"internal_min_humidity":58.5,)"
    R"("internal_avg_humidity_acc":180.0,"internal_avg_humidity_count":3,"internal_max_pressure":71.5,)"
    R"("internal_min_pressure":68.5,"internal_avg_pressure_acc":210.0,"internal_avg_pressure_count":3,)"
    R"("values_valid":1})";

// It as a file holds it, with parts replaced: "from>to|from>to".
std::string record(int previous, int current, const std::string& changes = "") {
  std::string text = "{\"previous_id\":" + std::to_string(previous) +
                     ",\"current_id\":" + std::to_string(current) + kHistory;
  std::istringstream list(changes);
  for (std::string from, to; std::getline(list, from, '>') && std::getline(list, to, '|');)
    text.replace(text.find(from), from.size(), to);
  return text;
}
void put(int file, std::string_view text) { std::ofstream(kFile[file]) << text; }

// One set of kHistory as texts.
std::string shown(const std::string& prefix, const std::string& first) {
  const std::string rows =
      first +
      "height_motor_warnings:1 tilt_motor_warnings:2 pan_motor_warnings:3 high_temperature_warnings:4 "
      "high_pressure_warnings:5 high_humidity_warnings:6 "
      "up_max_temperature:11.5~°C up_min_temperature:8.5~°C up_avg_temperature:10.0~°C "
      "camera_cpu_max_temperature:21.5~°C camera_cpu_min_temperature:18.5~°C "
      "camera_cpu_avg_temperature:20.0~°C invalid_camera_cpu_temperature:7 "
      "camera_fpga_max_temperature:31.5~°C camera_fpga_min_temperature:28.5~°C "
      "camera_fpga_avg_temperature:30.0~°C invalid_camera_fpga_temperature:8 "
      "camera_lens_max_temperature:41.5~°C camera_lens_min_temperature:38.5~°C "
      "camera_lens_avg_temperature:40.0~°C invalid_camera_lens_temperature:9 "
      "psb_max_temperature:51.5~°C psb_min_temperature:48.5~°C psb_avg_temperature:50.0~°C "
      "internal_max_humidity:62~% internal_min_humidity:58~% internal_avg_humidity:60~% "
      "internal_max_pressure:72~mb internal_min_pressure:68~mb internal_avg_pressure:70~mb ";
  std::string text = std::regex_replace(rows, std::regex("(\\S+):(\\S+) "), ",\"" + prefix + "$1\":\"$2\"");
  return std::regex_replace(text, std::regex("~"), " ");
}

TEST(logger, files_and_readings_to_the_byte) {
  start_trace();
  start_afresh();
  flushed.clear();
  for (int i = 0; i < 9; ++i)
    for (int k = 0; k <= i; ++k) kEvents[i]();
  for (const double off : {0.5, 1.5, 1.0}) {
    for (int i = 0; i < 7; ++i)
      for (const double sample : {10.0 * (i + 1) + off, static_cast<double>(NAN), 10.0 * (i + 1) - off})
        kSamples[i](sample);
    tick_logger();
  }
  EXPECT_EQ(content(0), record(3, 4)) << "the fourth save";
  EXPECT_EQ(flushed, "log0.json logger log1.json logger log0.json logger ");
  const std::string readings =
      json_object_to_json_string_ext(orb_get_logger_current_readings().get(), JSON_C_TO_STRING_PLAIN);
  const std::string head =
      R"({"present_model":"unknown","present_serial_number":"unknown","present_software_version":"03.01",)"
      R"("present_firmware_version":"00.00","present_camera_version":"","present_battery_voltage":"",)"
      R"("present_date":"D","present_time":"T")";
  EXPECT_EQ(std::regex_replace(std::regex_replace(readings, std::regex(R"(\d{4}-\d\d-\d\d)"), "D"),
                               std::regex(R"(\d\d:\d\d:\d\d)"), "T"),
            head + shown("present_", "runtime:3~MIN ") +
                shown("historical_", "total_runtime:3~MIN average_runtime:3~MIN session_count:1 ") + "}");
  restart();
  EXPECT_EQ(reading("present_runtime") + reading("present_up_max_temperature"), "0 MIN0.0 °C");
  tick_logger();
  EXPECT_EQ(content(1), record(4, 5)) << "no samples: nothing changes";
  EXPECT_EQ(traces("LGGR"),
            "init;create '/home/orb/logger';create '/media/usb99/ApiLogs';reset historical;"
            "stored 1 to file 1;stored 2 to file 0;stored 3 to file 1;stored 4 to file 0;"
            "init;start 4 from file 0;stored 5 to file 1;");
}

TEST(logger, runs_count_from_their_third_minute) {
  for (const auto& [minutes, runtime] : {std::pair(2, 0), {3, 3}, {5, 5}, {100'000, 100'000}}) {
    statistics numbers;
    for (int i = 0; i < minutes; ++i) step_minute(numbers);
    EXPECT_EQ(numbers.session.runtime_minutes, std::min(minutes, 65535));
    EXPECT_EQ(numbers.history.runtime_minutes, runtime);
    EXPECT_EQ(numbers.history.sessions, runtime > 0);
  }
  statistics full;
  full.history.sessions = kCounterLimit, full.history.runtime_minutes = INT64_MAX - 1;
  for (int i = 0; i < 5; ++i) step_minute(full);
  EXPECT_EQ(full.history.sessions, 65535);
  EXPECT_EQ(full.history.runtime_minutes, INT64_MAX);
}

TEST(logger, counters_and_averages_saturate) {
  statistics numbers;
  for (int minute = 0; minute < 65536; ++minute) {
    for (size_t i = 0; i < kCounterCount; ++i) count_event(numbers, static_cast<statistics_counter>(i));
    add_sample(numbers, kPsbTemperature, minute < 65535 ? 10 : 65545);
    step_minute(numbers);
  }
  for (const statistics_set* set : {&numbers.session, &numbers.history})
    for (const int64_t counter : set->counters) EXPECT_EQ(counter, 65535);
  const quantity_statistics &session = numbers.session.quantities[kPsbTemperature],
                            &history = numbers.history.quantities[kPsbTemperature];
  EXPECT_EQ(session.average_count, 65535);
  EXPECT_DOUBLE_EQ(session.average_sum, 65535 * 10.0 - 10 + 65545);
  EXPECT_EQ(history.average_count, 65536);
  EXPECT_DOUBLE_EQ(history.average_sum, 65535 * 10.0 + 65545);

  // Below, at and above the history's limit.
  for (const auto& [count, after, sum] : {std::tuple("4294967294", "4294967295", "100.0"),
                                          {"4294967295", "4294967295", "96.0"},
                                          {"5000000000", "5000000000", "96.0"}}) {
    start_afresh();
    const std::string old_sum = std::to_string(std::stoll(count) * 4) + ".0";
    put(1, record(0, 1,
                  "psb_avg_temperature_acc\":150.0>psb_avg_temperature_acc\":" + old_sum +
                      "|psb_avg_temperature_count\":3>psb_avg_temperature_count\":" + count));
    restart();
    orb_report_logger_psb_temperature(100);
    tick_logger();
    const double grown = std::stod(old_sum) + std::stod(sum);
    const std::string text = std::to_string(static_cast<int64_t>(grown)) + ".0";
    EXPECT_NE(
        content(0).find("psb_avg_temperature_acc\":" + text + ",\"psb_avg_temperature_count\":" + after),
        std::string::npos)
        << content(0);
  }
}

TEST(logger, bad_numbers_of_a_file_take_their_defaults) {
  start_afresh();
  const std::pair<const char*, const char*> rows[] = {
      {"runtime\":3>runtime\":-3", "runtime\":3>runtime\":0"},
      {"session_count\":1>session_count\":1.0", "session_count\":1>session_count\":0"},
      {"tilt_motor_warnings\":2>tilt_motor_warnings\":70000",
       "tilt_motor_warnings\":2>tilt_motor_warnings\":65535"},
      {"count\":9>count\":\"9\"", "count\":9>count\":0"},
      {"pan_motor_warnings\":3>other\":3", "pan_motor_warnings\":3>pan_motor_warnings\":0"},
      {"11.5>NaN|8.5>null|21.5>Infinity", "11.5>0.0|8.5>0.0|21.5>0.0"},
      {"61.5>1e999|58.5>58|71.5>true", "61.5>0.0|58.5>58.0|71.5>0.0"},
      {"acc\":150.0>acc\":-Infinity",
       "acc\":150.0>acc\":0.0|psb_avg_temperature_count\":3>psb_avg_temperature_count\":0"},
      {"up_avg_temperature_count\":3>up_avg_temperature_count\":-3",
       "acc\":30.0>acc\":0.0|up_avg_temperature_count\":3>up_avg_temperature_count\":0"}};
  for (const auto& [spoilt, loaded] : rows) {
    put(1, record(0, 1, spoilt));
    fs::remove(kFile[0]);
    restart();
    tick_logger();
    EXPECT_EQ(content(0), record(1, 2, loaded)) << spoilt;
  }
}

TEST(logger, nothing_comes_back_after_a_reset) {
  const std::string mark = paths::kLoggerResetMark;
  for (const int live : {0, 1}) {
    for (const bool fails : {false, true}) {
      start_afresh();
      for (int minute = 0; minute < 5 + live; ++minute) orb_report_logger_up_temperature(50), tick_logger();
      orb_report_logger_up_temperature(50);
      orb_check_logger_reset();  // there is no mark
      EXPECT_EQ(reading("historical_total_runtime"), live == 0 ? "5 MIN" : "6 MIN");
      flushed.clear();
      flush_fails = fails;
      std::ofstream{mark};
      orb_check_logger_reset();
      fs::remove(mark);
      flush_fails = false;
      if (fails) tick_logger();
      EXPECT_EQ(content(live) == "nothing", !fails);
      const std::string other = live == 0 ? "log1.json " : "log0.json ";
      EXPECT_EQ(flushed, fails ? other + other + "logger " : other + "logger logger ");
      for (int starts = 0; starts < 3; ++starts) {
        EXPECT_EQ(reading("present_runtime"), fails && starts == 0 ? "1 MIN" : "0 MIN");
        EXPECT_EQ(reading("historical_total_runtime"), "0 MIN") << live << fails << starts;
        EXPECT_EQ(reading("historical_up_max_temperature"), "0.0 °C");
        restart();
        if (starts == 1) tick_logger(), restart();
      }
    }
  }
}

// Minute k samples k everywhere: what is loaded tells whole minutes from mixed ones.
void save_minute(int k) {
  for (const auto& sample : kSamples) sample(k);
  orb_report_logger_pan_motor_warning();
  tick_logger();
}

int load_minute() {
  restart();
  const json_owner readings = orb_get_logger_current_readings();
  const auto text = [&](const char* key) { return json_text(readings.get(), key); };
  const std::string minute = text("historical_pan_motor_warnings");
  const bool whole = text("historical_total_runtime") == minute + " MIN" &&
                     text("historical_up_max_temperature") == minute + ".0 °C" &&
                     text("historical_psb_min_temperature") == "1.0 °C" &&
                     text("historical_internal_max_pressure") == minute + " mb";
  return whole ? std::stoi(minute) : -1;
}

TEST(logger, a_kill_loses_no_more_than_the_minute_in_flight) {
  start_afresh();
  kill_while_saving(0, 100, save_minute, load_minute);
}

// For ThreadSanitizer.
TEST(logger, is_reported_to_while_it_ticks) {
  start_afresh();
  std::thread board([] {
    for (int i = 0; i < 2000; ++i)
      orb_report_logger_internal_pressure(1000), orb_report_logger_tilt_motor_warning();
  });
  for (int i = 0; i < 50; ++i) tick_logger(), reading("historical_internal_max_pressure");
  board.join();
  EXPECT_EQ(reading("present_tilt_motor_warnings"), "2000");
}

}  // namespace
