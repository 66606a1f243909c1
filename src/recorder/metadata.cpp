#include "recorder/metadata.h"

#include <cstring>

#include "base/clock.h"
#include "base/file.h"
#include "base/paths.h"
#include "base/text.h"
#include "base/trace.h"
#include "base/value_file.h"
#include "recorder/gps.h"
#include "recorder/mark_files.h"
#include "recorder/recorder_state.h"
#include "recorder/take.h"
#include "store/texts.h"

namespace {

// In a start time.
constexpr size_t kDateLength = 10;
constexpr size_t kTimeAt = 11;
constexpr size_t kTimeLength = 8;

std::string note_line(std::string_view text) {
  char line[kNoteLimit];  // with its newline it is no longer than that
  copy_text(line, sizeof line, text.substr(0, text.find('\n')));
  return as_utf8(line);
}

std::string_view part(std::string_view text, size_t from, size_t length) {
  return text.size() < from ? std::string_view() : text.substr(from, length);
}

template <size_t Size>
void fill(char (&field)[Size], std::string_view text) {
  copy_text(field, Size, text);
}

// The lines stay in step: when the new one cannot be written, the old one comes back.
bool replace_last_note(const std::string& old, const std::string& note) REQUIRES(recorder.notes_lock) {
  if (!cut_last_line(kNotes, cut::replaces)) return false;
  const int64_t length = append_line(kNotes, note);
  if (length < 0) append_line(kNotes, old);
  if (length >= 0) trace(kTraceRecorder, "save note %ld", static_cast<long>(length));
  return length >= 0;
}

bool describe_anew(const std::string& note) REQUIRES(recorder.notes_lock) {
  take t;
  if (!load_description(read_guid(paths::kTakeGuid), &t)) return false;
  t.note = note;
  return save_description(t, "", json_owner(json_object_new_array()));
}

// A copy on the stick that is being made anew may have its metadata already: written now, a part of it would
// be taken for all.
bool may_write_files() {
  const mutex_lock lock(recorder.stage_lock);
  return recorder.stage != recorder_stage::recovering &&
         recorder.stage != recorder_stage::completion_requested;
}

}  // namespace

std::string waiting_note(const char* path) {
  return note_line(read_first_line(path, kNoteLimit).value_or(""));
}

orb_xmp_fields metadata_texts_now() {
  const recorder_texts texts = copy_recorder_texts();
  orb_xmp_fields fields;
  fill(fields.project_name, texts.title);
  fill(fields.composer, texts.operator_id);
  fill(fields.scene, texts.flow_direction);
  fill(fields.camera_model, texts.model_name);
  fill(fields.camera_label, texts.serial_number);
  orb_load_recorder_gps_location(fields.gps_latitude, sizeof fields.gps_latitude, fields.gps_longitude,
                                 sizeof fields.gps_longitude, fields.gps_timestamp,
                                 sizeof fields.gps_timestamp);
  return fields;
}

orb_xmp_fields make_metadata(orb_xmp_fields fields, std::string_view start_time, std::string_view note) {
  fill(fields.shot_date, part(start_time, 0, kDateLength));
  fill(fields.shot_time, part(start_time, kTimeAt, kTimeLength));
  fill(fields.comment, note.substr(0, note.find('\n')));
  return fields;
}

void orb_load_recorder_video_metadata(orb_xmp_fields* fields) {
  const mutex_lock lock(recorder.notes_lock);
  if (recorder.recording == 0) {
    *fields = make_metadata(metadata_texts_now(), local_time_text(0), waiting_note(paths::kVideoNote));
    return;
  }
  const take t = take_in_work();
  *fields = make_metadata(metadata_texts_now(), t.start_time, t.note);
}

void orb_load_recorder_image_metadata(orb_xmp_fields* fields) {
  const mutex_lock lock(recorder.notes_lock);
  const bool recording = recorder.recording != 0;
  const std::optional<std::string> note = recording ? last_line(kNotes) : std::nullopt;
  *fields = make_metadata(metadata_texts_now(), recording ? take_in_work().start_time : local_time_text(0),
                          note ? *note : waiting_note(paths::kImageNote));
}

int orb_load_recorder_file_metadata(const char* path, orb_xmp_fields* fields) {
  trace(kTraceRecorder, "read file metadata");
  return orb_xmp_read(path, fields);
}

int orb_set_recorder_video_note(const char* text) {
  const std::string_view line = std::string_view(text).substr(0, strcspn(text, "\n"));
  const mutex_lock lock(recorder.notes_lock);
  const bool set = recorder.recording != 0 ? describe_anew(as_utf8(std::string(line)))
                                           : write_value_file(paths::kVideoNote, note_line(line).c_str());
  return set ? 0 : -1;
}

int orb_set_recorder_image_note(const char* text) {
  const std::string note = note_line(text);
  const mutex_lock lock(recorder.notes_lock);
  const std::optional<std::string> old = recorder.recording != 0 ? last_line(kNotes) : std::nullopt;
  const bool set = old ? replace_last_note(*old, note) : write_value_file(paths::kImageNote, note.c_str());
  return set ? 0 : -1;
}

int orb_set_recorder_file_note(const char* path, const char* text) {
  orb_xmp_fields fields;
  if (!may_write_files() || orb_load_recorder_file_metadata(path, &fields) != 0) return -1;
  fill(fields.comment, text);
  trace(kTraceRecorder, "write file metadata '%s'", text);
  return orb_xmp_write(path, fields, xmp_turn::skip);
}
