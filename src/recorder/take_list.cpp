// What a description tells is kept as the text that the listing takes over, and a file's size as it was
// found, until something of that name changes in its folder. A look that failed is not kept.
#include "recorder/take_list.h"

#include <strings.h>

#include <cerrno>
#include <map>
#include <optional>
#include <unordered_map>
#include <utility>
#include <vector>

#include "base/file.h"
#include "base/folder_watch.h"
#include "base/json.h"
#include "base/mutex.h"
#include "base/paths.h"
#include "base/text.h"
#include "recorder/finished_takes.h"
#include "recorder/take.h"
#include "usb/stored_files.h"

namespace {

constexpr size_t kListedIdSize = 45;
constexpr char kEmmcStore[] = "eMMC";
constexpr char kDescription[] = ".json";

// --- what is kept of a folder ---

struct listed_file {
  std::string members;  // all but those that tell where it is; the object is left open
  std::string name;     // by which it is looked for
};

struct sized_folder {
  folder_watch watch;
  std::unordered_map<std::string, int64_t> sizes{};  // -1: there is none
};

struct take_folder : sized_folder {
  std::string (*listed_name)(json_object* entry);
  std::map<std::string, std::vector<listed_file>> descriptions{};  // by file
};

void append_member(std::string* json, const char* key, const std::string& text) {
  append_json_key(json, key);
  append_json_string(json, as_utf8(text));
}

std::vector<listed_file> files_of(const take_folder& folder, json_object* description) {
  const take t = described_take(json_text(description, "id"), description);
  std::vector<listed_file> files;
  for (json_object* entry : json_elements(json_member(description, "files"))) {
    char id[kListedIdSize];
    copy_text(id, sizeof id, t.guid + "_" + std::to_string(files.size()));
    std::string members;
    append_member(&members, "id", id);
    append_member(&members, "parent_id", t.guid);
    append_member(&members, "path", json_text(entry, "path"));
    append_member(&members, "name", json_text(entry, "name"));
    append_member(&members, "asset_id", t.asset_id);
    append_member(&members, "start_time", t.start_time);
    files.push_back({std::move(members), folder.listed_name(entry)});
  }
  return files;
}

// Whether a look at a file, by its size, has told what there is.
bool is_told(int64_t size) {
  return size >= 0 || errno == ENOENT || errno == EINVAL || errno == ENAMETOOLONG;
}

// All is looked at again the next time.
void forget(sized_folder* folder) { folder->watch.events.reset(); }

void read_description(take_folder* folder, const std::string& name) {
  constexpr int64_t kReadLimit = 4 << 20;
  const std::string path = path_in(folder->watch.path, name);
  const int64_t size = file_size(path);
  if (!is_told(size)) forget(folder);
  if (size < 0 || size > kReadLimit) return;
  const std::optional<std::string> text = read_file(path.c_str(), kReadLimit);
  if (!text) return forget(folder);
  const json_owner description(json_tokener_parse(text->c_str()));
  folder->descriptions[name] = files_of(*folder, description.get());
}

void read_descriptions(take_folder* folder) {
  folder->descriptions.clear();
  bool is_whole = false;
  for (const std::string& name : file_names(folder->watch.path, kDescription, &is_whole))
    read_description(folder, name);
  if (!is_whole) forget(folder);
}

bool is_description(const std::string& name) {
  return name.ends_with(kDescription) && name.size() >= sizeof kDescription;
}

// A vfat store may tell a name in another case than it is asked for.
template <typename Map>
void erase_name(Map* map, const std::string& name) {
  std::erase_if(*map, [&](const auto& each) { return strcasecmp(each.first.c_str(), name.c_str()) == 0; });
}

// The names that have changed; nothing when all may have.
std::optional<std::vector<std::string>> look_at_sizes(sized_folder* folder) {
  auto changed = changed_names(&folder->watch);
  if (!changed) folder->sizes.clear();
  for (const std::string& name : changed.value_or(std::vector<std::string>{}))
    erase_name(&folder->sizes, name);
  return changed;
}

void look_again(take_folder* folder) {
  const auto changed = look_at_sizes(folder);
  if (!changed) return read_descriptions(folder);
  for (const std::string& name : *changed) {
    if (!is_description(name)) continue;
    erase_name(&folder->descriptions, name);
    read_description(folder, name);
  }
}

int64_t size_in(sized_folder* folder, const std::string& name) {
  const auto [at, is_new] = folder->sizes.try_emplace(name, -1);
  if (is_new) at->second = file_size(path_in(folder->watch.path, name));
  if (is_new && !is_told(at->second)) forget(folder);
  return at->second;
}

// `add_location` appends the members that tell where a file is.
template <typename Add>
std::string list_takes(take_folder* folder, Add add_location) {
  look_again(folder);
  std::string json = "[";
  for (const auto& [name, files] : folder->descriptions) {
    for (const listed_file& file : files) {
      if (json.size() > 1) json += ',';
      json += file.members;
      add_location(&json, file.name);
      json += '}';
    }
  }
  return json += ']';
}

// --- version 1.0 ---

// Before the USB store stands the internal one.
file_location locate_recording(const std::string& path) {
  const int64_t emmc = file_size(path_in(paths::kVideos, path));
  const int64_t main = file_size(path_in(paths::kUsbVideos, path));
  if (emmc >= 0) return {kEmmcStore, emmc, main};
  return locate_file(main, file_size(path_in(paths::kStick, path)));
}

void append_recording_location(std::string* json, const std::string& path) {
  const file_location place = locate_recording(path);
  if (place.data_store == nullptr) return;
  json->append(",\"data_store\":\"").append(place.data_store).append("\",\"size\":");
  json->append(std::to_string(place.size));
  if (place.copied < 0) return;
  const double part = copied_part(static_cast<double>(place.copied), static_cast<double>(place.size));
  const json_owner number(json_object_new_double(part));
  json->append(",\"percent_copied\":").append(json_object_to_json_string(number.get()));
}

// Never destroyed: a lane may be listing when the process ends.
struct kept_folders {
  mutex lock;
  take_folder takes GUARDED_BY(lock) = {{{paths::kUsbTakes}},
                                        [](auto* entry) { return entry_name(entry, "name"); }};
  take_folder recordings GUARDED_BY(lock) = {{{paths::kUsbVideos}},
                                             [](auto* entry) { return json_text(entry, "path"); }};
  sized_folder stick GUARDED_BY(lock) = {{paths::kStick}};
};

kept_folders& folders() {
  static auto& kept = *new kept_folders;
  return kept;
}

}  // namespace

std::string orb_get_recorder_files() {
  kept_folders& kept = folders();
  const mutex_lock lock(kept.lock);
  look_at_sizes(&kept.stick);
  return list_takes(&kept.takes, [&kept](std::string* json, const std::string& name) {
    kept.lock.assert_held();
    append_location(json, take_files(), locate_file(size_in(&kept.takes, name), size_in(&kept.stick, name)));
  });
}

std::string list_recordings() {
  kept_folders& kept = folders();
  const mutex_lock lock(kept.lock);
  return list_takes(&kept.recordings, append_recording_location);
}
