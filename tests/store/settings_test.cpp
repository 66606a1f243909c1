// The settings' two files: what is loaded, what is saved, and that no failure loses what was acknowledged.
#include "store/settings.h"

#include "store/saves.h"
#include "tests/scarcity.h"

std::string flushed;
bool flush_fails = false;
void (*on_flush)() = nullptr;

// In the C library's place: notes what the main thread flushes, and fails when told to.
int fsync(int fd) {
  const std::string name = fs::read_symlink("/proc/self/fd/" + std::to_string(fd)).filename().string();
  if (gettid() == getpid()) flushed += name + " ";
  orb_read_nv(kSettingCount, nullptr, 4);  // what is no setting does not wait for the save
  if (on_flush != nullptr) on_flush();
  errno = EIO;
  return flush_fails ? -1 : static_cast<int>(syscall(SYS_fsync, fd));
}

int integers_left = -1;  // until the memory is out; -1: it lasts

// In json-c's place. What it makes is written alike.
json_object* json_object_new_int(int32_t value) {
  if (integers_left == 0) return nullptr;
  if (integers_left > 0) --integers_left;
  return json_object_new_int64(value);
}

namespace {

constexpr const char* kFile[] = {paths::kSettingsFile0, paths::kSettingsFile1};
std::string record(int previous, int current, const std::string& changes = "") {
  return golden_record("settings.json", previous, current, changes);
}
std::string content(int file) { return ::content(kFile[file]); }
void put(const fs::path& path, std::string_view text) { std::ofstream(path) << text; }
void start_afresh() { fs::remove_all(paths::kSettingsFolder), orb_init_nv(); }
std::string bytes_of(uint32_t index, int length) {
  std::string bytes(48, '#');
  orb_read_nv(index, bytes.data(), length);
  return bytes.substr(0, static_cast<size_t>(length) + 1);
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
  start_afresh();
  EXPECT_EQ(content(1), record(0, 1));
  EXPECT_EQ(content(0), "nothing");
  set(kSettingViewerSeats, 7);
  EXPECT_EQ(content(0), record(1, 2, R"(seats":5>seats":7)"));
  EXPECT_EQ(content(1), record(0, 1));
  for (int i = 0; i < 2; ++i) set(kSettingTitle, "N/S \"1\"");  // a save each, changed or not
  EXPECT_EQ(content(1), record(2, 3, R"(seats":5>seats":7|ASSET>N/S \"1\")"));
  EXPECT_EQ(flushed, "orb nv01.json nv nv00.json nv nv01.json nv nv00.json nv ");
}

TEST(settings, newer_file_is_found_by_the_chain) {
  start_afresh();
  using ids = std::pair<int, int>;
  const std::tuple<ids, ids, int> rows[] = {{{6, 7}, {7, 8}, 1},
                                            {{8, 9}, {7, 8}, 0},
                                            {{5, 6}, {100, 101}, 0},
                                            {{INT_MAX - 1, INT_MAX}, {-2, -1}, 0}};
  for (const auto& [first, second, newer] : rows) {
    put(kFile[0], record(first.first, first.second, R"(seats":5>seats":0)"));
    put(kFile[1], record(second.first, second.second, R"(seats":5>seats":1)"));
    orb_init_nv();
    EXPECT_EQ(number(kSettingViewerSeats), newer);
    set(kSettingViewerSeats, 5);
    const int id = newer == 0 ? first.second : second.second;
    EXPECT_EQ(content(1 - newer), record(id, id == INT_MAX ? INT_MIN : id + 1));
  }
}

TEST(settings, files_that_are_not_valid_are_ignored) {
  start_afresh();
  const std::string whole = record(6, 7, R"(seats":5>seats":2)");
  for (const std::string& text :
       {std::string("a pipe"), std::string(), std::string("[1]"), std::string(900, '\0'),
        std::string(5 << 20, ' ') + whole, whole.substr(0, whole.size() - 1),
        record(6, 7, R"(valid":1>valid":0)"), record(6, 7, "values_valid>valid")}) {
    for (const int bad : {0, 1}) {
      for (const char* file : kFile) fs::remove(file);
      text == "a pipe" ? static_cast<void>(mkfifo(kFile[bad], 0600)) : put(kFile[bad], text);
      if (bad == 1) put(kFile[0], record(8, 9, R"(seats":5>seats":3)"));
      orb_init_nv();
      EXPECT_EQ(number(kSettingViewerSeats), bad == 1 ? 3 : 5) << text.substr(0, 80);
      EXPECT_EQ(content(1) == record(0, 1), bad == 0) << "the defaults are saved";
    }
  }
}

TEST(settings, values_of_other_types_and_sizes) {
  start_afresh();
  put(kFile[1], record(0, 1,
                       R"(ENG>ENGLISH|seats":5>seats":null|delay":0>delay":1e20|"ORB">12|ASSET>N)"
                       "\xD6"
                       "RD"));
  orb_init_nv();
  set(kSettingZoomOsd, 0);  // shows what was made of that
  EXPECT_EQ(content(0), record(1, 2, R"(delay":0>delay":2147483647|ORB>12|ASSET>N?RD)"));
  const std::string full(41, 'T'), third("UUUUUU\xD5?", 8);  // 1/3
  set(kSettingTitle, full + "rest");
  set(kSettingCount - 1, third);
  set(kSettingUnits, std::string("\x02\x01\0\0rest", 8)), set(kSettingUnits, "\x03");
  set(kSettingCount, 1);
  orb_init_nv();  // as the file gives it back
  EXPECT_EQ(bytes_of(kSettingTitle, 46), full + std::string(5, '\0') + "#");
  EXPECT_EQ(bytes_of(kSettingTitle, 2), "TT#");
  EXPECT_EQ(bytes_of(kSettingCount - 1, 8), third + "#");
  EXPECT_EQ(number(kSettingUnits), 3);
  EXPECT_EQ(number(kSettingCount), -77) << "untouched";
}

TEST(settings, a_save_without_memory_changes_no_file) {
  start_afresh();
  set(kSettingViewerSeats, 4);
  const std::string files = content(0) + content(1);
  for (int integers = 0; content(0) + content(1) == files; ++integers) {
    integers_left = integers;
    set(kSettingUnits, 0);
  }
  integers_left = -1;
  EXPECT_EQ(content(1), record(2, 3, R"(seats":5>seats":4|units":1>units":0)"));
}

TEST(settings, failed_save_is_repeated_with_the_same_id) {
  ASSERT_EQ(mount("small", "/home/orb", "tmpfs", 0, "size=16k"), 0);
  const std::string full = kFile[0] + std::string("/full");
  const std::function<void(bool)> kSpoils[] = {
      [](bool on) { flush_fails = on; },
      [](bool on) { put("/home/orb/filler", std::string(on ? 20'000 : 0, 'x')); },
      [&](bool on) { on ? fs::create_directories(full) : fs::remove_all(kFile[0]) > 0; }};
  for (const auto& spoil : kSpoils) {
    start_afresh();
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

TEST(settings, what_is_no_file_is_replaced) {
  start_afresh();
  for (void (*place)() : {+[] { mkfifo(kFile[0], 0644); }, +[] { fs::create_directory(kFile[0]); },
                          +[] { fs::create_symlink("/dev/full", kFile[0]); },
                          +[] { fs::create_symlink("/not/there", kFile[0]); }}) {
    for (const char* file : kFile) fs::remove(file);
    place();
    orb_init_nv();  // saves to file 1
    set(kSettingUnits, 0);
    EXPECT_EQ(content(0), record(1, 2, R"(units":1>units":0)"));
  }
  {
    const no_more_files now(0);
    set(kSettingUnits, 1);  // to file 1, which cannot be opened
  }
  EXPECT_TRUE(fs::exists(kFile[1]));
}

// Save k sets the seats (k even) or the delay (k odd) to k: what is loaded tells whole saves from torn ones.
void save_number(int k) { set(k % 2 == 0 ? kSettingViewerSeats : kSettingOsdDelay, k); }

int load_number() {
  orb_init_nv();
  const int seats = number(kSettingViewerSeats), delay = number(kSettingOsdDelay);
  return std::abs(seats - delay) == 1 ? std::max(seats, delay) : -1;
}

TEST(settings, acknowledged_saves_survive_a_kill) {
  start_afresh();
  save_number(2), save_number(3);
  kill_while_saving(3, 60, save_number, load_number);
}

}  // namespace
