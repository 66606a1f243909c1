#include "recorder/finished_takes.h"

#include <strings.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <string>
#include <utility>

#include "base/file.h"
#include "base/paths.h"
#include "base/text.h"
#include "base/trace.h"
#include "recorder/take.h"
#include "usb/stored_files.h"

namespace {

// What the recorder writes beside and renames.
constexpr char kDescriptionNames[] = "[0-9a-f]*-*-*-*-*.json";
constexpr char kCaptionNames[] = "*_[0-9]*-*-*-*-*-*.vtt";

// --- deletion ---

// The files of a take that a guid file names are being written, and who completes it rewrites its
// description. The guid goes last, and never comes back: from then on the description is ours.
bool is_in_work(const std::string& guid, const std::string& name) {
  return std::ranges::any_of(incomplete_takes(), [&](const std::string& incomplete) {
    take t;
    load_description(incomplete, &t);
    return strcasecmp(guid.c_str(), incomplete.c_str()) == 0 || is_named_after_take(t, name);
  });
}

// What stays of a description's files without `name`.
json_owner other_files(json_object* description, const std::string& name) {
  json_owner others(json_object_new_array());
  for (json_object* entry : json_elements(json_member(description, "files"))) {
    if (json_text(entry, "name") == name) continue;
    if (json_member(entry, "path") == nullptr) {
      trace(kTraceRecorder, "null, no add");
    } else {
      json_object_array_add(others.get(), json_object_get(entry));
    }
  }
  return others;
}

// After the files are gone: one without its entry would be nobody's, but an entry without its file can be
// deleted again.
void remove_from_description(const std::string& guid, const std::string& name) {
  const std::string path = description_path(guid);
  const json_owner description = load_json_file(path.c_str());
  if (!json_object_is_type(description.get(), json_type_object)) return;
  json_owner others = other_files(description.get(), name);
  if (json_object_array_length(others.get()) == 0) {
    trace(kTraceRecorder, "rm parent");
    unlink(path.c_str());
    flush_folder_of(path.c_str());
    return;
  }
  // The stick finds a description in whatever case it is asked for; the take keeps its own.
  const std::string own = json_text(description.get(), "id");
  const take t = described_take(own.empty() ? guid : own, description.get());
  const json_owner rest = make_description(t, json_text(description.get(), "duration"), std::move(others));
  if (!replace_json_file(path, rest.get())) trace(kTraceRecorder, "description stays '%s'", guid.c_str());
}

void delete_take_file(const stored_files& kind, json_object* entry, const file_task&) {
  trace(kTraceRecorder, "delete '%s' '%s'", json_text(entry, "parent_id").c_str(),
        json_text(entry, "name").c_str());
  const std::string guid = entry_name(entry, "parent_id");
  const std::string name = entry_name(entry, "name");
  if (is_in_work(guid, name)) return trace(kTraceRecorder, "take in work '%s'", name.c_str());
  bool is_gone = remove_stored_file(kind, name);
  if (is_gone && name.ends_with(".mp4"))
    is_gone = remove_stored_file(kind, name.substr(0, name.size() - 3) + "vtt");
  if (is_gone && !guid.empty() && !name.empty()) remove_from_description(guid, name);
}

constinit stored_files files_of_takes{paths::kUsbTakes,
                                      kTraceRecorder,
                                      nullptr,
                                      false,
                                      {"take-copy", "copy", copy_entry},
                                      {"take-delete", "delete", delete_take_file}};

// What takes were at their stop that are complete, or were dropped.
void remove_needless_stops() {
  const std::vector<std::string> guids = incomplete_takes();
  for (const std::string& name : file_names(paths::kInternalTakes, ".json")) {
    const bool is_needed =
        std::ranges::any_of(guids, [&](const std::string& guid) { return name == guid + ".json"; });
    if (!is_needed) remove(path_in(paths::kInternalTakes, name).c_str());
  }
}

}  // namespace

void start_take_file_workers() {
  remove_unfinished(paths::kInternalTakes, "guid");
  remove_unfinished(paths::kInternalTakes, kDescriptionNames);
  remove_needless_stops();
  remove_unfinished(paths::kUsbTakes, kDescriptionNames);
  remove_unfinished(paths::kUsbTakes, kCaptionNames);
  start_file_workers(&files_of_takes);
}

const stored_files& take_files() { return files_of_takes; }

int orb_copy_recorder_files(json_object* list, json_owner root) {
  return copy_stored_files(&files_of_takes, list, std::move(root));
}

int orb_delete_recorder_files(json_object* list, json_owner root) {
  return delete_stored_files(&files_of_takes, list, std::move(root));
}
