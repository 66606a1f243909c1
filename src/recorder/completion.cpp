// Post-processing: what makes a recorded file a finished take on the USB store. Recording worker.
//
// A take is ended by a request, by the end of the controller's seat, by its watchdog, by low space, and by
// the end of the daemon. Whatever interrupts its completion, the next one begins anew: at the start of the
// daemon, when a start finds its guid, or when the store has more room or is another one. A take that cannot
// be completed although the store is there is set aside as "guid.GUID".
//
// What is on the disks after each step, and so what a power cut behind it leaves:
//
//   begun      description without length or files, then the guid; internal file without an index while it
//              is recorded
//   stopped    internal file whole; "GUID.json" beside it: marks and texts as they were at the stop
//   stills     one by one, whole with its metadata, listed or not: the next completion finds and lists it
//   caption    beside and renamed
//   listed     description with its length and the stills, before the long copy
//   copied     the copy whole: one that is not is shorter than the internal file, and is made anew
//   told       the metadata in the copy, or the copy without them: the next completion makes both anew
//   finished   description with the take's file
//   removed    no internal file, no "GUID.json": the next completion finds nothing to copy, writes caption
//              and description again and goes on below
//   complete   no guid
//
// What holds:
//   1. A guid file says that its take is not complete. It is written after the description and goes last.
//   2. The internal file is there until the names of all that is made of it have been flushed (D8).
//   3. The take's file is listed when its copy is whole, with its metadata (D7).
//   4. A still with a packet is whole: no completion makes it anew or removes it.
//   5. Texts and marks are those of the stop. A mark is a line of offsets and one of notes, paired by their
//      places; a take that was interrupted before its stop has no marks, and the texts of its completion.
//   6. While the guid is there the description is the recorder's, afterwards the deletion's. No guid comes
//      back, so that neither needs a lock against the other; a note for the running take may rewrite it, too.
#include "recorder/completion.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <optional>
#include <utility>

#include "base/child_process.h"
#include "base/file.h"
#include "base/file_copy.h"
#include "base/paths.h"
#include "base/space.h"
#include "base/trace.h"
#include "base/value_file.h"
#include "recorder/ffmpeg.h"
#include "recorder/metadata.h"
#include "recorder/recorder.h"
#include "recorder/recorder_state.h"
#include "recorder/stills.h"
#include "recorder/stopped_take.h"
#include "recorder/take.h"

