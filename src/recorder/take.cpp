#include "recorder/take.h"

#include <strings.h>
#include <uuid/uuid.h>

#include <algorithm>
#include <cstring>
#include <utility>

#include "base/file.h"
#include "base/paths.h"
#include "base/text.h"

namespace {

constexpr char kSetAsidePrefix[] = "guid.";
constexpr char kFolderInDescription[] = "/ApiVideos";

// Hexadecimal digits and hyphens: it becomes part of a path.
bool is_guid(const std::string& text) {
  return text.size() == kGuidLength && text.find_first_not_of("0123456789abcdefABCDEF-") == std::string::npos;
}

bool is_unfit(char c) { return is_control(c) || strchr("/\\:*?\"<>|", c) != nullptr; }

std::string fit_name(std::string name) {
  std::replace_if(name.begin(), name.end(), is_unfit, '_');
  return name;
}

// ffmpeg would read "%" as the place of a number.
std::string fit_still_name(std::string name) {
  std::ranges::replace(name, '%', '_');
  return name;
}

bool begins_with(const std::string& name, const std::string& start) {
  return strncasecmp(name.c_str(), start.c_str(), start.size()) == 0;
}

}  // namespace

std::string take_file_stem(const take& t) { return fit_name(t.name + "_" + t.start_time); }

bool is_named_after_take(const take& t, const std::string& name) {
  if (begins_with(name, t.guid)) return true;
  const std::string stem = take_file_stem(t);
  return !t.start_time.empty() && (begins_with(name, stem) || begins_with(name, fit_still_name(stem)));
}

std::string take_file_name(const take& t, const char* extension) {
  return take_file_stem(t) + "." + extension;
}

std::string still_file_name(const take& t, std::string offset) {
  std::ranges::replace(offset, ':', '-');
  std::ranges::replace(offset, '.', '-');
  return fit_still_name(take_file_stem(t) + "_" + offset + ".jpg");
}

std::string internal_take_path(const take& t) {
  return path_in(paths::kInternalTakes, take_file_name(t, "mp4"));
}

std::string usb_take_path(const take& t) { return path_in(paths::kUsbTakes, take_file_name(t, "mp4")); }

std::string caption_path(const take& t) { return path_in(paths::kUsbTakes, take_file_name(t, "vtt")); }

std::string description_path(const std::string& guid) { return path_in(paths::kUsbTakes, guid + ".json"); }

std::string read_guid(const char* path) {
  const std::string text = read_first_line(path, kGuidLength).value_or("");
  return is_guid(text) ? text : "";
}

std::vector<std::string> set_aside_guid_files() {
  std::vector<std::string> files;
  for (const std::string& name : names_in(paths::kInternalTakes)) {
    if (name.starts_with(kSetAsidePrefix) && name != "guid.new")
      files.push_back(path_in(paths::kInternalTakes, name));
  }
  return files;
}

// The first one first: it may be set aside at any moment.
std::vector<std::string> incomplete_takes() {
  std::vector<std::string> guids = {read_guid(paths::kTakeGuid)};
  for (const std::string& file : set_aside_guid_files()) guids.push_back(read_guid(file.c_str()));
  std::erase(guids, "");
  return guids;
}

json_owner take_file_entry(const std::string& name) {
  json_owner entry(json_object_new_object());
  add_text(entry.get(), "path", kFolderInDescription);
  add_text(entry.get(), "name", name);
  return entry;
}

json_owner make_description(const take& t, const std::string& duration, json_owner files) {
  json_owner description(json_object_new_object());
  if (!description || !files) return nullptr;
  add_text(description.get(), "id", t.guid);
  add_text(description.get(), "name", t.name);
  add_text(description.get(), "asset_id", t.asset_id);
  add_text(description.get(), "start_time", t.start_time);
  add_text(description.get(), "duration", duration);
  json_object_object_add(description.get(), "files", files.release());
  add_text(description.get(), "note", t.note);
  return description;
}

bool save_description(const take& t, const std::string& duration, json_owner files) {
  const json_owner description = make_description(t, duration, std::move(files));
  return description && replace_json_file(description_path(t.guid), description.get());
}

take described_take(const std::string& guid, json_object* description) {
  return {guid, json_text(description, "name"), json_text(description, "asset_id"),
          json_text(description, "start_time"), json_text(description, "note")};
}

json_owner load_description(const std::string& guid, take* t) {
  json_owner description = load_json_file(description_path(guid).c_str());
  *t = described_take(guid, description.get());
  if (t->start_time.empty()) return nullptr;  // it does not tell the take's file
  return description;
}

take take_in_work() {
  take t;
  load_description(read_guid(paths::kTakeGuid), &t);
  return t;
}

std::string make_guid() {
  uuid_t id;
  uuid_generate_time_safe(id);
  char text[kGuidLength + 1];
  uuid_unparse(id, text);
  return text;
}
