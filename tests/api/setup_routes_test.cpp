// The unit's setup and service without a unit around them: clock texts, GPS sentences, and what the routes do
// without a stick, a board and the right to set the clock. What they answer and trace is in the session.
#include <gtest/gtest.h>

#include "api/api_client.h"
#include "api/clock_setting.h"
#include "base/trace.h"
#include "power_board/lighting.h"
#include "recorder/gps.h"
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

TEST(gps, location_of_a_sentence) {
  const std::string kept = "a b c";
  const std::string rest = ",1,08,0.9,545.4,M,46.9,M,,";
  const std::pair<std::string, std::string> rows[] = {
      {"$GPGGA,001519.256,4807.038,S,01131.000,W" + rest, "-48.11730 -11.51667 00:15:19.26 UTC"},
      {"$GPGGA,235959,9000,N,18000,W", "90.00000 -180.00000 23:59:59.00 UTC"},
      {"$GPGGA,,,,,,0,,,,,,,,", kept},  // without a fix
      {"$GPGGA,123519,4807.038x,N,01131.000,E" + rest, kept},
      {"$GPGGA,123519,nan,N,01131.000,E" + rest, kept},
      {"$GPGGA,123519,9000.1,N,01131.000,E" + rest, kept},
      {"$GPGGA,123519,4760,N,01131.000,E" + rest, kept},
      {"$GPGGA,126000,4807.038,N,01131.000,E" + rest, kept},
      {"$GPGGA,123561,4807.038,N,01131.000,E" + rest, kept},
      {"$GPGGA,123519,4807.038,N,-1131.000,E" + rest, kept},
      {std::string(200, ','), kept}};
  for (const auto& [sentence, expected] : rows) {
    orb_set_recorder_gps_location("a", "b", "c");
    EXPECT_EQ(orb_set_recorder_gps_data(sentence.c_str()), sentence[0] == '$' ? 0 : -1) << sentence;
    char texts[4][81];
    orb_load_recorder_gps_data(texts[0], sizeof texts[0]);
    orb_load_recorder_gps_location(texts[1], 81, texts[2], 81, texts[3], 81);
    EXPECT_EQ(texts[0], sentence.substr(0, 80));
    EXPECT_EQ(std::string(texts[1]) + " " + texts[2] + " " + texts[3], expected) << sentence;
  }
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
