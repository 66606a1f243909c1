// The unit's setup and service without a unit around them: clock texts, and what the routes do
// without a stick, a board and the right to set the clock. What they answer and trace is in the session.
#include <gtest/gtest.h>

#include "api/api_client.h"
#include "api/clock_setting.h"
#include "base/trace.h"
#include "power_board/lighting.h"
#include "store/settings.h"

namespace {

const std::string kOk = "{'status':'OK'}";
const std::string kBad = "{'status':'BAD_REQUEST'}";

std::string local_text(std::optional<time_t> moment) {
  if (!moment) return "refused";
  tm local{};
  localtime_r(&*moment, &local);
  char text[32];
  strftime(text, sizeof text, "%F %T", &local);
  return text;
}

TEST(clock_setting, takes_the_fields_of_its_text) {
  setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 1);
  tzset();
  const time_t now = 1767225600 + 15 * 86400 + 3600;  // 2026-01-16 02:00:00, in winter
  const std::tuple<std::optional<time_t> (*)(time_t, const char*), const char*, const char*> rows[] = {
      {with_time_of_day, "0023:059:59", "2026-01-16 23:59:59"},
      {with_time_of_day, "23:59:60", "refused"},
      {with_time_of_day, "-1:00:00", "refused"},
      {with_time_of_day, "12:x:", "2026-01-16 12:00:00"},
      {with_time_of_day, "4294967303:5:3", "refused"},
      {with_date, "2031-7-9", "2031-07-09 02:00:00"},  // in summer
      {with_date, "1900-01-01", "1900-01-01 02:00:00"},
      {with_date, "10000-01-01", "refused"},
      {with_date, "2026-00-01", "refused"},
      {with_date, "2026-01-32", "refused"}};
  for (const auto& [with, text, expected] : rows) EXPECT_EQ(local_text(with(now, text)), expected) << text;
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
