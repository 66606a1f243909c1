// Marks, notes and metadata of a take that the test itself declares to be running, and the stills that are
// cut from a real picture.
#include "recorder/marks.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "base/child_process.h"
#include "base/clock.h"
#include "base/file.h"
#include "base/paths.h"
#include "recorder/gps.h"
#include "recorder/internal.h"
#include "recorder/line_file.h"
#include "recorder/metadata.h"

namespace fs = std::filesystem;

namespace {

const take kTake{"0f7e3a52-8d5c-11ef-9c1a-0242ac120002", "na'me: 50%d", "MH 14", "2026-03-09-14-05-59",
                 "n\n"};
const std::string kStills = "/media/usb99/ApiVideos/na'me_ 50_d_2026-03-09-14-05-59_";

std::string content(const std::string& path) { return read_file(path.c_str(), 1 << 20).value_or("nothing"); }

void put(const std::string& path, const std::string& text) { ASSERT_TRUE(replace_file(path, text)); }

// The description's "files" as names, each with a comma behind it.
std::string names_of(json_object* files) {
  std::string names;
  for (size_t i = 0; i < json_object_array_length(files); ++i)
    names += json_text(json_object_array_get_idx(files, i), "name") + ",";
  return names;
}

struct marks : testing::Test {
  marks() {
    for (const char* folder : {paths::kInternalTakes, paths::kUsbTakes})
      fs::remove_all(folder), fs::create_directories(folder);
    for (const char* path : {paths::kVideoNote, paths::kImageNote}) fs::remove(path);
    put(paths::kSaveTimes, "");
    put(paths::kImageNotes, "");
    put(paths::kTakeGuid, kTake.guid);
    save_description(kTake, "", json_owner(json_object_new_array()));
    recorder.started_ns = monotonic_ns() - 3'600'000 * kNanosecondsPerMillisecond;
    recorder.recording = 1;
    recorder.paused = 0;
    const mutex_lock lock(recorder.stage_lock);
    recorder.stage = recorder_stage::idle;
  }
  marks(const marks&) = delete;
  ~marks() override { recorder.recording = 0; }
};

TEST_F(marks, an_offset_has_the_hours_of_local_time) {
  constexpr int64_t kSecond = 1'000 * kNanosecondsPerMillisecond;
  EXPECT_EQ(mark_offset_text(6 * kSecond + kSecond / 4), "00:00:06.250");
  EXPECT_EQ(mark_offset_text(3'600 * kSecond - 1), "00:59:59.999");
  EXPECT_EQ(mark_offset_text(90'061 * kSecond), "01:01:01.000");
  setenv("TZ", "XXX-2", 1), tzset();
  EXPECT_EQ(mark_offset_text(6 * kSecond), "02:00:06.000");
  setenv("TZ", "UTC", 1), tzset();
}

TEST_F(marks, keep_in_step_with_their_notes) {
  put(paths::kImageNote, "first\nmore\n");
  EXPECT_EQ(orb_save_recorder_image(), 0);
  EXPECT_FALSE(fs::exists(paths::kImageNote));
  EXPECT_EQ(orb_save_recorder_image(), 0);
  put(paths::kImageNote, std::string(600, 'x'));
  EXPECT_EQ(orb_save_recorder_image(), 0);
  EXPECT_EQ(content(paths::kImageNotes), "first\n\n" + std::string(510, 'x') + "\n");
  const std::string three = content(paths::kSaveTimes);
  EXPECT_EQ(three.size(), 39U);
  EXPECT_EQ(three.find("01:00:0"), 0U) << three;

  EXPECT_EQ(orb_remove_recorder_image(), 0);
  EXPECT_EQ(content(paths::kSaveTimes), three.substr(0, 26));
  EXPECT_EQ(content(paths::kImageNotes), "first\n\n");
  EXPECT_EQ(orb_remove_recorder_image() + orb_remove_recorder_image(), 0);
  EXPECT_EQ(content(paths::kSaveTimes) + content(paths::kImageNotes), "");
  EXPECT_EQ(orb_remove_recorder_image(), -1);

  fs::remove(paths::kSaveTimes);
  EXPECT_EQ(orb_save_recorder_image(), 0);
  EXPECT_EQ(content(paths::kImageNotes), "\n");
  EXPECT_FALSE(fs::exists(paths::kSaveTimes));
}

TEST_F(marks, need_a_take_that_runs) {
  recorder.paused = 1;
  EXPECT_EQ(orb_save_recorder_image() + orb_remove_recorder_image(), -2);
  recorder.recording = recorder.paused = 0;
  EXPECT_EQ(orb_save_recorder_image() + orb_remove_recorder_image(), -2);
  EXPECT_EQ(content(paths::kSaveTimes) + content(paths::kImageNotes), "");
}

// A store that is full, in the shape of files that cannot grow.
TEST_F(marks, that_cannot_be_written_leave_no_half) {
  put(paths::kImageNotes, std::string(1 << 22, '\n'));
  EXPECT_EQ(orb_save_recorder_image(), -1);
  EXPECT_EQ(content(paths::kSaveTimes), "");
  put(paths::kSaveTimes, std::string(1 << 22, '\n'));
  put(paths::kImageNotes, "");
  EXPECT_EQ(orb_save_recorder_image(), -1);
  EXPECT_EQ(content(paths::kImageNotes), "");
}

TEST_F(marks, an_image_note_is_of_the_last_mark_or_waits) {
  orb_xmp_fields fields;
  const auto note = [&] { return orb_load_recorder_image_metadata(&fields), std::string(fields.comment); };
  EXPECT_EQ(orb_set_recorder_image_note("waits"), 0);
  EXPECT_EQ(note(), "waits");
  EXPECT_EQ(std::string(fields.shot_date) + " " + fields.shot_time, "2026-03-09 14-05-59");
  EXPECT_EQ(orb_save_recorder_image() + orb_save_recorder_image(), 0);
  EXPECT_EQ(content(paths::kImageNotes), "waits\n\n");
  const std::string longest = std::string(509, 'x') + "é";
  for (const std::string& text : {std::string("last"), std::string("\nb"), longest}) {
    EXPECT_EQ(orb_set_recorder_image_note(text.c_str()), 0);
    const std::string stored = text == longest ? std::string(509, 'x') : text.substr(0, text.find('\n'));
    EXPECT_EQ(content(paths::kImageNotes), "waits\n" + stored + "\n");
    EXPECT_EQ(note(), stored);
  }
  EXPECT_FALSE(fs::exists(paths::kImageNote));
  recorder.recording = 0;
  EXPECT_EQ(orb_set_recorder_image_note("next"), 0);
  EXPECT_EQ(note() + content(paths::kImageNote), "nextnext");
  EXPECT_EQ(start_time_text(0).find(fields.shot_date), 0U);
}

TEST_F(marks, a_video_note_is_of_the_running_take_or_waits) {
  orb_xmp_fields fields;
  const auto note = [&] { return orb_load_recorder_video_metadata(&fields), std::string(fields.comment); };
  EXPECT_EQ(note(), "n");
  EXPECT_EQ(orb_set_recorder_video_note("new \"note\"\n"), 0);
  EXPECT_EQ(note(), "new \"note\"");
  EXPECT_EQ(content(description_path(kTake.guid)),
            R"({"id":"0f7e3a52-8d5c-11ef-9c1a-0242ac120002","name":"na'me: 50%d","asset_id":"MH 14",)"
            R"("start_time":"2026-03-09-14-05-59","duration":"","files":[],"note":"new \"note\""})");
  fs::remove(description_path(kTake.guid));
  EXPECT_EQ(orb_set_recorder_video_note("lost"), -1);
  EXPECT_EQ(note() + fields.shot_date, "");
  recorder.recording = 0;
  EXPECT_EQ(orb_set_recorder_video_note("next"), 0);
  EXPECT_EQ(note() + content(paths::kVideoNote), "nextnext");
}

TEST_F(marks, become_stills_with_what_is_known_of_them) {
  shell_first_line(
      "ffmpeg -v error -f lavfi -i testsrc=s=64x48:r=5:d=3 " + shell_quoted(internal_take_path(kTake)), 1);
  orb_set_recorder_title("a <b> & 'c'");
  orb_set_recorder_gps_location("48.11730", "11.51667", "12:35:19.00 UTC");
  put(paths::kSaveTimes,
      "00:00:00.500\nnonsense\n0:0:1.5\n00:00:01.005\n00:00:02.000\n00:01:00.000\n00:00:99.000");
  put(paths::kImageNotes, "one\nskipped\ntwo\nagain\n\nbeyond\n");
  json_owner files(json_object_new_array());
  make_stills(kTake, files.get());
  const std::string start = kStills.substr(kStills.rfind('/') + 1);
  EXPECT_EQ(names_of(files.get()), start + "00-00-00-500.jpg," + start + "00-00-01-005.jpg," + start +
                                       "00-00-02-000.jpg," + start + "00-01-00-000.jpg,");
  const std::pair<const char*, const char*> notes[] = {
      {"00-00-00-500", "one"}, {"00-00-01-005", "two"}, {"00-00-02-000", ""}};
  for (const auto& [offset, note] : notes) {
    orb_xmp_fields fields;
    EXPECT_EQ(orb_load_recorder_file_metadata((kStills + offset + ".jpg").c_str(), &fields), 0) << offset;
    EXPECT_STREQ(fields.comment, note);
    EXPECT_STREQ(fields.project_name, "a <b> & 'c'");
    EXPECT_STREQ(fields.gps_longitude, "11.51667");
  }
  EXPECT_FALSE(fs::exists(kStills + "00-01-00-000.jpg")) << "beyond the end";

  const std::string first = kStills + "00-00-00-500.jpg";
  EXPECT_EQ(orb_set_recorder_file_note(first.c_str(), "changed"), 0);
  orb_xmp_fields fields;
  EXPECT_EQ(orb_load_recorder_file_metadata(first.c_str(), &fields), 0);
  EXPECT_STREQ(fields.comment, "changed");
  EXPECT_STREQ(fields.shot_time, "14-05-59");
  EXPECT_EQ(orb_set_recorder_file_note(internal_take_path(kTake).c_str(), "has none"), -1);
}

// What an interrupted completion has cut, and nothing that only looks like it.
TEST_F(marks, unlisted_stills_of_the_take_are_removed_and_no_others) {
  const std::string others[] = {kStills + "00-00-00-500.jpg.jpg",
                                kStills + "00-00-00-50x.jpg",
                                kStills + "00-00-00-500.mp4",
                                kStills + "0-00-00-500.jpg",
                                kStills + ".jpg",
                                "/media/usb99/ApiVideos/b" + kStills.substr(24) + "00-00-00-500.jpg",
                                kStills + "00-00-07-000.jpg"};
  for (const std::string& path : others) put(path, "");
  for (const char* offset : {"00-00-00-500", "99-59-59-999"}) put(kStills + offset + ".jpg", "");
  json_owner files(json_object_new_array());
  json_object_array_add(files.get(), take_file_entry(fs::path(others[6]).filename()).release());
  remove_unlisted_stills(kTake, files.get());
  for (const std::string& path : others) EXPECT_TRUE(fs::exists(path)) << path;
  for (const char* offset : {"00-00-00-500", "99-59-59-999"})
    EXPECT_FALSE(fs::exists(kStills + offset + ".jpg")) << offset;
}

}  // namespace
