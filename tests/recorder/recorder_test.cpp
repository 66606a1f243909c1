// The recorder without the daemon around it: texts, limits, and completions that a power cut ends anywhere.
#include "recorder/recorder.h"

#include <linux/magic.h>
#include <sys/socket.h>
#include <sys/statfs.h>

#include "base/file_copy.h"
#include "base/thread.h"
#include "recorder/bench.h"
#include "recorder/finished_takes.h"
#include "store/settings.h"

std::atomic<bool> are_flushes_held = false;

static int steps_to_the_cut = -1;  // none: nothing is followed, and any thread may work

// What a rename has given its name and no flush its content since, as vfat has it, by the file's number; and
// whether the name is on the disk.
static std::map<ino_t, std::pair<std::string, bool>> hollow;

// Where what no flush has brought to the disk begins in a file, and the size that the disk knows of it.
struct unflushed {
  std::string path;
  off_t from, size;
};
static std::map<ino_t, unflushed> written;
static std::map<ino_t, off_t> sizes_on_disk;

static void step() {
  if (steps_to_the_cut == 0) {
    for (const auto& [number, file] : written) {
      syscall(SYS_truncate, file.path.c_str(), file.from);
      syscall(SYS_truncate, file.path.c_str(), std::max(file.size, sizes_on_disk[number]));
    }
    for (const auto& [number, name] : hollow)
      if (name.second) syscall(SYS_truncate, name.first.c_str(), 0);
    _exit(0);
  }
  if (steps_to_the_cut > 0) --steps_to_the_cut;
}

// In the C library's place: the power is cut before one of them.
int fsync(int fd) {
  step();
  while (are_flushes_held) usleep(1000);
  struct stat info {};
  if (steps_to_the_cut < 0 || fstat(fd, &info) != 0) return static_cast<int>(syscall(SYS_fsync, fd));
  hollow.erase(info.st_ino), written.erase(info.st_ino);
  sizes_on_disk[info.st_ino] = info.st_size;
  for (auto& [number, name] : hollow) name.second = name.second || S_ISDIR(info.st_mode);
  return static_cast<int>(syscall(SYS_fsync, fd));
}
ssize_t write(int fd, const void* data, size_t size) {
  step();
  struct stat info {};
  fstat(fd, &info);
  const off_t from = lseek(fd, 0, SEEK_CUR);
  const ssize_t count = syscall(SYS_write, fd, data, size);
  char path[200] = "";
  if (steps_to_the_cut < 0 || !S_ISREG(info.st_mode)) return count;
  syscall(SYS_readlink, ("/proc/self/fd/" + std::to_string(fd)).c_str(), path, sizeof path - 1);
  written.insert({info.st_ino, {path, from, 0}}).first->second.size = from + count;
  return count;
}
int unlink(const char* path) noexcept { return step(), static_cast<int>(syscall(SYS_unlink, path)); }
int remove(const char* path) noexcept { return unlink(path) == 0 || rmdir(path) == 0 ? 0 : -1; }
int rename(const char* from, const char* to) noexcept {
  step();
  struct stat info {};
  const bool is_followed = steps_to_the_cut >= 0 && std::string_view(from).ends_with(".new");
  if (is_followed && stat(from, &info) == 0) hollow[info.st_ino] = {to, false};
  return static_cast<int>(syscall(SYS_renameat2, AT_FDCWD, from, AT_FDCWD, to, 0));
}

