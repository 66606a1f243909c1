// What the status record makes of its measurements.
#include "supervisor/status.h"

#include <gtest/gtest.h>

#include <cmath>

#include "recorder/recorder.h"

namespace {

constexpr double kNone = NAN;

std::string warnings(double board, double processor, double lens = kNone, double fpga = kNone,
                     double cpu = kNone) {
  const auto one = [](double value) { return camera_temperature{value, !std::isnan(value)}; };
  const temperature_warnings w = judge_temperatures(board, processor, {one(lens), one(fpga), one(cpu)});
  std::string text;
  for (const auto& [on, name] : {std::pair(w.cold, "cold "),
                                 {w.freezing, "freezing "},
                                 {w.warm, "warm "},
                                 {w.hot, "hot "},
                                 {w.shutdown, "shutdown "},
                                 {w.camera_overheated, "camera "}}) {
    if (on) text += name;
  }
  return text;
}

TEST(status, temperatures_warn_above_and_below_their_limits) {
  struct row {
    double value;
    const char* of_unit;
    const char* of_camera;
  };
  const row kRows[] = {
      {-5.1, "cold freezing ", "cold freezing "},
      {-5.0, "freezing ", "freezing "},
      {-0.1, "freezing ", "freezing "},
      {0.0, "", ""},
      {80.0, "", ""},
      {80.1, "warm ", "warm "},
      {88.0, "warm ", "warm "},
      {88.1, "warm hot ", "warm hot "},
      {89.0, "warm hot ", "warm hot "},
      {89.1, "warm hot shutdown ", "warm hot camera "},
  };
  for (const row& row : kRows) {
    SCOPED_TRACE(row.value);
    EXPECT_EQ(warnings(row.value, 40), row.of_unit);
    EXPECT_EQ(warnings(40, row.value), row.of_unit);
    EXPECT_EQ(warnings(40, 40, row.value), row.of_camera);
    EXPECT_EQ(warnings(40, 40, 30, row.value, 30), row.of_camera);
    EXPECT_EQ(warnings(40, 40, 30, kNone, row.value), row.of_camera);
  }
  EXPECT_EQ(warnings(-6, 95), "cold freezing warm hot shutdown ");
  EXPECT_EQ(warnings(kNone, kNone), "");
}

TEST(status, tilt_is_the_angle_of_two_axes) {
  EXPECT_EQ(tilt_angle(1, 0), 0);
  EXPECT_FALSE(std::signbit(tilt_angle(1, -0.001)));
  EXPECT_EQ(tilt_angle(0.5, 0.5), 45);
  EXPECT_EQ(tilt_angle(0.866, -0.5), -30);
  EXPECT_EQ(tilt_angle(0, 1), 90);
  EXPECT_EQ(tilt_angle(0, -1), -90);
}

std::string times(const free_stores& free, const take_rate& rate, int post_processing = 0) {
  supervisor_values values;
  values.post_processing = post_processing;
  tell_remaining_times(free, rate, &values);
  return std::string(values.recording_time) + " " + values.storage_time + " " + values.time_remaining;
}

TEST(status, remaining_times_follow_the_take_or_the_assumed_rate) {
  take_rate rate;
  EXPECT_EQ(times({3'610'000 + 999, 7'230'000 + 59'999}, rate), "01:00:00 02:00:59 60 MIN");
  EXPECT_EQ(times({90'000'000, 90'000}, rate), "00:01:00 00:01:00 1 MIN");
  EXPECT_EQ(times({9'999, 29'999}, rate), "00:00:00 00:00:00 0 MIN");
  EXPECT_EQ(times({UINT64_MAX, UINT64_MAX}, rate, 42), "999:59:59 999:59:59 42 %");
  step_take_rate(&rate, true, false, 0);  // the file is not there yet
  step_take_rate(&rate, true, false, 500);
  EXPECT_EQ(times({110'000, 2'030'000}, rate), "00:01:40 00:33:20 1 MIN");
  for (uint64_t second = 1; second <= 10; ++second) step_take_rate(&rate, true, false, 500 + 200 * second);
  EXPECT_EQ(times({110'000, 2'030'000}, rate), "00:08:20 02:46:40 8 MIN");
  for (int second = 0; second < 50; ++second) step_take_rate(&rate, true, true, 2500);  // paused
  EXPECT_EQ(times({110'000, 2'030'000}, rate), "00:08:20 02:46:40 8 MIN");
  step_take_rate(&rate, false, false, 0);
  EXPECT_EQ(times({110'000, 2'030'000}, rate), "00:01:40 00:33:20 1 MIN");
}

}  // namespace
