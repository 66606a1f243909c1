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

#include "base/file.h"
#include "base/paths.h"

namespace fs = std::filesystem;

static std::string flushed;  // names, in order
static bool flush_fails = false;

// In the C library's place: notes what is flushed, and fails when told to.
int fsync(int fd) {
  flushed += fs::read_symlink("/proc/self/fd/" + std::to_string(fd)).filename().string() + " ";
  errno = EIO;
  return flush_fails ? -1 : static_cast<int>(syscall(SYS_fsync, fd));
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
int number(uint32_t index) {
  int value = -77;
  orb_read_nv(index, &value, sizeof value);
  return value;
}
void set(uint32_t index, std::string_view bytes) {
  orb_write_nv(index, bytes.data(), static_cast<int>(bytes.size()));
}
void set(uint32_t index, int value) { orb_write_nv(index, &value, sizeof value); }

TEST(settings, saves_alternate_and_are_flushed) {
  start_without(paths::kSettingsFolder);
  EXPECT_EQ(content(1), record(0, 1));
  EXPECT_EQ(content(0), "nothing");
  set(kSettingViewerSeats, 7);
  EXPECT_EQ(content(0), record(1, 2, R"(seats":5>seats":7)"));
  EXPECT_EQ(content(1), record(0, 1));
  for (int i = 0; i < 2; ++i) set(kSettingTitle, "N/S \"1\"");  // a save each, changed or not
  EXPECT_EQ(content(1), record(2, 3, R"(seats":5>seats":7|ASSET>N/S \"1\")"));
  EXPECT_EQ(flushed, "orb nv01.json nv nv00.json nv nv01.json nv00.json ");
}

TEST(settings, newer_file_is_found_by_the_chain) {
  start_without(paths::kSettingsFolder);
  using ids = std::pair<int, int>;
  const struct {
    ids file[2];  // {0, 0}: no file
    int live;
    ids next;
  } rows[] = {{{{6, 7}, {7, 8}}, 1, {8, 9}},
              {{{8, 9}, {7, 8}}, 0, {9, 10}},
              {{{5, 6}, {100, 101}}, 0, {6, 7}},
              {{{INT_MAX - 1, INT_MAX}, {INT_MAX, INT_MIN}}, 1, {INT_MIN, INT_MIN + 1}},
              {{{INT_MAX - 1, INT_MAX}, {}}, 0, {INT_MAX, INT_MIN}},
              {{{}, {-2, -1}}, 1, {-1, 0}}};
  for (const auto& [file, live, next] : rows) {
    for (const int i : {0, 1}) {
      fs::remove(kFile[i]);
      const std::string seats = "seats\":5>seats\":" + std::to_string(i);
      if (file[i] != ids{}) put(kFile[i], record(file[i].first, file[i].second, seats));
    }
    orb_init_nv();
    EXPECT_EQ(number(kSettingViewerSeats), live);
    set(kSettingViewerSeats, 5);
    EXPECT_EQ(content(1 - live), record(next.first, next.second));
  }
}

TEST(settings, files_that_are_not_valid_are_ignored) {
  const std::string whole = record(0, 1);
  std::vector<std::function<void(const char*)>> makers{
      [](const char* path) { mkfifo(path, 0600); }, [](const char* path) { fs::create_directory(path); },
      [](const char* path) { fs::create_symlink(path, path); }};
  for (const std::string& text :
       {std::string(), std::string("[1]"), std::string(900, '\0'), whole.substr(0, 500),
        std::string(2 << 20, ' ') + whole, whole.substr(0, whole.size() - 1),
        record(0, 1, R"(valid":1>valid":0)"), record(0, 1, "values_valid>valid")})
    makers.emplace_back([text](const char* path) { put(path, text); });
  start_without(paths::kSettingsFolder);
  for (size_t i = 0; i < makers.size(); ++i) {
    fs::remove(kFile[0]);
    makers[i](kFile[0]);
    start_without(kFile[1]);
    EXPECT_EQ(content(1), whole) << i;
    fs::remove(kFile[0]), fs::remove(kFile[1]);
    put(kFile[0], record(8, 9, R"(seats":5>seats":3)"));
    makers[i](kFile[1]);
    orb_init_nv();
    EXPECT_EQ(number(kSettingViewerSeats), 3) << i;
    fs::remove(kFile[1]);
  }
}

// The next save shows what was made of them.
TEST(settings, members_of_other_types_and_sizes) {
  fs::create_directory(paths::kSettingsFolder);
  const std::string t(41, 't');
  put(kFile[0],
      record(8, 9,
             R"(title_osd":0>title_osd":3.9|seats":5>seats":null|ENG>ENGLISH|fog":2>fog":"x"|"ORB">12|)"
             R"(delay":0>delay":1e20|,"pb_suspended":0>|_x":0.0>_x":"1.5"|ASSET>)" +
                 t + "more"));
  orb_init_nv();
  set(kSettingUnits, 1);
  EXPECT_EQ(content(1), record(9, 10,
                               R"(title_osd":0>title_osd":3|fog":2>fog":0|ORB>12|delay":0>delay":2147483647|)"
                               R"(_x":0.0>_x":1.5|ASSET>)" +
                                   t));
}

TEST(settings, shorter_and_longer_buffers) {
  const std::string full(41, 'T'), third("UUUUUU\xD5?", 8);  // 1/3
  const struct {
    uint32_t index;
    std::string given, kept;  // kept: the setting's bytes
  } rows[] = {{kSettingLanguage, "FR", {"FR\0", 3}},
              {kSettingLanguage, "DEU!", "DEU"},
              {kSettingTitle, full + "rest", full},
              {kSettingUnits, "\x02", {"\2\0\0\0", 4}},
              {kSettingCount - 1, third, third}};
  start_without(paths::kSettingsFolder);
  for (const auto& [index, given, kept] : rows) {
    set(index, std::string(41, '~'));  // nothing of it may be left
    set(index, given);
    orb_init_nv();  // as the file gives it back
    for (const size_t length : {size_t{1}, kept.size(), kept.size() + 7}) {
      std::string wanted = kept, bytes(60, '#');
      wanted.resize(length, '\0'), wanted.resize(60, '#');
      orb_read_nv(index, bytes.data(), static_cast<int>(length));
      EXPECT_EQ(bytes, wanted) << given;
    }
  }
  set(kSettingCount, 1);
  EXPECT_EQ(number(kSettingCount), -77);
}

TEST(settings, failed_save_is_repeated_with_the_same_id) {
  ASSERT_EQ(mount("small", "/home/orb", "tmpfs", 0, "size=16k"), 0);
  const std::pair<const char*, void (*)(bool)> rows[] = {
      {"flush", [](bool on) { flush_fails = on; }},
      {"full", [](bool on) { put("/home/orb/filler", std::string(on ? 20'000 : 0, 'x')); }},
      {"a folder in its place", [](bool on) { on ? fs::create_directory(kFile[0]) : fs::remove(kFile[0]); }}};
  for (const auto& [what, spoil] : rows) {
    SCOPED_TRACE(what);
    start_without(paths::kSettingsFolder);
    spoil(true);
    set(kSettingViewerSeats, 9), set(kSettingZoomOsd, 1);
    EXPECT_EQ(number(kSettingViewerSeats), 9);
    spoil(false);
    EXPECT_EQ(content(1), record(0, 1));
    flushed.clear();
    set(kSettingUnits, 0);
    EXPECT_EQ(flushed, "nv00.json nv ") << "the name may not be on the disk yet";
    EXPECT_EQ(content(0), record(1, 2, R"(seats":5>seats":9|zoom_osd":0>zoom_osd":1|units":1>units":0)"));
  }
}

// Save k sets the seats (k even) or the delay (k odd) to k: what is loaded tells whole saves from torn ones.
void save_number(int k) { set(k % 2 == 0 ? kSettingViewerSeats : kSettingOsdDelay, k); }

TEST(settings, acknowledged_saves_survive_a_kill) {
  start_without(paths::kSettingsFolder);
  save_number(2), save_number(3);
  std::minstd_rand random(7);
  int saved = 3;
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
    orb_init_nv();
    saved = std::max(number(kSettingViewerSeats), number(kSettingOsdDelay));
    ASSERT_TRUE(saved == acknowledged || saved == acknowledged + 1) << saved << " after " << acknowledged;
    ASSERT_EQ(number(kSettingViewerSeats) + number(kSettingOsdDelay), 2 * saved - 1);
  }
}

}  // namespace
