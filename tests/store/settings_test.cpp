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
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <random>
#include <thread>

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
constexpr const char* kDefaultRecord =
    R"({"previous_id":0,"current_id":1,"date_time_osd":1,"operator_id_osd":0,"title_osd":0,)"
    R"("flow_direction_osd":0,"zoom_osd":0,"compass_direction_osd":0,"viewer_seats":5,"language":"ENG",)"
    R"("camera_invert_image":0,"camera_stabilize_image":1,"camera_sensitivity":1,"camera_ir_filter":2,)"
    R"("camera_defog":2,"operator_id":"ORB","title":"ASSET","flow_direction":"UPSTREAM","osd_color":0,)"
    R"("osd_delay":0,"high_beam_time":15,"pb_suspended":0,"units":1,"magnetometer_calibrated":0,)"
    R"("magnetometer_calibration_x":0.0,"magnetometer_calibration_y":0.0,"magnetometer_calibration_z":0.0,)"
    R"("magnetometer_ellipsoid_00":0.0,"magnetometer_ellipsoid_01":0.0,"magnetometer_ellipsoid_02":0.0,)"
    R"("magnetometer_ellipsoid_10":0.0,"magnetometer_ellipsoid_11":0.0,"magnetometer_ellipsoid_12":0.0,)"
    R"("magnetometer_ellipsoid_20":0.0,"magnetometer_ellipsoid_21":0.0,"magnetometer_ellipsoid_22":0.0,)"
    R"("values_valid":1})";

std::string content(const char* path) { return read_file(path, 1 << 20).value_or("nothing"); }
void put(const char* path, std::string_view text) { std::ofstream(path) << text; }

// The default record with some of its parts replaced.
std::string record(const std::vector<std::pair<std::string, std::string>>& changes) {
  std::string text = kDefaultRecord;
  for (const auto& [from, to] : changes) text.replace(text.find(from), from.size(), to);
  return text;
}

std::string generation(int previous, int current, const std::string& members) {
  return R"({"previous_id":)" + std::to_string(previous) + R"(,"current_id":)" + std::to_string(current) +
         "," + members + R"(,"values_valid":1})";
}

void start_without(const fs::path& what) {
  fs::remove_all(what);
  orb_init_nv();
}

int number(uint32_t index) {
  int value = -77;
  orb_read_nv(index, &value, sizeof value);
  return value;
}
void set_number(uint32_t index, int value) { orb_write_nv(index, &value, sizeof value); }

std::string text(uint32_t index, int size = 41) {
  std::string bytes(static_cast<size_t>(size), '#');
  orb_read_nv(index, bytes.data(), size);
  return bytes.c_str();
}

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
    traced();
    flushed.clear();
  }
};

using names = std::vector<std::string>;

TEST_F(settings, saves_alternate_and_are_flushed) {
  start_without(paths::kSettingsFolder);
  EXPECT_EQ(traced(), "create '/home/orb/nv'|set defaults|stored 1 to file 1|");
  EXPECT_EQ(content(kFile[1]), kDefaultRecord);
  EXPECT_FALSE(fs::exists(kFile[0]));
  EXPECT_EQ(flushed, (names{"nv01.json", "nv"}));
  set_number(kSettingViewerSeats, 7);
  EXPECT_EQ(content(kFile[0]),
            record({{"0,\"current_id\":1", "1,\"current_id\":2"}, {"seats\":5", "seats\":7"}}));
  EXPECT_EQ(content(kFile[1]), kDefaultRecord);
  orb_write_nv(kSettingTitle, "N/S \"1\"", 8);
  orb_write_nv(kSettingTitle, "N/S \"1\"", 8);  // no change, saved all the same
  EXPECT_EQ(content(kFile[1]), record({{"0,\"current_id\":1", "2,\"current_id\":3"},
                                       {"seats\":5", "seats\":7"},
                                       {"ASSET", "N/S \\\"1\\\""}}));
  set_number(kSettingCount, 1);
  set_number(UINT32_MAX, 1);
  EXPECT_EQ(traced(), "stored 2 to file 0|stored 3 to file 1|stored 4 to file 0|");
  EXPECT_EQ(flushed, (names{"nv01.json", "nv", "nv00.json", "nv", "nv01.json", "nv00.json"}));
}

