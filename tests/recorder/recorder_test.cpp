// The recorder without the daemon around it: names, texts, limits, and completions that a power cut ends
// anywhere.
#include "recorder/recorder.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/magic.h>
#include <sys/mount.h>
#include <sys/statfs.h>
#include <sys/syscall.h>
#include <sys/wait.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <filesystem>

#include "base/child_process.h"
#include "base/clock.h"
#include "base/file.h"
#include "base/paths.h"
#include "recorder/internal.h"
#include "store/settings.h"

namespace fs = std::filesystem;

std::atomic<bool> are_flushes_held = false;
void (*on_flush)(int fd) = nullptr;

static int steps_to_the_cut = -1;  // none

static void step() {
  if (steps_to_the_cut == 0) _exit(0);
  if (steps_to_the_cut > 0) --steps_to_the_cut;
}

// In the C library's place: the power is cut before one of them.
int fsync(int fd) {
  step();
  if (on_flush != nullptr) on_flush(fd);
  while (are_flushes_held) usleep(1000);
  return static_cast<int>(syscall(SYS_fsync, fd));
}
ssize_t write(int fd, const void* data, size_t size) { return step(), syscall(SYS_write, fd, data, size); }
int remove(const char* path) noexcept { return step(), unlink(path) == 0 || rmdir(path) == 0 ? 0 : -1; }
int rename(const char* from, const char* to) noexcept {
  return step(), static_cast<int>(syscall(SYS_renameat2, AT_FDCWD, from, AT_FDCWD, to, 0));
}

static bool is_vfat = false;

int statfs(const char* path, struct statfs* info) noexcept {
  const auto result = static_cast<int>(syscall(SYS_statfs, path, info));
  if (is_vfat) info->f_type = MSDOS_SUPER_MAGIC;
  return result;
}

