// The settings store against its two files: what it loads, what it saves, and that neither a failure nor a
// kill loses a generation that was acknowledged.
#include "store/settings.h"

#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <climits>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <functional>
#include <random>
#include <sstream>

#include "app/trace.h"
#include "base/file.h"
#include "base/paths.h"
#include "store/alternating_file.h"

namespace fs = std::filesystem;

namespace {

std::vector<std::string> flushed;  // names, in order
bool flush_fails = false;

}  // namespace

// In the C library's place: notes what is flushed, and fails when told to.
int fsync(int fd) {
  flushed.push_back(fs::read_symlink("/proc/self/fd/" + std::to_string(fd)).filename());
  if (!flush_fails) return static_cast<int>(syscall(SYS_fsync, fd));
  errno = EIO;
  return -1;
}

namespace {

constexpr const char* kFile[] = {paths::kSettingsFile0, paths::kSettingsFile1};
constexpr const char* kValues =
    R"(,"date_time_osd":1,"operator_id_osd":0,"title_osd":0,)"
    R"("flow_direction_osd":0,"zoom_osd":0,"compass_direction_osd":0,"viewer_seats":5,"language":"ENG",)"
    R"("camera_invert_image":0,"camera_stabilize_image":1,"camera_sensitivity":1,"camera_ir_filter":2,)"
    R"("camera_defog":2,"operator_id":"ORB","title":"ASSET","flow_direction":"UPSTREAM","osd_color":0,)"
    R"("osd_delay":0,"high_beam_time":15,"pb_suspended":0,"units":1,"magnetometer_calibrated":0,)"
    R"("magnetometer_calibration_x":0.0,"magnetometer_calibration_y":0.0,"magnetometer_calibration_z":0.0,)"
    R"("magnetometer_ellipsoid_00":0.0,"magnetometer_ellipsoid_01":0.0,"magnetometer_ellipsoid_02":0.0,)"
    R"("magnetometer_ellipsoid_10":0.0,"magnetometer_ellipsoid_11":0.0,"magnetometer_ellipsoid_12":0.0,)"
    R"("magnetometer_ellipsoid_20":0.0,"magnetometer_ellipsoid_21":0.0,"magnetometer_ellipsoid_22":0.0,)"
    R"("values_valid":1})";

using names = std::vector<std::string>;

// The default record as a file holds it, with parts replaced: "from>to|from>to".
std::string record(int previous, int current, const std::string& changes = "") {
  std::string text =
      "{\"previous_id\":" + std::to_string(previous) + ",\"current_id\":" + std::to_string(current) + kValues;
  std::istringstream list(changes);
  for (std::string from, to; std::getline(list, from, '>') && std::getline(list, to, '|');)
    text.replace(text.find(from), from.size(), to);
  return text;
}
std::string content(int file) { return read_file(kFile[file], 1 << 20).value_or("nothing"); }
void put(const fs::path& path, std::string_view text) { std::ofstream(path) << text; }

void start_without(const fs::path& what) {
  fs::remove_all(what);
  orb_init_nv();
}
std::string get(uint32_t index, int length) {
  std::string bytes(60, '#');
  orb_read_nv(index, bytes.data(), length);
  return bytes;
}
int number(uint32_t index) {
  int value = -77;
  orb_read_nv(index, &value, sizeof value);
  return value;
}
void set(uint32_t index, std::string_view bytes) {
  orb_write_nv(index, bytes.data(), static_cast<int>(bytes.size()));
}
void set(uint32_t index, int value) { orb_write_nv(index, &value, sizeof value); }

// What the store has traced since the last call, one message after the other.
std::string traced() {
  static std::streamoff seen = 0;
  std::ifstream file(paths::kTrace);
  file.seekg(seen);
  std::string messages;
  for (std::string line; std::getline(file, line); seen = file.tellg())
    if (line.starts_with("NVPC: ")) messages += line.substr(6, line.find(" [") - 6) + "|";
  return messages;
}

class settings : public testing::Test {
 protected:
  void SetUp() override {
    put(paths::kTraceMask, "2000");
    init_trace();
  }
};

TEST_F(settings, saves_alternate_and_are_flushed) {
  start_without(paths::kSettingsFolder);
  EXPECT_EQ(traced(), "create '/home/orb/nv'|set defaults|stored 1 to file 1|");
  EXPECT_EQ(content(1), record(0, 1));
  EXPECT_EQ(content(0), "nothing");
  EXPECT_EQ(flushed, (names{"orb", "nv01.json", "nv"}));
  set(kSettingViewerSeats, 7);
  EXPECT_EQ(content(0), record(1, 2, R"(seats":5>seats":7)"));
  EXPECT_EQ(content(1), record(0, 1));
  for (int i = 0; i < 2; ++i) set(kSettingTitle, "N/S \"1\"");  // a save each, changed or not
  EXPECT_EQ(content(1), record(2, 3, R"(seats":5>seats":7|ASSET>N/S \"1\")"));
  set(kSettingCount, 1), set(UINT32_MAX, 1);
  EXPECT_EQ(traced(), "stored 2 to file 0|stored 3 to file 1|stored 4 to file 0|");
  EXPECT_EQ(flushed, (names{"orb", "nv01.json", "nv", "nv00.json", "nv", "nv01.json", "nv00.json"}));
}

TEST_F(settings, newer_file_is_found_by_the_chain) {
  start_without(paths::kSettingsFolder);
  using ids = std::pair<int, int>;
  constexpr int kMin = INT_MIN, kMax = INT_MAX;
  const struct {
    ids file[2];  // {0, 0}: no file
    int live;
    ids next;
  } rows[] = {{{{6, 7}, {7, 8}}, 1, {8, 9}},
              {{{8, 9}, {7, 8}}, 0, {9, 10}},
              {{{5, 6}, {100, 101}}, 0, {6, 7}},
              {{{100, 101}, {101, 3}}, 1, {3, 4}},
              {{{kMax - 1, kMax}, {kMax, kMin}}, 1, {kMin, kMin + 1}},
              {{{kMax, kMin}, {kMax - 1, kMax}}, 0, {kMin, kMin + 1}},
              {{{kMax - 1, kMax}, {}}, 0, {kMax, kMin}},
              {{{}, {-2, -1}}, 1, {-1, 0}}};
  traced();
  for (const auto& [file, live, next] : rows) {
    for (const int i : {0, 1}) {
      fs::remove(kFile[i]);
      const std::string seats = "seats\":5>seats\":" + std::to_string(i);
      if (file[i] != ids{}) put(kFile[i], record(file[i].first, file[i].second, seats));
    }
    orb_init_nv();
    EXPECT_EQ(traced(),
              "start " + std::to_string(file[live].second) + " from file " + std::to_string(live) + "|");
    EXPECT_EQ(number(kSettingViewerSeats), live);
    set(kSettingViewerSeats, 5);
    EXPECT_EQ(content(1 - live), record(next.first, next.second));
    traced();
  }
}

TEST_F(settings, files_that_are_not_valid_are_ignored) {
  const std::string whole = record(0, 1);
  const std::string texts[] = {"",
                               "1",
                               "[{\"values_valid\":1}]",
                               std::string(900, '\0'),
                               std::string(200'000, '['),
                               std::string(2 << 20, ' ') + whole,
                               whole.substr(0, whole.size() - 1),
                               whole.substr(0, whole.size() / 2),
                               record(0, 1, R"(valid":1>valid":0)"),
                               record(0, 1, R"(valid":1>valid":null)"),
                               record(0, 1, "values_valid>valid")};
  std::vector<std::function<void(const char*)>> makers{
      [&](const char* path) { put(path, whole), chmod(path, 0); },
      [](const char* path) { mkfifo(path, 0600); }, [](const char* path) { fs::create_directory(path); },
      [](const char* path) { fs::create_symlink(path, path); }};
  for (const auto& text : texts) makers.emplace_back([&](const char* path) { put(path, text); });
  start_without(paths::kSettingsFolder);
  for (size_t i = 0; i < makers.size(); ++i) {
    fs::remove(kFile[0]);
    makers[i](kFile[0]);
    start_without(kFile[1]);
    EXPECT_EQ(content(1), record(0, 1)) << i;
    fs::remove(kFile[0]), fs::remove(kFile[1]);
    put(kFile[0], record(8, 9, R"(seats":5>seats":3)"));
    makers[i](kFile[1]);
    orb_init_nv();
    EXPECT_EQ(number(kSettingViewerSeats), 3) << i;
    fs::remove(kFile[1]);
  }
}

// The next save shows what was made of them.
TEST_F(settings, members_of_other_types_and_sizes) {
  fs::create_directory(paths::kSettingsFolder);
  const std::string t(41, 't'), f(19, 'f');
  put(kFile[0],
      record(
          8, 9,
          R"(time_osd":1>time_osd":"7"|title_osd":0>title_osd":3.9|zoom_osd":0>zoom_osd":true|)"
          R"(seats":5>seats":null|ENG>ENGLISH|fog":2>fog":"x"|"ORB">12|color":0>color":{}|delay":0>delay":1e20|)"
          R"(time":15>time":-99999999999|,"pb_suspended":0>|_x":0.0>_x":"1.5"|_y":0.0>_y":-2|)"
          "ASSET>" +
              t + "more|UPSTREAM>" + f + "m"));
  orb_init_nv();
  set(kSettingUnits, 1);
  EXPECT_EQ(
      content(1),
      record(9, 10,
             R"(time_osd":1>time_osd":7|title_osd":0>title_osd":3|zoom_osd":0>zoom_osd":1|)"
             R"(fog":2>fog":0|ORB>12|delay":0>delay":2147483647|time":15>time":-2147483648|_x":0.0>_x":1.5|)"
             R"(_y":0.0>_y":-2.0|)"
             "ASSET>" +
                 t + "|UPSTREAM>" + f));
}

TEST_F(settings, shorter_and_longer_buffers) {
  const std::string full(41, 'T'), third("UUUUUU\xD5?", 8);  // 1/3
  const struct {
    uint32_t index;
    std::string given, kept;  // kept: the setting's bytes
  } rows[] = {{kSettingLanguage, "FR", {"FR\0", 3}},
              {kSettingLanguage, "DEU!", "DEU"},
              {kSettingLanguage, "", {"\0\0\0", 3}},
              {kSettingTitle, full + "rest", full},
              {kSettingTitle, "short", "short" + std::string(36, '\0')},
              {kSettingUnits, "\x02", {"\2\0\0\0", 4}},
              {kSettingUnits, {"\1\2\3\0more", 8}, {"\1\2\3\0", 4}},
              {kSettingCount - 1, third, third}};
  start_without(paths::kSettingsFolder);
  for (const auto& [index, given, kept] : rows) {
    set(index, std::string(41, '~'));  // nothing of it may be left
    set(index, given);
    orb_init_nv();  // as the file gives it back
    for (const size_t length : {size_t{0}, size_t{1}, kept.size(), kept.size() + 7}) {
      std::string wanted = kept;
      wanted.resize(length, '\0');
      wanted.resize(60, '#');
      EXPECT_EQ(get(index, static_cast<int>(length)), wanted) << given;
    }
  }
  EXPECT_EQ(get(kSettingCount, 4), get(kSettingUnits, -4));  // both untouched
}

TEST_F(settings, failed_save_is_repeated_with_the_same_id) {
  ASSERT_EQ(mount("small", "/home/orb", "tmpfs", 0, "size=16k"), 0);
  const std::pair<const char*, void (*)(bool)> rows[] = {
      {"flush", [](bool on) { flush_fails = on; }},
      {"read-only",
       [](bool on) {
         EXPECT_EQ(mount("small", "/home/orb", "tmpfs", MS_REMOUNT | (on ? 1UL * MS_RDONLY : 0), "size=16k"),
                   0);
       }},
      {"no folder",
       [](bool on) {
         fs::rename(on ? "/home/orb/nv" : "/home/orb/away", on ? "/home/orb/away" : "/home/orb/nv");
       }},
      {"full", [](bool on) { put("/home/orb/filler", std::string(on ? 20'000 : 0, 'x')); }},
      {"a folder in its place", [](bool on) { on ? fs::create_directory(kFile[0]) : fs::remove(kFile[0]); }}};
  for (const auto& [what, spoil] : rows) {
    SCOPED_TRACE(what);
    start_without(paths::kSettingsFolder);
    spoil(true);
    traced();
    set(kSettingViewerSeats, 9), set(kSettingZoomOsd, 1);
    EXPECT_EQ(traced(), "storage failure -1|storage failure -1|");
    EXPECT_EQ(number(kSettingViewerSeats), 9);
    spoil(false);
    EXPECT_EQ(content(1), record(0, 1));
    flushed.clear();
    set(kSettingUnits, 0);
    EXPECT_EQ(traced(), "stored 2 to file 0|");
    EXPECT_EQ(flushed, (names{"nv00.json", "nv"})) << "the name may not be on the disk yet";
    EXPECT_EQ(content(0), record(1, 2, R"(seats":5>seats":9|zoom_osd":0>zoom_osd":1|units":1>units":0)"));
  }
}

// Save k sets the seats (k even) or the delay (k odd) to k, so a generation's id tells its content.
void save_number(int k) { set(k % 2 == 0 ? kSettingViewerSeats : kSettingOsdDelay, k); }

TEST(settings_kill, acknowledged_saves_survive) {
  start_without(paths::kSettingsFolder);
  save_number(2), save_number(3);
  std::minstd_rand random(7);
  int saved = 3, torn = 0;
  for (int round = 0; round < 60; ++round) {
    int progress[2];
    ASSERT_EQ(pipe(progress), 0);
    const pid_t child = fork();
    for (int k = saved + 1; child == 0; ++k) {
      save_number(k);
      if (write(progress[1], &k, sizeof k) < 0) _exit(1);
    }
    close(progress[1]);
    int acknowledged = saved;
    for (auto left = 20 + random() % 60; left > 0; --left)
      ASSERT_GT(read(progress[0], &acknowledged, sizeof acknowledged), 0);
    for (auto spin = random() % 50'000; spin > 0; --spin) asm volatile("");
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
    while (read(progress[0], &acknowledged, sizeof acknowledged) > 0) continue;
    close(progress[0]);

    alternating_file files{{kFile[0], kFile[1]}};
    ASSERT_NE(load_alternating_file(&files), nullptr) << "after " << acknowledged;
    torn += content(1 - files.live).ends_with("}") ? 0 : 1;
    orb_init_nv();
    saved = files.current_id;
    ASSERT_TRUE(saved == acknowledged || saved == acknowledged + 1) << saved << " after " << acknowledged;
    ASSERT_EQ(number(kSettingViewerSeats), saved - saved % 2);
    ASSERT_EQ(number(kSettingOsdDelay), saved - 1 + saved % 2);
  }
  RecordProperty("saves", saved);
  RecordProperty("torn_files", torn);
}

}  // namespace