TEST_F(settings, newer_file_is_found_by_the_chain) {
  start_without(paths::kSettingsFolder);
  using ids = std::pair<int, int>;
  constexpr ids kNone{0, 0};
  const struct {
    ids file_0, file_1;
    int live;
    ids next;
  } rows[] = {
      {{6, 7}, {7, 8}, 1, {8, 9}},
      {{8, 9}, {7, 8}, 0, {9, 10}},
      {{5, 6}, {100, 101}, 0, {6, 7}},
      {{100, 101}, {101, 3}, 1, {3, 4}},
      {{INT_MAX - 1, INT_MAX}, {INT_MAX, INT_MIN}, 1, {INT_MIN, INT_MIN + 1}},
      {{INT_MAX, INT_MIN}, {INT_MAX - 1, INT_MAX}, 0, {INT_MIN, INT_MIN + 1}},
      {{INT_MAX - 1, INT_MAX}, kNone, 0, {INT_MAX, INT_MIN}},
      {kNone, {-2, -1}, 1, {-1, 0}},
  };
  for (const auto& row : rows) {
    fs::remove(kFile[0]), fs::remove(kFile[1]);
    const ids file[] = {row.file_0, row.file_1};
    for (int i = 0; i < 2; ++i)
      if (file[i] != kNone)
        put(kFile[i], generation(file[i].first, file[i].second, "\"viewer_seats\":" + std::to_string(i)));
    traced();
    orb_init_nv();
    const int id = file[row.live].second;
    EXPECT_EQ(traced(), "start " + std::to_string(id) + " from file " + std::to_string(row.live) + "|");
    EXPECT_EQ(number(kSettingViewerSeats), row.live) << id;
    set_number(kSettingUnits, 1);
    EXPECT_EQ(
        content(kFile[1 - row.live]).find(generation(row.next.first, row.next.second, "").substr(0, 30)), 0U)
        << content(kFile[1 - row.live]);
  }
}

TEST_F(settings, files_that_are_not_valid_are_ignored) {
  const std::string whole = kDefaultRecord;
  const std::string texts[] = {"",
                               "1",
                               "[{\"values_valid\":1}]",
                               std::string(900, '\0'),
                               std::string(200'000, '['),
                               std::string(2 << 20, ' ') + whole,
                               whole.substr(0, whole.size() - 1),
                               whole.substr(0, whole.size() / 2),
                               record({{"valid\":1", "valid\":0"}}),
                               record({{"valid\":1", "valid\":null"}}),
                               record({{"values_valid", "valid"}})};
  std::vector<std::function<void(const char*)>> makers{
      [&](const char* path) { put(path, whole), chmod(path, 0); },
      [](const char* path) { mkfifo(path, 0600); },
      [](const char* path) { fs::create_directory(path); },
      [](const char* path) { fs::create_symlink(path, path); },
  };
  for (const auto& text : texts) makers.emplace_back([&](const char* path) { put(path, text); });
  start_without(paths::kSettingsFolder);
  for (size_t i = 0; i < makers.size(); ++i) {
    SCOPED_TRACE(i);
    fs::remove(kFile[0]);
    makers[i](kFile[0]);
    start_without(kFile[1]);
    EXPECT_EQ(content(kFile[1]), kDefaultRecord);
    fs::remove(kFile[0]), fs::remove(kFile[1]);
    put(kFile[0], generation(8, 9, "\"viewer_seats\":3"));
    makers[i](kFile[1]);
    orb_init_nv();
    EXPECT_EQ(number(kSettingViewerSeats), 3);
    fs::remove(kFile[1]);
  }
}

TEST_F(settings, members_of_other_types_and_sizes) {
  fs::create_directories(paths::kSettingsFolder);
  put(kFile[0], generation(8, 9,
                           R"("date_time_osd":"7","operator_id_osd":"x","title_osd":3.9,)"
                           R"("flow_direction_osd":1e20,"zoom_osd":true,"viewer_seats":null,)"
                           R"("language":"ENGLISH","operator_id":12,"title":")" +
                               std::string(60, 't') + R"(","flow_direction":")" + std::string(19, 'f') +
                               R"(","osd_color":{},"high_beam_time":-99999999999,)"
                               R"("magnetometer_calibration_x":"1.5","magnetometer_calibration_y":2)"));
  orb_init_nv();
  const int expected[] = {7, 0, 3, INT_MAX, 1, 0, 5};
  for (uint32_t i = 0; i < std::size(expected); ++i) EXPECT_EQ(number(i), expected[i]) << i;
  EXPECT_EQ(number(kSettingOsdColor), 0);
  EXPECT_EQ(number(kSettingHighBeamTime), INT_MIN);
  EXPECT_EQ(text(kSettingLanguage), "ENG");
  EXPECT_EQ(text(kSettingOperatorId), "12");
  EXPECT_EQ(text(kSettingTitle, 50), std::string(41, 't'));
  EXPECT_EQ(text(kSettingFlowDirection), std::string(19, 'f'));
  double xy[2];
  orb_read_nv(kSettingMagnetometerX, &xy[0], sizeof(double));
  orb_read_nv(kSettingMagnetometerX + 1, &xy[1], sizeof(double));
  EXPECT_EQ(xy[0], 1.5);
  EXPECT_EQ(xy[1], 2.0);
}

