// What the sessions hide, and what they cannot have: positions and distances to the digit, a hold's full
// time, clock texts; a unit without camera, stick, board and the right to set the clock.
#include "api/clock_setting.h"
#include "base/trace.h"
#include "camera/lens_loops.h"
#include "power_board/lighting.h"
#include "power_board/power_board.h"
#include "store/settings.h"
#include "tests/api/api_client.h"
#include "tests/visca/fake_camera.h"

namespace {

const std::string kOk = "{'status':'OK'}";
const std::string kBad = "{'status':'BAD_REQUEST'}";

struct CameraApi : testing::Test {
  stepped_link link;

  void SetUp() override {
    link.camera->zoom_position = 14000, link.camera->focus_position = 4096;
    orb_init_nv();
    orb_create_zoom_loop();
    start_api();
  }
};

TEST_F(CameraApi, TellsWhereTheLensesAreAndRefusesWithoutACamera) {
  const std::string zoom = "{'zoom_position':14000,'zoom_magnification':'11x'";
  EXPECT_EQ(ask("GET", "/camera/focus/position"),
            "{'focus_position':4096,'max_depth_of_field':'217 ft','min_depth_of_field':'177 ft'}");
  EXPECT_EQ(ask("GET", "/1.0/camera/zoom") + ask("GET", "/1.0/camera/focus"), "{'zoom':14000}{'focus':4096}");
  const int64_t start = monotonic_ns();
  EXPECT_EQ(ask("POST", "/camera/zoom/increment"), zoom + ",'status':'OK'}");
  link.expect("0723 0700");  // not held again within half a second
  EXPECT_GE(monotonic_ns() - start, 500 * kNanosecondsPerMillisecond);
  visca_thread_data.camera = nullptr;
  EXPECT_EQ(ask("POST", "/camera/zoom/stop"), "{'zoom_position':-1,'zoom_magnification':'?','status':'OK'}");
  EXPECT_EQ(ask("PUT", "/camera/zoom/position", "{'zoom_position':1}"), kBad);
  EXPECT_EQ(ask("PUT", "/camera/invert_image", "{'invert_image':'on'}"), kBad);
  EXPECT_EQ(ask("POST", "/1.0/camera", "{'command':'zoom_stop'}"), "{}");
  EXPECT_EQ(ask("GET", "/1.0/camera"), "{'zoom':-1,'focus':-1}");
}

// Computed apart, to the last digit of a single-precision power.
TEST_F(CameraApi, VersionOneDistance) {
  static orb_power_board board;
  board.laser.distance = 12.5;
  const std::tuple<uint32_t, std::string, int> rows[] = {{kViscaNotReported, "181.68106680213361", -1},
                                                         {7499, "32.404968249936516", 5},
                                                         {7500, "28.167560277991655", 6},
                                                         {41000, "1.0513311719906522", 0},
                                                         {41001, "1.6211305054610112", 7}};
  for (const auto& [focus, distance, refreshes] : rows) {
    link.camera->focus_position = focus;
    board.laser.invalid_count = refreshes;
    power_board_instance = refreshes < 0 ? nullptr : &board;
    EXPECT_EQ(ask("GET", "/1.0/orb"),
              "{'distance':" + distance + ",'tolerance':0.10000000000000001," +
                  "'lrf-distance':" + (refreshes >= 0 && refreshes < 6 ? "12.5}" : "0.0}"));
  }
}

std::string local_text(std::optional<time_t> moment) {
  std::ostringstream text;
  if (moment) text << std::put_time(localtime(&*moment), "%F %T");
  return moment ? text.str() : "refused";
}

TEST(clock_setting, takes_the_fields_of_its_text) {
  setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 1);
  tzset();
  const time_t now = 1767225600 + 15 * 86400 + 3600;  // 2026-01-16 02:00:00, in winter
  const char* const kTimes =
      "0023:059:59>2026-01-16 23:59:59|23:59:60>refused|-1:00:00>refused|"
      "12:x:>2026-01-16 12:00:00|4294967303:5:3>refused";
  for (const auto& [text, time] : rows_of(kTimes))
    EXPECT_EQ(local_text(with_time_of_day(now, text.c_str())), time) << text;
  const char* const kDates =
      "2031-7-9>2031-07-09 02:00:00|1900-01-01>1900-01-01 02:00:00|"  // in summer, in winter
      "10000-01-01>refused|2026-00-01>refused|2026-01-32>refused";
  for (const auto& [text, date] : rows_of(kDates))
    EXPECT_EQ(local_text(with_date(now, text.c_str())), date) << text;
}

TEST(setup_api, without_stick_and_board_and_with_values_that_are_none) {
  orb_init_nv();
  const int seconds = 31;
  orb_write_nv(kSettingHighBeamTime, &seconds, sizeof seconds);
  orb_write_nv(kSettingLanguage, "GER", 3);
  start_api();
  EXPECT_EQ(ask("GET", "/setup/high_beam_time"), "{'high_beam_time':'15'}");
  EXPECT_EQ(ask("GET", "/setup/language"), "{'language':'ENG'}");
  EXPECT_EQ(ask("PUT", "/trace/mask", "{'trace_mask':4294967295}"), kOk);
  EXPECT_EQ(read_file(paths::kTraceMask, 20), "0x7FFFFFFF");
  unlink(paths::kTraceMask);
  rmdir("/media/usb99");
  init_trace();
  EXPECT_EQ(ask("PUT", "/trace/mask", "{'trace_mask':1}"), kBad);
  EXPECT_EQ(ask("GET", "/trace/mask"), "{'trace_mask':0}");
  EXPECT_EQ(ask("PUT", "/setup/time", "{'time':'07:05:03'}"), kBad);  // the right to set the clock is missing
  EXPECT_EQ(ask("POST", "/eject"), kBad);
  for (const char* body : {"{'shutdown_type':'3'}", "{'shutdown_type':'x'}", "{}", "["})
    EXPECT_EQ(ask("POST", "/shutdown", body), kOk);
}

}  // namespace