namespace {

constexpr size_t kDurationSize = 15;
constexpr char kNoDuration[] = "00:00:00";
constexpr int kProbe_ms = 30'000;

// 0 for a file that is not there, -1 when that cannot be told.
int64_t size_of(const std::string& path) {
  const int64_t size = file_size(path);
  return size < 0 && errno == ENOENT ? 0 : size;
}

// "H:MM:SS" as ffprobe gives it, "" without an answer; nothing when it has been broken off.
std::optional<std::string> measure_duration(const std::string& path) {
  const std::string command = std::string(paths::kFfprobe) + " -i " + shell_quoted(path) +
                              " -show_entries format=duration -v quiet -of csv=p=0 -sexagesimal";
  const shell_limits limits{.timeout_ms = kProbe_ms, .ends_with_us = true};
  std::optional<std::string> first;
  const auto keep_first = [&first](std::string_view line) {
    if (!first) first = line.substr(0, line.find('.'));
  };
  if (was_broken_off(run_shell(command, kDurationSize, keep_first, limits))) return std::nullopt;
  return first.value_or("");
}

// Adds the entries of `from` but that of the take's file.
void add_stills(json_object* from, const std::string& take_file, json_object* files) {
  for (json_object* entry : json_elements(from)) {
    if (json_text(entry, "name") != take_file) json_object_array_add(files, json_object_get(entry));
  }
}

// Text of a cue as WebVTT has it; a newline could end the cue.
std::string cue_text(const std::string& text) {
  std::string cue;
  for (const char c : text) {
    cue += c == '&'                 ? "&amp;"
           : c == '<'               ? "&lt;"
           : c == '>'               ? "&gt;"
           : c == '\n' || c == '\r' ? " "
                                    : std::string_view(&c, 1);
  }
  return cue;
}

// A take of no length has no cue: it would end where it starts.
bool has_length(const std::string& duration) {
  return duration.find_first_not_of("0123456789:") == duration.npos &&
         duration.find_first_of("123456789") != duration.npos;
}

bool write_caption(const take& t, const std::string& duration) {
  std::string caption = "WEBVTT\n\n";
  if (has_length(duration))
    caption += "00:00:00.000 --> " + duration + ".000\n" + cue_text(t.asset_id) + "\n";
  const bool written = replace_file(caption_path(t), caption);
  trace(kTraceRecorder, "vtt file");
  return written;
}

void show_copied(void*, int64_t copied, int64_t size) {
  const int percent = static_cast<int>(std::max<int64_t>(copied * 100 / size, 1));
  if (percent != recorder.post_processing) set_post_processing(percent);
}

// A part of a file would only take the room of other takes and of the description: the internal file has it
// all.
bool is_too_large(int error) { return error == ENOSPC || error == EFBIG || error == EDQUOT; }

bool copy_take(const take& t, int64_t size) {
  trace(kTraceRecorder, "cp size %ld", static_cast<long>(size));
  const std::string copy = usb_take_path(t);
  const bool fits = has_room(paths::kUsbTakes, size, size_of(copy));
  if (fits && copy_file(internal_take_path(t).c_str(), copy.c_str(), show_copied, nullptr)) return true;
  const int error = fits ? errno : ENOSPC;
  trace(kTraceRecorder, "cp failed %d '%s'", error, strerror(error));
  if (is_too_large(error)) unlink(copy.c_str());
  return false;
}

bool copy_with_metadata(const take& t, int64_t size, const orb_xmp_fields& texts) {
  if (!copy_take(t, size)) return false;
  const std::string copy = usb_take_path(t);
  orb_xmp_write(copy.c_str(), make_metadata(texts, t.start_time, t.note));
  return flush_file(copy.c_str());
}

// The files first (D8): one without a guid would stay for ever, but a guid without its file is completed at
// once.
void remove_take(const take& t, const char* guid_path) {
  if (remove(internal_take_path(t).c_str()) == 0) trace(kTraceRecorder, "removed recorded file");
  remove(stopped_take_path(t.guid).c_str());
  flush_folder_of(guid_path);
  if (remove(guid_path) == 0) trace(kTraceRecorder, "removed guid file");
  flush_folder_of(guid_path);  // or a power cut could bring it back after the take has been deleted
}

// What the take was at its stop, also when that cannot be kept; one that was interrupted before has no marks.
stopped_take stopped_as(const take& t) {
  keep_stopped_take();
  if (std::optional<stopped_take> kept = load_stopped_take(t.guid)) return std::move(*kept);
  const mutex_lock lock(recorder.notes_lock);
  return recorder.open_take == t.guid ? last_stopped_take() : stopped_take{metadata_texts_now(), {}, {}};
}

// Without a file what the description has. Nothing when it cannot be told now.
std::optional<std::string> duration_of(const take& t, json_object* description, int64_t size) {
  std::optional<std::string> duration =
      size == 0 ? json_text(description, "duration") : measure_duration(internal_take_path(t));
  if (!duration) return duration;
  if (duration->empty()) duration = kNoDuration;
  trace(kTraceRecorder, "duration '%s'", duration->c_str());
  return duration;
}

// Puts what is missing on the store. Without an internal file all that was there has been copied.
bool put_on_store(const take& t, json_object* description, const stopped_take& stopped, int64_t size) {
  const std::string take_file = take_file_name(t, "mp4");
  const std::optional<std::string> measured = duration_of(t, description, size);
  if (!measured) return false;
  const std::string& duration = *measured;
  const json_owner stills(json_object_new_array());
  add_stills(json_member(description, "files"), take_file, stills.get());
  const bool are_made = size == 0 || make_stills(t, stopped, stills.get());
  list_found_stills(t, stills.get());
  if (!write_caption(t, duration)) return false;
  if (size != 0) {
    if (!save_description(t, duration, json_owner(json_object_get(stills.get())))) return false;
    if (!are_made) return false;
    if (!copy_with_metadata(t, size, stopped.texts)) return false;
  }
  json_owner files(json_object_new_array());
  json_object_array_add(files.get(), take_file_entry(take_file).release());
  add_stills(stills.get(), take_file, files.get());
  return save_description(t, duration, std::move(files));
}

bool complete(const take& t, json_object* description, const char* guid_path, bool start_up) {
  const std::string path = internal_take_path(t);
  if (start_up) {
    end_writers(path);
    flush_file(path.c_str());
  }
  if (!put_on_store(t, description, stopped_as(t), size_of(path))) {
    trace(kTraceRecorder, "take waits '%s'", t.guid.c_str());
    return false;
  }
  remove_take(t, guid_path);
  return true;
}

}  // namespace

void set_post_processing(int value) {
  recorder.post_processing = value;
  trace(kTraceRecorder, "post process %d", value);
}

bool complete_take(const char* guid_path, bool start_up) {
  set_post_processing(1);
  bool done = access(guid_path, F_OK) != 0;
  const std::string guid = read_guid(guid_path);
  if (!guid.empty()) {
    trace(kTraceRecorder, "post process '%s'", guid.c_str());
    take t;
    const json_owner description = load_description(guid, &t);
    if (description) {
      done = complete(t, description.get(), guid_path, start_up);
    } else {
      trace(kTraceRecorder, "take waits '%s'", guid.c_str());
    }
  }
  set_post_processing(0);
  return done;
}

void drop_take() {
  const mutex_lock lock(recorder.notes_lock);
  recorder.open_take[0] = '\0';
  const take t = take_in_work();
  trace(kTraceRecorder, "take dropped '%s'", t.guid.c_str());
  if (!t.note.empty() && access(paths::kVideoNote, F_OK) != 0)
    write_value_file(paths::kVideoNote, t.note.c_str());
  unlink(paths::kTakeGuid);  // first: one without a description would wait for ever
  flush_folder_of(paths::kTakeGuid);
  unlink(description_path(t.guid).c_str());
  flush_folder_of(description_path(t.guid).c_str());  // nobody would remove one that came back
  unlink(stopped_take_path(t.guid).c_str());
}
