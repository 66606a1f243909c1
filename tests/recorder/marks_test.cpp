// Marks, notes and metadata of a take that is declared to be running, and the stills of a real picture.
#include "recorder/marks.h"

#include "recorder/bench.h"
#include "recorder/mark_files.h"
#include "tests/scarcity.h"

namespace {

const take kTake{kGuid, "na'me: 50%d", "MH 14", "2026-03-09-14-05-59", "n\n"};
const std::string kStillName = "na'me_ 50_d_2026-03-09-14-05-59_";
const std::string kStills = "/media/usb99/ApiVideos/" + kStillName;

struct marks : testing::Test {
  marks() {
    clear_stores();
    for (const char* path : {paths::kVideoNote, paths::kImageNote}) fs::remove(path);
    for (const char* path : {paths::kSaveTimes, paths::kImageNotes}) put(path, "");
    put(paths::kTakeGuid, kTake.guid);
    save_description(kTake, "", json_owner(json_object_new_array()));
    recorder.started_ns = monotonic_ns() - 3'600'000 * kNanosecondsPerMillisecond;
    recorder.recording = 1, recorder.paused = 0;
    set_stage(recorder_stage::idle);
  }
  ~marks() override { recorder.recording = 0; }
};

TEST_F(marks, an_offset_has_the_hours_of_local_time) {
  setenv("TZ", "XXX-2", 1), tzset();
  EXPECT_EQ(mark_offset_text(3'599'999 * kNanosecondsPerMillisecond), "02:59:59.999");
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

  recorder.paused = 1;
  EXPECT_EQ(orb_save_recorder_image() + orb_remove_recorder_image(), -2);
  recorder.paused = 0;
  EXPECT_EQ(orb_remove_recorder_image(), 0);
  EXPECT_EQ(content(paths::kSaveTimes) + content(paths::kImageNotes), three.substr(0, 26) + "first\n\n");
  EXPECT_EQ(orb_remove_recorder_image() + orb_remove_recorder_image(), 0);
  EXPECT_EQ(content(paths::kSaveTimes) + content(paths::kImageNotes), "");
  EXPECT_EQ(orb_remove_recorder_image(), -1);

  const std::string full(1 << 22, '\n');
  put(paths::kImageNotes, full);
  EXPECT_EQ(orb_save_recorder_image(), -1);
  EXPECT_EQ(fs::file_size(paths::kSaveTimes), 0U);
  EXPECT_EQ(fs::file_size(paths::kImageNotes), full.size());
  put(paths::kImageNotes, "");
  fs::remove(paths::kSaveTimes);
  EXPECT_EQ(orb_save_recorder_image(), 0);
  EXPECT_EQ(content(paths::kSaveTimes) + content(paths::kImageNotes), "nothing\n");
}

TEST_F(marks, an_image_note_is_of_the_last_mark_or_waits) {
  orb_xmp_fields fields;
  const auto note = [&] { return orb_load_recorder_image_metadata(&fields), std::string(fields.comment); };
  EXPECT_EQ(orb_set_recorder_image_note("waits"), 0);
  EXPECT_EQ(note(), "waits");
  EXPECT_EQ(std::string(fields.shot_date) + " " + fields.shot_time, "2026-03-09 14-05-59");
  EXPECT_EQ(orb_save_recorder_image() + orb_save_recorder_image(), 0);
  const std::string long_note(509, 'x');
  for (const auto& [text, stored] :
       {std::pair(std::string("last\n"), std::string("last")), {"\nb", ""}, {long_note + "é", long_note}}) {
    EXPECT_EQ(orb_set_recorder_image_note(text.c_str()), 0);
    EXPECT_EQ(content(paths::kImageNotes) + note(), "waits\n" + stored + "\n" + stored);
  }
  EXPECT_FALSE(fs::exists(paths::kImageNote));
  recorder.recording = 0;
  EXPECT_EQ(orb_set_recorder_image_note("next"), 0);
  EXPECT_EQ(note() + content(paths::kImageNote), "nextnext");
  EXPECT_EQ(local_time_text(0).find(fields.shot_date), 0U);
}

TEST_F(marks, a_video_note_is_of_the_running_take_or_waits) {
  orb_xmp_fields fields;
  const auto note = [&] { return orb_load_recorder_video_metadata(&fields), std::string(fields.comment); };
  EXPECT_EQ(note(), "n");
  const std::string text(600, 'x');
  EXPECT_EQ(orb_set_recorder_video_note(("\"" + text + "\nb").c_str()), 0);
  EXPECT_EQ(note(), "\"" + text.substr(0, 511));
  EXPECT_EQ(content(description_path(kTake.guid)),
            R"({"id":"0f7e3a52-8d5c-11ef-9c1a-0242ac120002","name":"na'me: 50%d","asset_id":"MH 14",)"
            R"("start_time":"2026-03-09-14-05-59","duration":"","files":[],"note":"\")" +
                text + "\"}");
  fs::remove(description_path(kTake.guid));
  EXPECT_EQ(orb_set_recorder_video_note("lost"), -1);
  EXPECT_EQ(note() + fields.shot_date, "");
  recorder.recording = 0;
  EXPECT_EQ(orb_set_recorder_video_note("next"), 0);
  EXPECT_EQ(note() + content(paths::kVideoNote), "nextnext");
}

TEST_F(marks, pair_with_their_notes_as_stills) {
  make_video(internal_take_path(kTake), "s=64x48:r=5:d=3");
  put(paths::kSaveTimes,
      "00:00:00.500\nnonsense\n0:0:1.5\n00:00:01.005\n00:01:00.000\n00:00:99.000\n00:00:02.000");
  put(paths::kImageNotes, "one\nskipped\ntwo\nagain\nbeyond the end\nskipped");
  const json_owner files(json_object_new_array());
  orb_set_recorder_title("first job");
  {
    const mutex_lock lock(recorder.notes_lock);
    copy_text(recorder.open_take, sizeof recorder.open_take, kTake.guid);
  }
  EXPECT_EQ(orb_stop_recorder(), 0);
  keep_stopped_take();
  orb_set_recorder_title("next job");  // before the stills are cut
  put(paths::kImageNotes, "next\n");
  keep_stopped_take();
  recorder.post_processing = 0;
  const std::optional<stopped_take> stopped = load_stopped_take(kTake.guid);
  ASSERT_TRUE(stopped);
  make_stills(kTake, *stopped, files.get());
  EXPECT_EQ(orb_set_recorder_file_note((kStills + "00-00-00-500.jpg").c_str(), "edited"), 0);
  {
    const no_more_files now;
    make_stills(kTake, *stopped, files.get());  // what cannot be read stays
  }
  make_stills(kTake, *stopped, files.get());  // after an interruption: what is whole stays
  std::string names;
  for (json_object* file : json_elements(files.get()))
    names += json_text(file, "name").substr(kStillName.size()) + " ";
  EXPECT_EQ(names, "00-00-00-500.jpg 00-00-01-005.jpg 00-01-00-000.jpg 00-00-02-000.jpg ");
  for (const auto& [offset, note] :
       {std::pair("00-00-00-500", "edited"), {"00-00-01-005", "two"}, {"00-00-02-000", ""}}) {
    orb_xmp_fields fields;
    EXPECT_EQ(orb_load_recorder_file_metadata((kStills + offset + ".jpg").c_str(), &fields), 0) << offset;
    EXPECT_EQ(fields.project_name + std::string(fields.comment), std::string("first job") + note);
  }
  EXPECT_FALSE(fs::exists(kStills + "00-01-00-000.jpg"));
  EXPECT_EQ(orb_set_recorder_file_note(internal_take_path(kTake).c_str(), "has none"), -1);
}

// What is whole is listed; a part of a picture goes, and nothing that only looks like one.
TEST_F(marks, stills_that_are_found_are_listed) {
  const std::string whole = kStills + "00-00-08-000.jpg";
  make_video(whole, "s=64x48 -vframes 1");
  ASSERT_EQ(orb_xmp_write(whole.c_str(), {}), 0);
  const json_owner files(json_object_new_array());
  json_object_array_add(files.get(), take_file_entry(kStillName + "00-00-07-000.jpg").release());
  const char* const kept[] = {
      "00-00-07-000.jpg", "00-00-00-50x.jpg", "00-00-00-500.mp4", "0-00-00-500.jpg", ".jpg",
      "00-00-08-000.jpg"};
  const char* const removed[] = {"00-00-00-500.jpg", "99-59-59-999.jpg"};
  for (const char* name : kept)
    if (!fs::exists(kStills + name)) put(kStills + name, "");
  for (const char* name : removed) put(kStills + name, "");
  put("/media/usb99/ApiVideos/b" + kStillName + removed[0], "");
  list_found_stills(kTake, files.get());
  for (const char* name : kept) EXPECT_TRUE(fs::exists(kStills + name)) << name;
  for (const char* name : removed) EXPECT_FALSE(fs::exists(kStills + name)) << name;
  EXPECT_TRUE(fs::exists("/media/usb99/ApiVideos/b" + kStillName + removed[0]));
  ASSERT_EQ(json_object_array_length(files.get()), 2U);
  EXPECT_EQ(json_text(json_object_array_get_idx(files.get(), 1), "name"), kStillName + "00-00-08-000.jpg");
}

}  // namespace
