// Takes as crews make them: the daemon, the real ffmpeg, and the simulated encoder's stream.

#include "base/text.h"
#include "system/unit.h"

namespace {

using files = std::map<std::string, std::string>;  // path to content

const std::string kGuid = "0f7e3a52-8d5c-11ef-9c1a-0242ac120002";

bool recorder(const std::string& action) {
  return http("POST", "/api/camera/recorder/" + action).body == kOk;
}

files read_folder(const char* folder, const char* extension) {
  files found;
  std::error_code none;
  for (const fs::directory_entry& entry : fs::directory_iterator(folder, none)) {
    const std::string path = entry.path();
    if (path.ends_with(extension)) found[path] = read_text(path);
  }
  return found;
}

std::string on_the_stick(const std::string& internal_path) {
  return paths::kUsbTakes + internal_path.substr(strlen(paths::kInternalTakes));
}

bool begin_take() {
  return await([] { return recorder("start"), access(paths::kTakeGuid, F_OK) == 0; });
}

bool await_picture() {
  return await([] {
    for (const auto& [path, picture] : read_folder(paths::kInternalTakes, ".mp4"))
      if (picture.size() > 200'000) return true;
    return false;
  });
}

void expect_refused_start() {
  const int64_t before = monotonic_ns();
  EXPECT_FALSE(recorder("start"));
  EXPECT_LT(monotonic_ns() - before, 10 * kNanosecondsPerMillisecond);
}

// How many are listed: every still, and nothing is left over; all are there, unless their take has no index.
size_t expect_listed_stills(bool are_all_there = true) {
  const files stills = read_folder(paths::kUsbTakes, ".jpg");
  size_t count = 0, listed_ones = 0;
  for (const auto& [path, text] : read_folder(paths::kUsbTakes, ".json")) {
    const json_owner description = load_json_file(path.c_str());
    for (json_object* file : json_elements(json_member(description.get(), "files"))) {
      const std::string still = path_in(paths::kUsbTakes, json_text(file, "name"));
      if (still.ends_with(".jpg")) ++count, listed_ones += stills.count(still);
    }
  }
  EXPECT_EQ(listed_ones, stills.size());
  EXPECT_TRUE(!are_all_there || listed_ones == count);
  EXPECT_FALSE(fs::exists(paths::kXmpTemporary));
  return count;
}

const std::string kNamed = "/media/usb99/ApiVideos/a 'b' $x;_c_";

// What is in a take or still of the test below, as the unit and as another program read it.
void expect_metadata(const std::string& path, const std::string& note) {
  ASSERT_TRUE(path.starts_with(kNamed));
  const std::string start = path.substr(kNamed.size(), 19);
  EXPECT_EQ(
      http("POST", "/api/camera/recorder/file/metadata", R"({"file_name":")" + path + "\"}").body,
      R"({"metadata_title":"MH <14> & 'b'","metadata_id":"crew","metadata_date":")" + start.substr(0, 10) +
          R"(","metadata_time":")" + start.substr(11) + R"(","metadata_view":"up","metadata_model":)" +
          R"("ORB Advanced","metadata_sn":"SIM-0001","metadata_gps_latitude":"48.11730",)" +
          R"("metadata_gps_time":"12:35:19.00 UTC","metadata_gps_longitude":"11.51667","metadata_note":")" +
          note + "\"}");
  std::string tags;
  for (const char* tag : {"ProjectName", "Composer", "Scene", "CameraLabel", "DMComment"})
    tags += std::string(" -XMP-xmpDM:") + tag;
  EXPECT_EQ(shell_first_line("exiftool -T -struct" + tags + " " + shell_quoted(path), 999),
            "MH <14> & 'b'\tcrew\tup\tSIM-0001\t" + note);
}

bool put_note(const std::string& kind, const std::string& note, const std::string& file = "") {
  const std::string body = R"({"file_name":")" + file + R"(","metadata_note":")" + note + "\"}";
  return http("PUT", "/api/camera/recorder/" + kind + "/note", body).body == kOk;
}