// A child is slow to become its program: this is the first that it calls.
static std::atomic<bool> are_children_slow = false;
pid_t setsid() noexcept {
  if (are_children_slow) usleep(300'000);
  return static_cast<pid_t>(syscall(SYS_setsid));
}

static bool is_vfat = false;

int statfs(const char* path, struct statfs* info) noexcept {
  const auto result = static_cast<int>(syscall(SYS_statfs, path, info));
  if (is_vfat) info->f_type = MSDOS_SUPER_MAGIC;
  return result;
}

namespace {

const std::string kDescribed = R"({"id":")" + kGuid + R"(","name":"na'me: 1/2","asset_id":"MH 14",)" +
                               R"("start_time":"2026-03-09-14-05-59","duration":)";
const std::string kStill = R"({"path":"/ApiVideos","name":"still.jpg"}],"note":"a note\n"})";
const std::string kInterrupted = kDescribed + R"("","files":[)" + kStill;
const std::string kFinished = kDescribed + R"("00:00:00","files":[{"path":"/ApiVideos",)" +
                              R"("name":"na'me_ 1_2_2026-03-09-14-05-59.mp4"},)" + kStill;
const std::string kPicture(20'000, 'x');
const take kTake{kGuid, "na'me: 1/2", "MH 14", "2026-03-09-14-05-59", "a note\n"};
const std::string kStillOfTake = path_in(paths::kUsbTakes, still_file_name(kTake, "00:00:00.500"));

// What a start and ffmpeg have written, and a completion has not seen yet.
void interrupt_take(const std::string& picture = kPicture) {
  put(description_path(kGuid), kInterrupted);
  put(paths::kTakeGuid, kGuid);
  put(internal_take_path(kTake), picture);
}

// The same behind a stop, with a mark.
void interrupt_stopped_take(const std::string& picture) {
  interrupt_take(picture);
  ASSERT_TRUE(save_stopped_take(kGuid, {{}, {"00:00:00.500"}, {"still"}}));
}

void expect_waiting() {
  EXPECT_FALSE(complete_take(paths::kTakeGuid, true));
  EXPECT_EQ(content(paths::kTakeGuid), kGuid);
  EXPECT_EQ(content(internal_take_path(kTake)), kPicture);
}

void expect_completed() {
  EXPECT_TRUE(complete_take(paths::kTakeGuid, true));
  EXPECT_EQ(content(usb_take_path(kTake)), kPicture);
  EXPECT_EQ(content(caption_path(kTake)), "WEBVTT\n\n");  // a cue would end where it starts
  EXPECT_EQ(content(description_path(kGuid)), kFinished);
  EXPECT_FALSE(fs::exists(paths::kTakeGuid) || fs::exists(internal_take_path(kTake)));
  EXPECT_FALSE(fs::exists(stopped_take_path(kGuid)));
}

// A second of a real picture, smaller than a still of it.
std::string picture() {
  make_video("/tmp/one_second.mp4", "s=640x480:r=5:d=1 -crf 51");
  return content("/tmp/one_second.mp4");
}

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
  takes() { clear_stores(), orb_init_nv(); }
};

// A start, up to the request that its worker, which is not there, would take.
take begin_take() {
  set_stage(recorder_stage::idle);
  EXPECT_EQ(orb_start_recorder(), -1);
  take t;
  load_description(read_guid(paths::kTakeGuid), &t);
  return t;
}

TEST_F(takes, a_guid_is_only_what_can_be_one) {
  for (const std::string& text : {kGuid, kGuid + "\n", kGuid + "more", kGuid.substr(1), "../" + kGuid,
                                  kGuid.substr(1) + "/", "\n" + kGuid}) {
    put(paths::kTakeGuid, text);
    EXPECT_EQ(read_guid(paths::kTakeGuid), text.starts_with(kGuid) ? kGuid : "") << text;
    EXPECT_TRUE(text.starts_with(kGuid) || !complete_take(paths::kTakeGuid, true)) << text;
    EXPECT_EQ(content(paths::kTakeGuid), text);
  }
}

TEST_F(takes, a_text_is_cut_at_a_character_and_comes_back_as_the_settings_hold_it) {
  const std::string title = std::string(40, 't') + "é" + std::string(37, 't') + "é";
  orb_set_recorder_title(title.c_str());
  orb_init_nv();
  EXPECT_EQ(loaded(orb_load_recorder_title), title.substr(0, 79));
  load_recorder_texts();
  EXPECT_EQ(loaded(orb_load_recorder_filename), title.substr(0, 40));
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
  fs::create_directory(paths::kTakeGuid + std::string(".new"));  // the guid cannot be written
  begin_take();
  EXPECT_EQ(content(paths::kVideoNote), "note\nmore\n");
  fs::remove(paths::kTakeGuid + std::string(".new"));
  const take t = begin_take();
  EXPECT_EQ(t.name + " " + t.asset_id + " " + t.note, "a/b \"c\" http://t note\n");
  drop_take();  // ffmpeg could not be started
  EXPECT_EQ(content(paths::kVideoNote), "note\n");
  EXPECT_FALSE(fs::exists(paths::kTakeGuid) || fs::exists(description_path(t.guid)));
  hold_recorder_starts(true);
  EXPECT_EQ(begin_take().guid, "");
  hold_recorder_starts(false);
  const int64_t asked_ns = monotonic_ns();
  orb_stop_recorder();
  set_stage(recorder_stage::idle);
  start_recorder(asked_ns);
  EXPECT_EQ(read_guid(paths::kTakeGuid), "") << "a stop has come while it waited";
  const int64_t again_ns = monotonic_ns();
  stop_recorder(again_ns - 1);
  start_recorder(again_ns);
  EXPECT_NE(read_guid(paths::kTakeGuid), "") << "asked for behind the stop";
}

// Until a child is ffmpeg it has copies of our sockets.
TEST_F(takes, a_stop_before_ffmpeg_is_there_shuts_no_socket_of_ours) {
  const unique_fd listener(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  ASSERT_EQ(listen(listener.get(), 1), 0);
  start_detached_thread("recorder", recording_worker, nullptr);
  are_children_slow = true;
  for (const bool is_paused : {false, true}) {
    ASSERT_TRUE(await([] { return !is_recorder_busy(); }));
    orb_start_recorder();
    ASSERT_TRUE(await([] { return recorder.recording == 1; }));
    if (is_paused) {
      EXPECT_EQ(orb_pause_recorder(), 0);
    }
    EXPECT_EQ(orb_stop_recorder(), 0);
    EXPECT_TRUE(await([] { return !is_recorder_child_running(); }));
    int is_listening = 0;
    socklen_t size = sizeof is_listening;
    getsockopt(listener.get(), SOL_SOCKET, SO_ACCEPTCONN, &is_listening, &size);
    EXPECT_EQ(is_listening, 1);
  }
}

TEST_F(takes, a_start_moves_past_the_takes_that_are_there) {
  orb_set_recorder_filename("name");
  const std::string before = local_time_text(0);
  while (local_time_text(0) == before) usleep(1000);  // a whole second is left for what follows
  int later_s = 0;
  for (const auto path_of : {usb_take_path, internal_take_path, caption_path})
    put(path_of({"", "name", "", local_time_text(later_s++), ""}), "");
  EXPECT_EQ(begin_take().start_time, local_time_text(3));
}

TEST_F(takes, a_start_needs_room_in_both_stores) {
  constexpr int kRooms[][3] = {{80'000, 100'000, true}, {79'996, 100'000, false}, {80'000, 99'996, false}};
  for (const auto& [emmc_kb, usb_kb, starts] : kRooms) {
    const small_store emmc(paths::kInternalTakes, emmc_kb), usb(paths::kUsbTakes, usb_kb);
    begin_take();
    EXPECT_EQ(fs::exists(paths::kTakeGuid), starts != 0) << emmc_kb << " " << usb_kb;
  }
}

TEST_F(takes, a_take_is_ended_before_a_store_is_full_or_the_stick_cannot_hold_its_file) {
  const std::tuple<int, int, int, bool, int> kRooms[] = {
      // free, size of the file, vfat; why it is ended
      {10'000, 30'020, 18, false, 0},           {9'996, 30'020, 18, false, 3},
      {10'000, 30'016, 18, false, 3},           {10'000, 12, 18, false, 3},
      {10'000, 5'000'000, 4'164'304, false, 0}, {10'000, 5'000'000, 4'164'303, true, 0},
      {10'000, 5'000'000, 4'164'304, true, 3}};
  for (const auto& [emmc_kb, usb_kb, size_kb, on_vfat, reason] : kRooms) {
    const small_store emmc(paths::kInternalTakes, emmc_kb), usb(paths::kUsbTakes, usb_kb);
    take_watch watch{.path = internal_take_path(kTake)};
    put(watch.path, "");
    fs::resize_file(watch.path, uint64_t{1024} * static_cast<unsigned>(size_kb));  // takes no room
    is_vfat = on_vfat;
    for (int tick = 1; tick < 10; ++tick) ASSERT_EQ(watch_take(watch), 0);
    EXPECT_EQ(watch_take(watch), reason) << emmc_kb << " " << usb_kb << " " << size_kb;
    EXPECT_EQ(orb_get_recorder_usb_kb(), static_cast<uint64_t>(std::max(usb_kb - size_kb, 0)));
  }
  is_vfat = false;
}

// Whether the power was cut: the work may have fewer steps.
template <typename Work>
bool work_until(int steps, Work work) {
  if (fork() == 0) {
    steps_to_the_cut = steps;
    _exit(work() ? 1 : 2);
  }
  int status = 0;
  wait(&status);
  EXPECT_LT(WEXITSTATUS(status), 2);
  return WEXITSTATUS(status) == 0;
}

// All but its last byte: with that it gets its size.
TEST_F(takes, a_copy_of_full_size_is_whole) {
  const std::string from = path_in(paths::kInternalTakes, "from"), to = path_in(paths::kUsbTakes, "to");
  for (const size_t size : {size_t{0}, size_t{1}, size_t{4096}, size_t{8193}})
    for (const size_t old : {size_t{0}, size, size_t{9000}}) {
      int cuts = 0;
      for (bool is_cut = true; is_cut; ++cuts) {
        SCOPED_TRACE(std::to_string(size) + " over " + std::to_string(old) + ", cut " + std::to_string(cuts));
        const std::string picture(size, 'x');
        put(from, picture), put(to, std::string(old, 'o'));
        struct stat info {};
        stat(to.c_str(), &info);
        sizes_on_disk = {{info.st_ino, info.st_size}};
        is_cut = work_until(cuts, [&] { return copy_file(from.c_str(), to.c_str(), nullptr, nullptr); });
        const std::string copy = content(to);
        EXPECT_TRUE(is_cut || copy == picture);
        const bool counts_as_whole = size > 1 && copy.size() >= size && copy != std::string(old, 'o');
        EXPECT_TRUE(!counts_as_whole || copy.substr(0, copy.size() - 1) == picture.substr(1)) << copy.size();
      }
      EXPECT_GT(cuts, 1);
    }
}

// Cut anywhere after the stop, and completed under the next job's texts.
TEST_F(takes, a_power_cut_after_the_stop_loses_no_still_and_no_text) {
  const std::string whole = picture();
  stopped_take stopped{{}, {"00:00:00.500"}, {"still"}};
  copy_text(stopped.texts.project_name, sizeof stopped.texts.project_name, "first job");
  copy_text(stopped.texts.scene, sizeof stopped.texts.scene, "down");
  orb_set_recorder_title("next job");
  int cuts = 0;
  for (bool is_cut = true; is_cut; ++cuts) {
    SCOPED_TRACE(cuts);
    clear_stores();
    interrupt_take(whole);
    put(description_path(kGuid), kDescribed + R"("","files":[],"note":"a note"})");
    ASSERT_TRUE(save_stopped_take(kGuid, stopped));
    is_cut = work_until(cuts, [] { return complete_take(paths::kTakeGuid, false); });
    EXPECT_TRUE(complete_take(paths::kTakeGuid, true));

    for (const auto& [path, note] : {std::pair(usb_take_path(kTake), "a note"), {kStillOfTake, "still"}}) {
      const orb_xmp_fields fields = metadata_of(path);
      EXPECT_EQ(fields.project_name + std::string(fields.scene) + fields.comment,
                std::string("first jobdown") + note);
    }
    const std::string description = content(description_path(kGuid));
    for (const char* end : {".mp4\"}", "500.jpg\"}]"})
      EXPECT_EQ(description.find(end), description.rfind(end)) << description;
    EXPECT_TRUE(content(usb_take_path(kTake)).starts_with(whole));
    EXPECT_EQ(names_in(paths::kUsbTakes).size(), 4U);
    EXPECT_EQ(content(caption_path(kTake)), "WEBVTT\n\n00:00:00.000 --> 0:00:01.000\nMH 14\n");
    EXPECT_EQ(names_in(paths::kInternalTakes).size(), 0U);
  }
  EXPECT_GT(cuts, 30);
}

// The first two attempts to keep it fail.
TEST_F(takes, what_a_take_was_at_its_stop_is_kept_as_soon_as_that_succeeds) {
  orb_set_recorder_title("this job");
  const take t = begin_take();
  const std::string kept = stopped_take_path(t.guid);
  put(internal_take_path(t), picture());
  put(paths::kSaveTimes, "00:00:00.500\n");
  recorder.recording = 1;
  fs::create_directory(kept + ".new");
  EXPECT_EQ(orb_stop_recorder(), 0);
  orb_set_recorder_title("next job");
  fs::create_directory(caption_path(t));
  for (int attempt = 0; attempt < 2; ++attempt) {
    keep_stopped_take();
    EXPECT_FALSE(complete_take(paths::kTakeGuid, attempt != 0) || fs::exists(kept));
  }
  fs::remove(kept + ".new");
  EXPECT_FALSE(complete_take(paths::kTakeGuid, true));
  EXPECT_STREQ(load_stopped_take(t.guid).value_or(stopped_take{}).texts.project_name, "this job");
  fs::remove(caption_path(t));

  put(stopped_take_path(kGuid), "{}"), put(stopped_take_path(kGuid) + ".new", "{");  // of a power cut
  EXPECT_FALSE(work_until(-1, [] { return start_take_file_workers(), true; }));
  EXPECT_FALSE(fs::exists(stopped_take_path(kGuid)) || fs::exists(stopped_take_path(kGuid) + ".new"));
  EXPECT_TRUE(complete_take(paths::kTakeGuid, true));
  const std::string still = path_in(paths::kUsbTakes, still_file_name(t, "00:00:00.500"));
  EXPECT_STREQ(metadata_of(still).project_name, "this job");
}

bool delete_take() {
  const auto request = [](const std::string& files) {
    json_object* list = json_tokener_parse(files.c_str());
    return orb_delete_recorder_files(list, json_owner(list));
  };
  const std::string of_take = R"({"parent_id":")" + kGuid + R"(","name":")";
  start_take_file_workers();
  request("[" + of_take + take_file_name(kTake, "mp4") + "\"}," + of_take + "still.jpg\"}]");
  while (request("[]") != 0) usleep(100);
  return true;
}

// What is left is listed, so that it can be deleted again.
TEST_F(takes, a_power_cut_in_a_deletion_leaves_nothing_that_is_not_listed) {
  const std::string files[] = {usb_take_path(kTake), caption_path(kTake),
                               path_in(paths::kUsbTakes, "still.jpg")};
  int cuts = 0;
  for (bool is_cut = true; is_cut; ++cuts) {
    SCOPED_TRACE(cuts);
    put(description_path(kGuid), kFinished);
    for (const std::string& file : files) put(file, "x");
    is_cut = work_until(cuts, delete_take);
    const std::string listed = content(description_path(kGuid));
    for (const std::string& file : files)
      EXPECT_TRUE(!fs::exists(file) || contains(listed, fs::path(file).stem().string())) << file;
    EXPECT_FALSE(work_until(-1, delete_take));
    EXPECT_TRUE(fs::is_empty(paths::kUsbTakes));
  }
  EXPECT_GT(cuts, 8);
}

// The title in one line, with references where a player would read something else: a cue of its own, or tags.
TEST_F(takes, a_caption_is_one_cue_with_the_title) {
  const std::string whole = picture();
  const std::pair<const char*, std::string> rows[] = {
      {"a --> b", "a --&gt; b"},
      {"<b>R&D; &lt; \"'</b>", "&lt;b&gt;R&amp;D; &amp;lt; \"'&lt;/b&gt;"},
      {"é 北 🙂 \\N {\\an8}", "é 北 🙂 \\N {\\an8}"},
      {"\r\r1\r\n00:00:00.000 --> 00:00:09.000\n\nc", "  1  00:00:00.000 --&gt; 00:00:09.000  c"}};
  for (const auto& [title, cue] : rows) {
    interrupt_take(whole);
    take titled = kTake;
    titled.asset_id = title;
    ASSERT_TRUE(save_description(titled, "", json_owner(json_object_new_array())));
    ASSERT_TRUE(complete_take(paths::kTakeGuid, true));
    EXPECT_EQ(content(caption_path(kTake)), "WEBVTT\n\n00:00:00.000 --> 0:00:01.000\n" + cue + "\n");
  }
}

// As at the power-off, when every process is asked to end.
TEST_F(takes, a_child_that_somebody_ends_costs_nothing) {
  const std::string whole = picture();
  put("/tmp/ended", "#!/bin/sh\nkill -TERM $$\n");
  chmod("/tmp/ended", 0755);
  for (const char* program : {"/usr/bin/ffprobe", "/usr/bin/ffmpeg"}) {
    interrupt_stopped_take(whole);
    ASSERT_EQ(mount("/tmp/ended", program, nullptr, MS_BIND, nullptr), 0);
    EXPECT_FALSE(complete_take(paths::kTakeGuid, true));
    umount(program);
    EXPECT_TRUE(complete_take(paths::kTakeGuid, true));
    EXPECT_TRUE(fs::remove(kStillOfTake)) << program;
  }
}

TEST_F(takes, a_store_that_is_full_at_any_moment_keeps_the_take_and_its_stills) {
  const std::string whole = picture();
  int waited = 0;
  for (int kb = 4; kb <= 1100; kb += kb < 72 || kb >= 1000 ? 8 : 928) {  // behind an insertion 1 MiB is left
    SCOPED_TRACE(kb);
    const small_store usb(paths::kUsbTakes, kb);
    interrupt_stopped_take(whole);
    if (!complete_take(paths::kTakeGuid, false)) {
      ++waited;
      usb.resize(8000);
      EXPECT_TRUE(complete_take(paths::kTakeGuid, true));
    }
    EXPECT_TRUE(content(usb_take_path(kTake)).starts_with(whole));
    EXPECT_EQ(shell_first_line("ffmpeg -v error -i " + shell_quoted(kStillOfTake) + " -f null - 2>&1", 99),
              "");
    EXPECT_STREQ(metadata_of(kStillOfTake).comment, "still");
    EXPECT_TRUE(contains(content(description_path(kGuid)), "500.jpg"));
  }
  EXPECT_TRUE(waited > 4 && waited < 23) << waited;
  const small_store usb(paths::kUsbTakes, 28);  // of the picture, the caption and one description
  interrupt_take();
  expect_waiting();
  EXPECT_FALSE(fs::exists(usb_take_path(kTake)));
}

// Its packet needs room for a second one; ffmpeg is one that makes a still of 4 MiB.
TEST_F(takes, a_large_still_gets_its_packet_when_there_is_room_for_it) {
  put("/tmp/ffmpeg", "#!/bin/sh\nfor last; do :; done; cat /tmp/large.jpg >\"$last\"\n");
  shell_first_line("ffmpeg -v error -f lavfi -i testsrc -frames 1 /tmp/large.jpg </dev/null", 1);
  fs::resize_file("/tmp/large.jpg", 4 << 20);
  fs::permissions("/tmp/ffmpeg", fs::perms::owner_all);
  ASSERT_EQ(mount("/tmp/ffmpeg", paths::kFfmpeg, nullptr, MS_BIND, nullptr), 0);
  const small_store usb(paths::kUsbTakes, 8'600);
  interrupt_stopped_take(kPicture);
  expect_waiting();
  usb.resize(20'000);
  EXPECT_TRUE(complete_take(paths::kTakeGuid, true));
  umount2(paths::kFfmpeg, MNT_DETACH);
  metadata_of(kStillOfTake);
}

TEST_F(takes, a_take_whose_description_tells_nothing_waits) {
  for (const char* text : {"", "{", "[]", "{}", R"({"name":"na'me: 1/2"})", R"({"start_time":[7]})"}) {
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