namespace {

const std::string kGuid = "0f7e3a52-8d5c-11ef-9c1a-0242ac120002";
const std::string kDescribed = R"({"id":")" + kGuid + R"(","name":"na'me: 1/2","asset_id":"MH 14",)" +
                               R"("start_time":"2026-03-09-14-05-59","duration":)";
const std::string kStill = R"({"path":"/ApiVideos","name":"still.jpg"}],"note":"a note\n"})";
const std::string kInterrupted = kDescribed + R"("","files":[)" + kStill;
const std::string kFinished = kDescribed + R"("00:00:00","files":[{"path":"/ApiVideos",)" +
                              R"("name":"na'me_ 1_2_2026-03-09-14-05-59.mp4"},)" + kStill;
const std::string kPicture(20'000, 'x');
const take kTake{kGuid, "na'me: 1/2", "MH 14", "2026-03-09-14-05-59", "a note\n"};

std::string content(const std::string& path) { return read_file(path.c_str(), 1 << 20).value_or("nothing"); }

void put(const std::string& path, const std::string& text) { ASSERT_TRUE(replace_file(path, text)); }

// What a start and ffmpeg have written, and a completion has not seen yet.
void interrupt_take() {
  put(description_path(kGuid), kInterrupted);
  put(paths::kTakeGuid, kGuid);
  put(internal_take_path(kTake), kPicture);
}

void expect_waiting() {
  EXPECT_FALSE(complete_take(paths::kTakeGuid, true));
  EXPECT_EQ(content(paths::kTakeGuid), kGuid);
  EXPECT_EQ(content(internal_take_path(kTake)), kPicture);
}

void expect_completed() {
  EXPECT_TRUE(complete_take(paths::kTakeGuid, true));
  EXPECT_EQ(content(usb_take_path(kTake)), kPicture);
  EXPECT_EQ(content(caption_path(kTake)), "WEBVTT\n\n00:00:00.000 --> 00:00:00.000\nMH 14\n");
  EXPECT_EQ(content(description_path(kGuid)), kFinished);
  EXPECT_FALSE(fs::exists(paths::kTakeGuid) || fs::exists(internal_take_path(kTake)));
}

// A file system of its own size over a folder.
struct small_store {
  small_store(const char* at, int kb) : folder(at) { resize(kb, 0); }
  small_store(const small_store&) = delete;
  ~small_store() { umount2(folder, MNT_DETACH); }
  void resize(int kb, unsigned long flags = MS_REMOUNT) const {
    const std::string size = "size=" + std::to_string(kb) + "k";
    EXPECT_EQ(mount("tmpfs", folder, "tmpfs", flags, size.c_str()), 0) << strerror(errno);
  }
  const char* folder;
};

struct takes : testing::Test {
  takes() {
    for (const char* folder : {paths::kInternalTakes, paths::kUsbTakes})
      fs::remove_all(folder), fs::create_directories(folder);
    orb_init_nv();
  }
};

// A start, up to the request that its worker, which is not there, would take.
take begin_take() {
  {
    const mutex_lock lock(recorder.stage_lock);
    recorder.stage = recorder_stage::idle;
  }
  EXPECT_EQ(orb_start_recorder(), -1);
  take t;
  load_description(read_guid(paths::kTakeGuid), &t);
  return t;
}

TEST_F(takes, a_guid_is_only_what_can_be_one) {
  for (const std::string& good : {kGuid, kGuid + "\n", kGuid + "more"}) {
    put(paths::kTakeGuid, good);
    EXPECT_EQ(read_guid(paths::kTakeGuid), kGuid);
  }
  for (const std::string& bad : {kGuid.substr(1), "../" + kGuid, kGuid.substr(1) + "/", "\n" + kGuid}) {
    put(paths::kTakeGuid, bad);
    EXPECT_EQ(read_guid(paths::kTakeGuid), "") << bad;
    EXPECT_FALSE(complete_take(paths::kTakeGuid, true));
    EXPECT_EQ(content(paths::kTakeGuid), bad);
  }
}

TEST_F(takes, a_text_is_cut_at_a_character_and_stands_when_the_recorder_starts) {
  const std::string title = std::string(79, 't') + "é";
  orb_set_recorder_title(title.c_str());
  orb_create_recorder();  // the API may be asked before it
  char text[200];
  orb_load_recorder_title(text, sizeof text);
  EXPECT_EQ(text, title.substr(0, 79));
}

TEST_F(takes, a_start_describes_its_take) {
  EXPECT_EQ(begin_take().name, "ORB");
  EXPECT_EQ(content(paths::kSaveTimes) + content(paths::kImageNotes), "");
  fs::remove(paths::kTakeGuid);
  orb_set_recorder_operator_id("crew");
  put(paths::kVideoNote, "é" + std::string(508, 'n') + "é\n");  // ends inside of a character
  const take crew = begin_take();
  EXPECT_EQ(crew.name + crew.note, "crewé" + std::string(508, 'n'));
  EXPECT_FALSE(fs::exists(paths::kVideoNote));
  fs::remove(paths::kTakeGuid);
  orb_set_recorder_filename("a/b \"c\"");
  orb_set_recorder_title("http://t");
  put(paths::kVideoNote, "note\nmore\n");
  const take t = begin_take();
  EXPECT_EQ(t.name + " " + t.asset_id + " " + t.note, "a/b \"c\" http://t note\n");
}

TEST_F(takes, a_start_moves_past_the_takes_that_are_there) {
  orb_set_recorder_filename("name");
  const std::string before = local_time_text(0);
  while (local_time_text(0) == before) usleep(1000);  // a whole second is left for what follows
  take other = kTake;
  other.name = "name";
  other.start_time = local_time_text(0);
  put(usb_take_path(other), "");
  other.start_time = local_time_text(1);
  put(internal_take_path(other), "");
  other.start_time = local_time_text(2);
  put(caption_path(other), "");
  EXPECT_EQ(begin_take().start_time, local_time_text(3));
}

TEST_F(takes, a_start_needs_room_in_both_stores) {
  constexpr int kRooms[][3] = {{80'000, 100'000, true}, {79'996, 100'000, false}, {80'000, 99'996, false}};
  for (const auto& [emmc_kb, usb_kb, starts] : kRooms) {
    const small_store emmc(paths::kInternalTakes, emmc_kb);
    const small_store usb(paths::kUsbTakes, usb_kb);
    begin_take();
    EXPECT_EQ(fs::exists(paths::kTakeGuid), starts != 0) << emmc_kb << " " << usb_kb;
  }
}

TEST_F(takes, a_take_is_ended_when_nobody_controls_it) {
  take_watch watch{.path = internal_take_path(kTake)};
  orb_service_recorder_watchdog();
  for (int tick = 1; tick < 300; ++tick) ASSERT_EQ(watch_take(watch), 0) << tick;
  EXPECT_EQ(watch_take(watch), kStopByWatchdog);
  EXPECT_EQ(watch_take(watch), 0);
}

TEST_F(takes, a_take_is_ended_before_a_store_is_full_or_the_stick_cannot_hold_its_file) {
  const struct {
    int emmc_kb, usb_kb, size_kb;
    bool is_vfat;
    int reason;
  } kRooms[] = {{10'000, 30'020, 18, false, 0},           {9'996, 30'020, 18, false, 3},
                {10'000, 30'016, 18, false, 3},           {10'000, 12, 18, false, 3},
                {10'000, 5'000'000, 4'164'304, false, 0}, {10'000, 5'000'000, 4'164'303, true, 0},
                {10'000, 5'000'000, 4'164'304, true, 3}};
  for (const auto& row : kRooms) {
    SCOPED_TRACE(&row - kRooms);
    const small_store emmc(paths::kInternalTakes, row.emmc_kb);
    const small_store usb(paths::kUsbTakes, row.usb_kb);
    take_watch watch{.path = internal_take_path(kTake)};
    put(watch.path, "");
    fs::resize_file(watch.path, uint64_t{1024} * static_cast<unsigned>(row.size_kb));  // takes no room
    is_vfat = row.is_vfat;
    for (int tick = 1; tick < 10; ++tick) ASSERT_EQ(watch_take(watch), 0);
    EXPECT_EQ(watch_take(watch), row.reason);
    EXPECT_EQ(orb_get_recorder_usb_kb(), static_cast<uint64_t>(std::max(row.usb_kb - row.size_kb, 0)));
  }
  is_vfat = false;
}

// Whether the power was cut: a completion may have fewer steps.
bool complete_until(int steps, bool start_up) {
  if (fork() == 0) {
    steps_to_the_cut = steps;
    _exit(complete_take(paths::kTakeGuid, start_up) ? 1 : 2);
  }
  int status = 0;
  wait(&status);
  EXPECT_LT(WEXITSTATUS(status), 2);
  return WEXITSTATUS(status) == 0;
}

TEST_F(takes, a_power_cut_between_any_two_steps_loses_nothing) {
  int cuts = 0;
  for (bool is_cut = true; is_cut; ++cuts) {
    SCOPED_TRACE(cuts);
    fs::remove(usb_take_path(kTake));
    interrupt_take();
    is_cut = complete_until(cuts, true);
    EXPECT_TRUE(content(internal_take_path(kTake)) == kPicture || content(usb_take_path(kTake)) == kPicture);
    expect_completed();
  }
  EXPECT_GT(cuts, 15);
}

TEST_F(takes, a_power_cut_leaves_stills_that_are_listed_or_none) {
  shell_first_line("ffmpeg -v error -f lavfi -i testsrc=s=32x32:r=5:d=1 /tmp/one_second.mp4", 1);
  const std::string picture = content("/tmp/one_second.mp4");
  int with_stills = 0;
  int cuts = 0;
  for (bool is_cut = true; is_cut; ++cuts) {
    SCOPED_TRACE(cuts);
    fs::remove_all(paths::kUsbTakes), fs::create_directories(paths::kUsbTakes);
    put(description_path(kGuid), kDescribed + R"("","files":[],"note":"a note"})");
    put(paths::kTakeGuid, kGuid);
    put(internal_take_path(kTake), picture);
    put(paths::kSaveTimes, "00:00:00.500\n");
    put(paths::kImageNotes, "still\n");
    is_cut = complete_until(cuts, false);
    EXPECT_TRUE(complete_take(paths::kTakeGuid, true));

    const std::string still = paths::kUsbTakes + ("/" + still_file_name(kTake, "00:00:00.500"));
    const bool is_listed = content(description_path(kGuid)).find("500.jpg") != std::string::npos;
    EXPECT_EQ(fs::exists(still), is_listed);
    orb_xmp_fields fields;
    EXPECT_EQ(orb_xmp_read(still.c_str(), &fields), is_listed ? 0 : -1);
    with_stills += is_listed;
    EXPECT_EQ(orb_xmp_read(usb_take_path(kTake).c_str(), &fields), 0);
    EXPECT_STREQ(fields.comment, "a note");
    EXPECT_EQ(content(usb_take_path(kTake)).size(), picture.size() + 2584);
  }
  EXPECT_GT(with_stills, 5);
  EXPECT_GT(cuts - with_stills, 15);
}

TEST_F(takes, a_full_store_keeps_the_take_and_its_stills) {
  const small_store usb(paths::kUsbTakes, 20);
  interrupt_take();
  expect_waiting();
  EXPECT_EQ(content(description_path(kGuid)), kFinished);
  usb.resize(1000);
  expect_completed();
}

TEST_F(takes, a_take_whose_description_tells_nothing_waits) {
  for (const char* text : {"", "{", "[]", "{}", R"({"name":"na'me: 1/2"})", R"({"start_time":7})"}) {
    SCOPED_TRACE(text);
    interrupt_take();
    put(description_path(kGuid), text);
    expect_waiting();
  }
  fs::remove(description_path(kGuid));
  expect_waiting();
  put(description_path(kGuid), kInterrupted);
  expect_completed();
}

TEST_F(takes, a_take_without_a_picture_is_completed_and_what_is_finished_stays) {
  interrupt_take();
  expect_completed();
  for (const bool is_there : {true, false}) {
    put(description_path(kGuid), kFinished);
    put(paths::kTakeGuid, kGuid);
    if (is_there) put(internal_take_path(kTake), "");
    expect_completed();
  }
}

}  // namespace