TEST_F(settings, shorter_and_longer_buffers) {
  const double third = 1.0 / 3;
  const std::string bytes(reinterpret_cast<const char*>(&third), sizeof third);
  const std::string full(41, 'T');
  const struct {
    uint32_t index;
    std::string given, kept;  // kept: the setting's bytes
  } rows[] = {
      {kSettingLanguage, "FR", {"FR\0", 3}},
      {kSettingLanguage, "DEU!", "DEU"},
      {kSettingLanguage, "", {"\0\0\0", 3}},
      {kSettingTitle, full + "rest", full},
      {kSettingTitle, "short", "short" + std::string(36, '\0')},
      {kSettingUnits, "\x02", {"\2\0\0\0", 4}},
      {kSettingUnits, {"\1\2\3\0more", 8}, {"\1\2\3\0", 4}},
      {kSettingCount - 1, bytes, bytes},
  };
  start_without(paths::kSettingsFolder);
  for (const auto& row : rows) {
    set_number(row.index, -1);  // nothing of it may be left
    orb_write_nv(row.index, row.given.data(), static_cast<int>(row.given.size()));
    orb_init_nv();  // what the file gives back is the same
    for (const size_t length : {size_t{0}, size_t{1}, row.kept.size(), row.kept.size() + 7}) {
      std::string buffer(60, '#');
      orb_read_nv(row.index, buffer.data(), static_cast<int>(length));
      std::string wanted = row.kept;
      wanted.resize(length, '\0');
      EXPECT_EQ(buffer, wanted + std::string(60 - length, '#')) << row.index << " " << row.given;
    }
  }
  std::string untouched(4, '#');
  orb_read_nv(kSettingCount, untouched.data(), 4);
  orb_read_nv(kSettingUnits, untouched.data(), -4);
  orb_write_nv(kSettingUnits, untouched.data(), -4);
  EXPECT_EQ(untouched, "####");
  EXPECT_EQ(number(kSettingUnits), 0x030201);
}

