// The logger's dated files: made, listed, read and deleted.
#include "store/log_files.h"

#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <set>

#include "app/trace_reader.h"
#include "base/clock.h"
#include "store/logger.h"
#include "store/saves.h"

namespace fs = std::filesystem;

namespace {

const std::string kLogs = paths::kUsbLogs + std::string("/");

void put(const std::string& path, const std::string& text) { std::ofstream(path) << text; }

std::string text_of(const json_owner& value) {
  return json_object_to_json_string_ext(value.get(), JSON_C_TO_STRING_NOSLASHESCAPE);
}

TEST(log_files, of_one_second_are_a_second_apart_and_whole) {
  orb_init_logger();
  fs::remove_all(kLogs);  // another stick
  const std::string before = local_time_text(0);
  while (local_time_text(0) == before) sleep_ms(1);
  std::set<std::string> expected;
  for (const int later_s : {0, 1, 2}) expected.insert("log_" + local_time_text(later_s) + ".json");
  for (int i = 0; i < 3; ++i) EXPECT_EQ(orb_create_logger_file(), 0);
  flush_fails = true;
  EXPECT_EQ(orb_create_logger_file(), -1);
  flush_fails = false;
  std::set<std::string> names;
  for (const fs::directory_entry& file : fs::directory_iterator(kLogs)) names.insert(file.path().filename());
  EXPECT_EQ(names, expected);
  const json_owner readings = orb_get_logger_file_readings(*names.begin());
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
  for (const char* name : {"b.json", "d.jso", ".json"}) put(kLogs + name, "12345678");
  put("/media/usb-cpy/b.json", "12");
  EXPECT_EQ(
      text_of(orb_get_logger_files()),
      R"([{"path":"/ApiLogs","name":"a.json","data_store":"Main USB","size":"11","percent_copied":""},)"
      R"({"path":"/ApiLogs","name":"b.json","data_store":"Main USB","size":"8","percent_copied":"25.0 %"}])");
  json_object* list = json_tokener_parse(R"([{"name":"a.json"},{"name":"x/../b.json"}])");
  EXPECT_EQ(orb_delete_logger_files(list, json_owner(list)), 0);
  while (!traces("LGGR").ends_with("delete 'x/../b.json';file '/media/usb99/ApiLogs/' missing;delete end;"))
    sleep_ms(5);
  EXPECT_TRUE(!fs::exists(kLogs + "a.json") && fs::exists(kLogs + "b.json"));
}

}  // namespace
