// Post-processing: what makes a recorded file a finished take on the USB store. Recording worker. Whatever
// interrupts it, the guid stays until all is there, and the next completion begins anew.

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "app/trace.h"
#include "base/child_process.h"
#include "base/file.h"
#include "base/file_copy.h"
#include "base/paths.h"
#include "recorder/encoder_child.h"
#include "recorder/internal.h"

namespace {

constexpr size_t kDurationSize = 15;
constexpr char kNoDuration[] = "00:00:00";

// 0 for a file that is not there, -1 when that cannot be told.
int64_t size_of(const std::string& path) {
  struct stat info {};
  if (stat(path.c_str(), &info) == 0) return info.st_size;
  return errno == ENOENT ? 0 : -1;
}

// "H:MM:SS" as ffprobe gives it.
std::string measure_duration(const std::string& path) {
  const std::string command = std::string(paths::kFfprobe) + " -i " + shell_quoted(path) +
                              " -show_entries format=duration -v quiet -of csv=p=0 -sexagesimal";
  std::string duration = shell_first_line(command, kDurationSize);
  duration.resize(std::min(duration.size(), duration.find('.')));
  return duration.empty() ? kNoDuration : duration;
}

// The take's file, and of an interrupted take the stills that its description lists.
json_owner list_files(const std::string& take_file, json_object* description, bool start_up) {
  json_owner files(json_object_new_array());
  json_object_array_add(files.get(), take_file_entry(take_file).release());
  json_object* listed = json_member(description, "files");
  if (!start_up || !json_object_is_type(listed, json_type_array)) return files;
  for (size_t i = 0; i < json_object_array_length(listed); ++i) {
    json_object* entry = json_object_array_get_idx(listed, i);
    if (json_text(entry, "name") != take_file) json_object_array_add(files.get(), json_object_get(entry));
  }
  return files;
}

bool write_caption(const take& t, const std::string& duration) {
  const bool written =
      replace_file(caption_path(t), "WEBVTT\n\n00:00:00.000 --> " + duration + ".000\n" + t.asset_id + "\n");
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

bool has_room_for(const std::string& copy, int64_t size) {
  const auto size_kb = static_cast<uint64_t>(std::max<int64_t>(size, 0)) / 1024;
  const auto replaced_kb = static_cast<uint64_t>(std::max<int64_t>(size_of(copy), 0)) / 1024;
  return size_kb <= std::min(free_kb(paths::kUsbTakes) + replaced_kb, largest_file_kb(paths::kUsbTakes));
}

bool copy_take(const take& t, int64_t size) {
  trace(kTraceRecorder, "cp size %ld", static_cast<long>(size));
  if (size == 0) return true;  // nothing to lose
  const std::string copy = usb_take_path(t);
  errno = ENOSPC;
  if (has_room_for(copy, size) &&
      copy_file(internal_take_path(t).c_str(), copy.c_str(), show_copied, nullptr))
    return true;
  const int error = errno;
  trace(kTraceRecorder, "cp failed %d '%s'", error, strerror(error));
  if (is_too_large(error)) unlink(copy.c_str());
  return false;
}

// The file first: one without a guid would stay for ever, but a guid without its file is completed at once.
void remove_take(const take& t, const char* guid_path) {
  if (remove(internal_take_path(t).c_str()) == 0) trace(kTraceRecorder, "removed recorded file");
  flush_folder_of(guid_path);
  if (remove(guid_path) == 0) trace(kTraceRecorder, "removed guid file");
  flush_folder_of(guid_path);  // or a power cut could bring it back after the take has been deleted
}

bool complete(const take& t, json_object* description, const char* guid_path, bool start_up) {
  const std::string path = internal_take_path(t);
  if (start_up) {
    end_writers(path);
    flush_file(path.c_str());
  }
  const int64_t size = size_of(path);
  const json_owner files = list_files(take_file_name(t, "mp4"), description, start_up);
  std::string duration = size == 0 ? json_text(description, "duration") : measure_duration(path);
  if (duration.empty()) duration = kNoDuration;
  trace(kTraceRecorder, "duration '%s'", duration.c_str());
  if (!start_up) make_stills(t, files.get());
  const bool captioned = write_caption(t, duration);
  const bool copied = copy_take(t, size);
  const bool described = save_description(t, duration, json_owner(json_object_get(files.get())));
  if (!captioned || !copied || !described) {
    trace(kTraceRecorder, "take waits '%s'", t.guid.c_str());
    return false;
  }
  // The take is whole without it, too.
  if (size != 0) orb_xmp_write(usb_take_path(t).c_str(), make_metadata(t.start_time, t.note));
  if (start_up) remove_unlisted_stills(t, files.get());
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