TEST_F(settings, failed_save_is_repeated_with_the_same_id) {
  ASSERT_EQ(mount("small", "/home/orb", "tmpfs", 0, "size=16k"), 0) << strerror(errno);
  const auto remount = [](unsigned long flags) {
    EXPECT_EQ(mount("small", "/home/orb", "tmpfs", MS_REMOUNT | flags, "size=16k"), 0);
  };
  const struct {
    const char* what;
    std::function<void()> spoil, repair;
  } rows[] = {
      {"flush", [] { flush_fails = true; }, [] { flush_fails = false; }},
      {"read-only", [&] { remount(MS_RDONLY); }, [&] { remount(0); }},
      {"no folder", [] { fs::rename(paths::kSettingsFolder, "/home/orb/away"); },
       [] { fs::rename("/home/orb/away", paths::kSettingsFolder); }},
      {"full", [] { put("/home/orb/filler", std::string(20'000, 'x')); },
       [] { fs::remove("/home/orb/filler"); }},
      {"a folder in its place", [] { fs::create_directory(kFile[0]); }, [] { fs::remove(kFile[0]); }},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.what);
    start_without(paths::kSettingsFolder);
    row.spoil();
    traced();
    set_number(kSettingViewerSeats, 9);
    set_number(kSettingZoomOsd, 1);
    EXPECT_EQ(traced(), "storage failure -1|storage failure -1|");
    EXPECT_EQ(number(kSettingViewerSeats), 9);
    row.repair();
    EXPECT_EQ(content(kFile[1]), kDefaultRecord);
    flushed.clear();
    set_number(kSettingUnits, 0);
    EXPECT_EQ(traced(), "stored 2 to file 0|");
    EXPECT_EQ(flushed, (names{"nv00.json", "nv"})) << "the name may not be on the disk yet";
    EXPECT_EQ(content(kFile[0]), record({{"0,\"current_id\":1", "1,\"current_id\":2"},
                                         {"seats\":5", "seats\":9"},
                                         {"zoom_osd\":0", "zoom_osd\":1"},
                                         {"units\":1", "units\":0"}}));
  }
}

// Save k sets the seats (k even) or the title (k odd) to k, so a generation's id tells all of its content.
void save_number(int k) {
  if (k % 2 == 0) return set_number(kSettingViewerSeats, k);
  const std::string title = std::to_string(k);
  orb_write_nv(kSettingTitle, title.c_str(), static_cast<int>(title.size()));
}

TEST(settings_kill, acknowledged_saves_survive_a_kill) {
  start_without(paths::kSettingsFolder);
  for (const int k : {2, 3}) save_number(k);
  std::minstd_rand random(7);
  int saved = 3;
  int torn = 0;
  for (int round = 0; round < 60; ++round) {
    int progress[2];
    ASSERT_EQ(pipe(progress), 0);
    const pid_t child = fork();
    if (child == 0) {
      for (int k = saved + 1;; ++k) {
        save_number(k);
        if (write(progress[1], &k, sizeof k) != sizeof k) _exit(1);
      }
    }
    close(progress[1]);
    int acknowledged = saved;
    for (auto left = 20 + random() % 60; left > 0; --left)
      ASSERT_EQ(read(progress[0], &acknowledged, sizeof acknowledged), static_cast<ssize_t>(sizeof(int)));
    for (auto spin = random() % 50'000; spin > 0; --spin) asm volatile("");
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
    while (read(progress[0], &acknowledged, sizeof acknowledged) > 0) continue;
    close(progress[0]);

    alternating_file files{{kFile[0], kFile[1]}};
    ASSERT_NE(load_alternating_file(&files), nullptr) << "after " << acknowledged;
    torn += content(kFile[1 - files.live]).ends_with("}") ? 0 : 1;
    orb_init_nv();
    saved = files.current_id;
    ASSERT_GE(saved, acknowledged);
    ASSERT_LE(saved, acknowledged + 1);
    ASSERT_EQ(number(kSettingViewerSeats), saved - saved % 2);
    ASSERT_EQ(text(kSettingTitle), std::to_string(saved - 1 + saved % 2));
  }
  RecordProperty("saves", saved);
  RecordProperty("torn_files", torn);
}

TEST_F(settings, threads_see_whole_values) {
  start_without(paths::kSettingsFolder);
  const auto write_titles = [](char letter) {
    for (int i = 0; i < 200; ++i) orb_write_nv(kSettingTitle, std::string(41, letter).c_str(), 41);
  };
  write_titles('a');
  std::thread one(write_titles, 'a'), other(write_titles, 'b');
  for (int i = 0; i < 2000; ++i) {
    const std::string title = text(kSettingTitle, 60);
    EXPECT_TRUE(title == std::string(41, 'a') || title == std::string(41, 'b')) << title;
  }
  one.join(), other.join();
  EXPECT_EQ(content(kFile[1]).find(R"({"previous_id":600,"current_id":601,)"), 0U);
}

}  // namespace
