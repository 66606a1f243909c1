#include "log_files/log_files.h"

#include <optional>
#include <utility>

#include "base/clock.h"
#include "base/file.h"
#include "base/paths.h"
#include "base/text.h"
#include "base/trace.h"
#include "log_files/current_readings.h"
#include "usb/stored_files.h"

namespace {

constexpr size_t kReadLimit = 1 << 20;

void delete_log_file(const stored_files& kind, json_object* entry, const file_task&) {
  trace(kTraceLogger, "delete '%s'", json_text(entry, "name").c_str());
  remove_stored_file(kind, entry_name(entry, "name"));
}

constinit stored_files log_files{paths::kUsbLogs,
                                 kTraceLogger,
                                 "",
                                 true,
                                 {"log-copy", "copy", copy_entry},
                                 {"log-delete", "delete", delete_log_file}};

// Moves on until no file has the name.
std::string free_path() {
  for (int k = 0;; ++k) {
    std::string path = path_in(paths::kUsbLogs, "log_" + local_time_text(k) + ".json");
    if (!exists(path)) return path;
    trace(kTraceLogger, "start dup adjust %d", k);
  }
}

}  // namespace

void start_log_file_workers() {
  remove_unfinished(paths::kUsbLogs, "log_[0-9]*-*-*-*-*-*.json");
  start_file_workers(&log_files);
}

int orb_create_logger_file() {
  const json_owner readings = orb_get_logger_current_readings();
  if (!readings) return -1;
  make_missing_folder(paths::kUsbLogs);  // the store may have been exchanged
  return replace_json_file(free_path(), readings.get()) ? 0 : -1;
}

std::string orb_get_logger_files() {
  std::string json = "[";
  for (const std::string& name : file_names(paths::kUsbLogs, ".json")) {
    json += json.size() == 1 ? R"({"path":"/ApiLogs","name":)" : R"(,{"path":"/ApiLogs","name":)";
    append_json_string(&json, as_utf8(name));
    append_location(
        &json, log_files,
        locate_file(file_size(path_in(paths::kUsbLogs, name)), file_size(path_in(paths::kStick, name))));
    json += '}';
  }
  return json += ']';
}

json_owner orb_get_logger_file_readings(const std::string& name) {
  std::optional<std::string> text;
  if (is_file_name(name)) text = read_file(path_in(paths::kUsbLogs, name).c_str(), kReadLimit);
  json_owner readings(json_tokener_parse(as_utf8(text.value_or("")).c_str()));
  if (!json_object_is_type(readings.get(), json_type_object)) readings.reset(json_object_new_object());
  return readings;
}

int orb_copy_logger_files(json_object* list, json_owner root) {
  return copy_stored_files(&log_files, list, std::move(root));
}

int orb_delete_logger_files(json_object* list, json_owner root) {
  return delete_stored_files(&log_files, list, std::move(root));
}