bool save_still() { return usleep(400'000), recorder("save"); }

TEST(takes, a_take_reaches_the_stick_with_its_stills_and_notes) {
  const child camera = start_camera(true), daemon = start_serving_daemon();
  const std::string sentence = "$GPGGA,123519,4807.038,N,01131.000,E,1,08,0.9,545.4,M,46.9,M,,";
  const std::map<std::string, std::string> kSetup = {{"gps_data", sentence},  {"title", "MH <14> & 'b'"},
                                                     {"operator_id", "crew"}, {"flow_direction", "up"},
                                                     {"save_delay", "0"},     {"filename", "a 'b' $x;/c"}};
  for (const auto& [name, text] : kSetup)
    http("PUT", "/api/setup/" + name, "{\"" + name + R"(":")" + text + "\"}");
  EXPECT_TRUE(put_note("video", "a 'video'"));
  ASSERT_TRUE(begin_take());
  const int64_t begin = monotonic_ns();
  ASSERT_TRUE(await_picture());
  EXPECT_TRUE(put_note("image", "one\\t(\u00e9\\u00e9)"));
  EXPECT_TRUE(save_still() && save_still() && recorder("remove"));
  EXPECT_TRUE(save_still() && put_note("image", "two") && save_still());
  EXPECT_TRUE(!recorder("resume") && recorder("pause") && !recorder("pause"));
  usleep(1'500'000);
  EXPECT_TRUE(recorder("resume"));
  expect_refused_start();
  usleep(1'000'000);
  EXPECT_TRUE(recorder("stop"));
  const double lasted = static_cast<double>(monotonic_ns() - begin) / 1e9;
  for (int i = 0; i < 5; ++i) expect_refused_start();
  EXPECT_FALSE(recorder("stop"));
  ASSERT_TRUE(await_completion());

  EXPECT_EQ(expect_listed_stills(), 3U);
  EXPECT_TRUE(read_folder(paths::kInternalTakes, ".mp4").empty());
  files taken = read_folder(paths::kUsbTakes, ".mp4");
  taken.merge(read_folder(paths::kUsbTakes, ".jpg"));
  const char* const kNotes[] = {"a 'video'", "one()", "two", ""};
  ASSERT_EQ(taken.size(), std::size(kNotes));
  const std::string video = taken.begin()->first;
  EXPECT_NEAR(duration(video), lasted, 0.5);
  EXPECT_TRUE(fs::exists(video.substr(0, video.size() - 3) + "vtt"));
  const std::string description = read_folder(paths::kUsbTakes, ".json").begin()->second;
  EXPECT_TRUE(contains(description, R"("duration":"0:00:0)"));
  const char* const* note = kNotes;
  for (const auto& [path, picture] : taken) {
    SCOPED_TRACE(path);
    expect_metadata(path, *note++);
    EXPECT_TRUE(put_note("file", "changed", path));
    expect_metadata(path, "changed");
  }
}

TEST(takes, a_lost_controller_leaves_nothing_running) {
  const child camera = start_camera(true), daemon = start_serving_daemon();
  const std::string reply = http("POST", "/api/seats/request", R"({"seat_role":"controller"})").body;
  const std::string token = reply.substr(reply.find(':') + 1, 18);
  http("POST", "/api/seats/update", R"({"seat_update":"lock","seat_token":)" + token + "}");
  const int64_t begin = monotonic_ns();
  ASSERT_TRUE(begin_take());
  http("PUT", "/api/led/mode", R"({"led_mode":"high"})");
  http("PUT", "/api/laser/mode", R"({"laser_mode":"manual"})");
  http("PUT", "/api/camera/zoom/position", R"({"zoom_position":8000})");
  const auto board = [] { return ctl("board", "show"); };
  EXPECT_TRUE(await([&] { return contains(board(), "led 0x24"); }));
  ASSERT_TRUE(await([&] { return contains(board(), "led 0x00"); }, 35));
  EXPECT_NEAR(static_cast<double>(monotonic_ns() - begin) / 1e9, 30, 1.5);
  EXPECT_TRUE(await([&] { return contains(board(), "laser off"); }));
  EXPECT_TRUE(await([] { return contains(ctl("camera", "show"), "zoom 0 (1.0x"); }));
  ASSERT_TRUE(await_completion());
  EXPECT_EQ(playable_takes(), 1);
}

struct ending {
  const char *camera, *action[2];  // what the encoder does, what is asked
  int signal, to_ffmpeg = 0;       // to the daemon; SIGTERM before (-1) or behind (1) that; 0 none
  bool early = false;              // before the take has a picture
};

constexpr ending kEndings[] = {
    {"", {"pause", "stop"}, 0},  {"picture_silent on", {"stop"}, 0}, {"picture_drop", {"stop"}, 0},
    {"", {}, SIGTERM},           {"", {"pause"}, SIGTERM},           {"", {}, SIGTERM, -1},
    {"", {}, SIGTERM, 1},        {"", {"pause"}, SIGTERM, 1},        {"picture_silent on", {}, SIGTERM, -1},
    {"", {"stop"}, SIGTERM, -1}, {"", {"stop"}, SIGTERM, 1},         {"", {}, SIGTERM, 1, true},
    {"", {}, SIGKILL},           {"", {"pause"}, SIGKILL},           {"picture_silent on", {}, SIGKILL},
    {"", {"stop"}, SIGKILL}};

// The daemon's status, and whether it kept whoever stopped it waiting.
void end_daemon(child* daemon, const ending& ending) {
  const pid_t ffmpeg = number_or_zero(shell_first_line("pgrep -f 'vx-1[.]mp4'", 20).c_str());
  const int64_t before = monotonic_ns();
  if (ffmpeg > 0 && ending.to_ffmpeg < 0) kill(ffmpeg, SIGTERM);
  daemon->signal(ending.signal);
  if (ffmpeg > 0 && ending.to_ffmpeg > 0) kill(ffmpeg, SIGTERM);
  EXPECT_EQ(daemon->wait(), ending.signal == SIGKILL ? -SIGKILL : 0);
  EXPECT_LT(monotonic_ns() - before, 2000 * kNanosecondsPerMillisecond);
}

TEST(takes, every_ending_leaves_one_that_can_be_played) {
  const child camera = start_camera(true);
  child daemon = start_daemon();
  int count = playable_takes();
  for (const ending& ending : kEndings) {
    SCOPED_TRACE(&ending - kEndings);
    ASSERT_TRUE(await_api());
    ASSERT_TRUE(begin_take());
    ASSERT_TRUE(ending.early || await_picture());
    count += !ending.early;
    if (*ending.camera != 0) ctl("camera", ending.camera), usleep(500'000);
    for (const char* action : ending.action) EXPECT_TRUE(action == nullptr || recorder(action)) << action;
    if (ending.signal != 0) {
      end_daemon(&daemon, ending);
      daemon = start_daemon();
    }
    EXPECT_TRUE(await_completion());
    EXPECT_EQ(playable_takes(), count);
    ctl("camera", "picture_silent off");
  }
}

// It lets the next ones be recorded, and every start of the daemon tries it again.
TEST(takes, one_without_a_description_is_set_aside_and_not_lost) {
  fs::create_directories(paths::kInternalTakes);
  write_text(paths::kTakeGuid, kGuid);
  write_text("/home/orb/ApiVideos/a_1.mp4", "picture");
  child daemon = start_serving_daemon();
  EXPECT_TRUE(await([&] { return recorder("start"), fs::exists(paths::kTakeGuid + ("." + kGuid)); }));
  ASSERT_TRUE(begin_take());
  EXPECT_TRUE(recorder("stop"));
  EXPECT_TRUE(await_completion());
  write_text("/media/usb99/ApiVideos/" + kGuid + ".json", R"({"name":"a","start_time":"1"})");
  daemon.end(SIGKILL);
  daemon = start_daemon();
  EXPECT_TRUE(await([&] { return !fs::exists(paths::kTakeGuid + ("." + kGuid)); }));
  EXPECT_EQ(read_text("/media/usb99/ApiVideos/a_1.mp4"), "picture");
}

TEST(takes, one_whose_ffmpeg_never_ran_leaves_its_note) {
  write_text("/tmp/none", "");
  ASSERT_EQ(mount("/tmp/none", "/usr/bin/ffmpeg", nullptr, MS_BIND, nullptr), 0);
  const child daemon = start_serving_daemon();
  EXPECT_TRUE(put_note("video", "later"));
  ASSERT_TRUE(begin_take());
  usleep(300'000);
  EXPECT_TRUE(recorder("stop"));
  EXPECT_TRUE(await_completion());
  EXPECT_TRUE(await([] { return read_folder(paths::kUsbTakes, ".json").empty(); }));
  EXPECT_EQ(read_text(paths::kVideoNote), "later");
}

bool await_no_guid() {
  return await([] {
    return std::ranges::none_of(names_in(paths::kInternalTakes),
                                [](auto& name) { return name.starts_with("guid"); });
  });
}

TEST(takes, a_full_store_is_tried_again_when_it_has_room_also_when_that_came_in_another_take) {
  const std::string large = "/home/orb/ApiVideos/a_1.mp4";
  write_text("/media/usb99/trace_mask", "0x200");
  for (const char* folder : {paths::kInternalTakes, paths::kUsbTakes}) fs::create_directories(folder);
  ASSERT_EQ(mount("tmpfs", paths::kUsbTakes, "tmpfs", 0, "size=150m"), 0);
  const std::string ballast = on_the_stick(paths::kInternalTakes + std::string("/ballast"));
  write_text(paths::kTakeGuid + ("." + kGuid), kGuid);
  write_text(on_the_stick(paths::kInternalTakes + ("/" + kGuid + ".json")),
             R"({"name":"a","start_time":"1"})");
  write_text(large, ""), fs::resize_file(large, 140 << 20);
  shell_first_line("head -c 20m /dev/zero >" + ballast, 1);
  const child camera = start_camera(true), daemon = start_serving_daemon();
  ASSERT_TRUE(begin_take());
  remove(ballast.c_str());
  EXPECT_TRUE(recorder("stop") && await_no_guid());

  remove(on_the_stick(large).c_str());
  ASSERT_TRUE(begin_take() && await_picture());
  shell_first_line("head -c 200m /dev/zero 2>/dev/null >" + ballast + "; truncate -s -150K " + ballast, 1);
  recorder("stop");
  EXPECT_TRUE(await([] { return recorder("start"), contains(trace_log(), "take set aside '"); }));
  remove(ballast.c_str());
  EXPECT_TRUE(await_no_guid());
  EXPECT_EQ(playable_takes(), 1);
}

void expect_finished(const std::string& stem) {
  const std::string listed = http("GET", "/api/camera/recorder/files").body;
  const std::pair<const char*, const char*> kFiles[] = {{".mp4", "video"},
                                                        {"_00-00-00-200.jpg", "one"},
                                                        {"_00-00-00-400.jpg", "two"},
                                                        {"_00-00-00-600.jpg", "three"}};
  for (const auto& [end, note] : kFiles) {
    const std::string name = R"("name":")" + stem + end + '"', path = path_in(paths::kUsbTakes, stem + end);
    SCOPED_TRACE(path);
    EXPECT_TRUE(contains(listed, name)) << listed;
    EXPECT_EQ(listed.find(name), listed.rfind(name));
    const std::string metadata =
        http("POST", "/api/camera/recorder/file/metadata", R"({"file_name":")" + path + "\"}").body;
    for (const std::string& told :
         {std::string(R"(title":"this job")"), R"(note":")" + std::string(note) + '"'})
      EXPECT_TRUE(contains(metadata, "\"metadata_" + told)) << metadata;
    EXPECT_EQ(shell_first_line("ffmpeg -v error -i " + shell_quoted(path) + " -f null - 2>&1", 99), "");
  }
}

// When the daemon ends: so long after the begin, the stop or the caption of a take.
struct interruption {
  int signal;  // to the daemon; 0: the power is cut, all its children end, too
  bool is_stopped, is_captioned;
  unsigned within_us;
};
constexpr interruption kPowerCuts[] = {
    {0, false, false, 4'000'000}, {0, true, false, 450'000}, {0, true, true, 700}, {0, true, false, 150'000}};
constexpr interruption kEnds[] = {{SIGKILL, true, false, 900'000}, {SIGTERM, true, false, 900'000}};

void end_daemon(child* daemon, int signal) {
  if (signal != 0) return static_cast<void>(daemon->end(signal));
  const pid_t group = -daemon->pid();
  kill(group, SIGKILL);
  shell_first_line("pkill -KILL -f 'vx-1.mp4|-vframes'", 1);  // ffmpeg has a session of its own
  daemon->wait();
  EXPECT_TRUE(await([group] { return kill(group, 0) != 0; }));
}

// With a box of metadata behind it, or still without.
bool is_copy_of(const std::string& picture, const std::string& copy) {
  return copy.starts_with(picture) && (copy.size() == picture.size() || copy.size() == picture.size() + 2584);
}

// Ends the daemon anywhere in a take, while it is recorded, ended and completed, and the next job begins.
void interrupt_takes(std::span<const interruption> moments, int times) {
  std::mt19937 random(20'260'309);
  write_text("/media/usb99/trace_mask", "0x200");  // its lines slow a completion down
  const child camera = start_camera(true);
  int waiting = 0;
  size_t stills = 0;
  for (int round = 0; round < times; ++round) {
    SCOPED_TRACE(round);
    const interruption& moment = moments[static_cast<size_t>(round) % moments.size()];
    child daemon = start_serving_daemon();
    const files others = read_folder(paths::kUsbTakes, "");
    http("PUT", "/api/setup/title", R"({"title":"this job"})");
    EXPECT_TRUE(put_note("video", "video"));
    ASSERT_TRUE(begin_take());
    std::string stem;
    if (moment.is_stopped) {
      ASSERT_TRUE(await_picture());
      stem = fs::path(read_folder(paths::kInternalTakes, ".mp4").begin()->first).stem();
      write_text(paths::kSaveTimes, "00:00:00.200\n00:00:00.400\n00:00:00.600\n");  // however late it began
      write_text(paths::kImageNotes, "one\ntwo\nthree\n");
      ASSERT_TRUE(recorder("stop"));
      http("PUT", "/api/setup/title", R"({"title":"next job"})");
      const std::string caption = std::string(paths::kUsbTakes) + "/" + stem + ".vtt";
      while (moment.is_captioned && access(caption.c_str(), F_OK) != 0) continue;
    }
    usleep(static_cast<useconds_t>(random() % moment.within_us));
    end_daemon(&daemon, moment.signal);
    waiting += fs::exists(paths::kTakeGuid);

    const files internal = read_folder(paths::kInternalTakes, moment.signal == 0 ? ".mp4" : "none");
    daemon = start_serving_daemon();
    ASSERT_TRUE(await_completion());
    EXPECT_EQ(std::distance(fs::directory_iterator(paths::kInternalTakes), {}), 2);  // the files of marks
    for (const auto& [path, picture] : internal)
      EXPECT_TRUE(is_copy_of(picture, read_text(on_the_stick(path)))) << path;
    stills = expect_listed_stills(moment.signal != 0);
    if (moment.signal != 0) expect_finished(stem);
    for (const auto& [path, content] : others) EXPECT_TRUE(read_text(path) == content) << path;
    for (const auto& [path, content] : read_folder(paths::kUsbTakes, ".json"))
      EXPECT_TRUE(load_json_file(path.c_str())) << content;
  }
  printf("%d takes, %d interrupted before their completion, %zu stills\n", times, waiting, stills);
}

TEST(takes, a_power_cut_loses_nothing) { interrupt_takes(kPowerCuts, 3); }
TEST(takes, DISABLED_fifty_power_cuts_lose_nothing) { interrupt_takes(kPowerCuts, 50); }
TEST(takes, the_end_of_the_daemon_loses_no_finished_still) { interrupt_takes(kEnds, 4); }
TEST(takes, DISABLED_fifty_ends_of_the_daemon_lose_no_finished_still) { interrupt_takes(kEnds, 50); }

}  // namespace
