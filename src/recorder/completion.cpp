// Post-processing: what makes a recorded file a finished take on the USB store. Recording worker. Whatever
// interrupts it, the guid stays until all is there, and the next completion begins anew.

#include <sys/stat.h>
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
#include "base/trace.h"
#include "base/value_file.h"
#include "recorder/ffmpeg.h"
#include "recorder/recorder_state.h"

namespace {

constexpr size_t kDurationSize = 15;
constexpr char kNoDuration[] = "00:00:00";
constexpr int kProbe_ms = 30'000;

// 0 for a file that is not there, -1 when that cannot be told.
int64_t size_of(const std::string& path) {
  struct stat info {};
  if (stat(path.c_str(), &info) == 0) return info.st_size;
  return errno == ENOENT ? 0 : -1;
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
    switch (c) {
      case '&':
        cue += "&amp;";
        break;
      case '<':
        cue += "&lt;";
        break;
      case '>':
        cue += "&gt;";
        break;
      case '\n':
      case '\r':
        cue += ' ';
        break;
      default:
        cue += c;
    }
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
  const bool has_room = has_usb_room(size, size_of(copy));
  if (has_room && copy_file(internal_take_path(t).c_str(), copy.c_str(), show_copied, nullptr)) return true;
  const int error = has_room ? errno : ENOSPC;
  trace(kTraceRecorder, "cp failed %d '%s'", error, strerror(error));
  if (is_too_large(error)) unlink(copy.c_str());
  return false;
}

// The take is whole without its metadata, too.
bool copy_with_metadata(const take& t, int64_t size, const orb_xmp_fields& texts) {
  if (!copy_take(t, size)) return false;
  const std::string copy = usb_take_path(t);
  orb_xmp_write(copy.c_str(), make_metadata(texts, t.start_time, t.note));
  return flush_file(copy.c_str());
}

// The files first: one without a guid would stay for ever, but a guid without its file is completed at once.
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

std::optional<std::string> duration_of(const take& t, json_object* description, int64_t size) {
  std::optional<std::string> duration =
      size == 0 ? json_text(description, "duration") : measure_duration(internal_take_path(t));
  if (!duration) return duration;
  if (duration->empty()) duration = kNoDuration;
  trace(kTraceRecorder, "duration '%s'", duration->c_str());
  return duration;
}

// Puts what is missing on the store: stills, which are listed before the long copy begins, caption and copy.
// The take's file is listed when it is whole, with its metadata. Without an internal file all that was there
// has been copied.
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
  take t;
  load_description(read_guid(paths::kTakeGuid), &t);
  trace(kTraceRecorder, "take dropped '%s'", t.guid.c_str());
  if (!t.note.empty() && access(paths::kVideoNote, F_OK) != 0)
    write_value_file(paths::kVideoNote, t.note.c_str());
  unlink(paths::kTakeGuid);  // first: one without a description would wait for ever
  flush_folder_of(paths::kTakeGuid);
  unlink(description_path(t.guid).c_str());
  flush_folder_of(description_path(t.guid).c_str());  // nobody would remove one that came back
  unlink(stopped_take_path(t.guid).c_str());
}
