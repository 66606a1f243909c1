// The logger's dated files: made, listed, read, copied and deleted.
#include "store/log_files.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <set>

#include "app/trace_reader.h"
#include "base/clock.h"
#include "store/logger.h"
#include "store/saves.h"
#include "supervisor/bench_stick.h"

namespace fs = std::filesystem;

namespace {

const std::string kLogs = paths::kUsbLogs + std::string("/");

void put(const std::string& path, const std::string& text) { std::ofstream(path) << text; }

std::string text_of(const json_owner& value) {
  std::string text = json_object_to_json_string_ext(value.get(), JSON_C_TO_STRING_NOSLASHESCAPE);
  return std::ranges::replace(text, '"', '\''), text;
}

int request(int (*job)(json_object*, json_owner), const char* list) {
  json_object* root = json_tokener_parse(list);
  return job(root, json_owner(root));
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

TEST(log_files, are_read_listed_copied_and_deleted) {
  start_trace();
  fs::remove_all(kLogs);
  orb_init_logger();
  for (const char* text : {"", "{", "[1]", "{'a':'b/c'}"}) {
    std::string json = text;
    std::ranges::replace(json, '\'', '"');
    put(kLogs + "a.json", json);
    for (const char* name : {"none.json", "", "..", "../ApiLogs/a.json"})
      EXPECT_EQ(text_of(orb_get_logger_file_readings(name)), "{}") << name;
    EXPECT_EQ(text_of(orb_get_logger_file_readings("a.json")), json.size() > 5 ? text : "{}");
  }
  put(kLogs + "a.json", "{\"a\":\"\xE4\"}");  // another program's
  EXPECT_EQ(text_of(orb_get_logger_file_readings("a.json")), "{'a':'?'}");
  put(kLogs + "\xE4.json", "");
  start_usb_stick(), plug(true), step_usb_stick();
  for (const char* name : {"b.json", "c.json", "d.jso", ".json"}) put(kLogs + name, "12345678");
  put("/media/usb-cpy/b.json", "12"), put("/media/usb-cpy/c.json", "12345678");
  const auto listed = [](const std::string& name, const std::string& place) {
    return "{'path':'/ApiLogs','name':'" + name + "','data_store':'" + place + "'}";
  };
  EXPECT_EQ(text_of(orb_get_logger_files()),
            "[" + listed("a.json", "Main USB','size':'9','percent_copied':'") + "," +
                listed("b.json", "Main USB','size':'8','percent_copied':'25.0 %") + "," +
                listed("c.json", "External USB','size':'8','percent_copied':'100.0 %") + "," +
                listed("?.json", "Main USB','size':'0','percent_copied':'") + "]");
  const size_t seen = traces("LGGR").size();
  EXPECT_EQ(request(orb_copy_logger_files, "{}"), -1);
  EXPECT_EQ(request(orb_copy_logger_files, R"([{"name":"b.json"},{"name":"c.json"}])"), 0);
  while (!traces("LGGR").ends_with("copy end;")) sleep_ms(5);
  EXPECT_EQ(request(orb_delete_logger_files, R"([{"name":"a.json"},{"name":"x/../c.json"}])"), 0);
  while (!traces("LGGR").ends_with("delete end;")) sleep_ms(5);
  EXPECT_EQ(traces("LGGR").substr(seen),
            "no copy -1;copy starting;copy 'b.json';cp src '/media/usb99/ApiLogs/b.json';"
            "cp dst '/media/usb-cpy/b.json';cp start 'b.json';cp done;copy 'c.json';"
            "cp src '/media/usb99/ApiLogs/c.json';cp dst '/media/usb-cpy/c.json';"
            "file '/media/usb-cpy/c.json' exists;copy end;"
            "delete starting;delete 'a.json';rm '/media/usb99/ApiLogs/a.json';delete 'x/../c.json';"
            "file '/media/usb99/ApiLogs/' missing;delete end;");
  EXPECT_TRUE(!fs::exists(kLogs + "a.json") && fs::exists(kLogs + "c.json"));
  EXPECT_EQ(fs::file_size("/media/usb-cpy/b.json"), 8U);
  plug(false), step_usb_stick();
}

}  // namespace
