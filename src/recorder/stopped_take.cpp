#include "recorder/stopped_take.h"

#include <array>
#include <span>

#include "base/file.h"
#include "base/json.h"
#include "base/paths.h"
#include "base/text.h"
#include "recorder/mark_files.h"
#include "recorder/metadata.h"
#include "recorder/recorder_state.h"

namespace {

struct kept_text {
  const char* key;
  std::span<char> text;
};

std::array<kept_text, 6> kept_texts(orb_xmp_fields* fields) {
  return {{{"title", fields->project_name},
           {"operator_id", fields->composer},
           {"flow_direction", fields->scene},
           {"gps_latitude", fields->gps_latitude},
           {"gps_longitude", fields->gps_longitude},
           {"gps_time", fields->gps_timestamp}}};
}

void add_lines(json_object* object, const char* key, const std::vector<std::string>& lines) {
  json_object* list = json_object_new_array();
  for (const std::string& line : lines)
    json_object_array_add(list, json_object_new_string(as_utf8(line).c_str()));
  json_object_object_add(object, key, list);
}

std::vector<std::string> listed_lines(json_object* object, const char* key) {
  std::vector<std::string> lines;
  for (json_object* element : json_elements(json_member(object, key))) {
    const char* line = json_object_get_string(element);
    lines.emplace_back(line != nullptr ? line : "");
  }
  return lines;
}

}  // namespace

stopped_take last_stopped_take() {
  stopped_take stopped;
  {
    const mutex_lock lock(recorder.stop_lock);
    stopped.texts = recorder.stopped_texts;
  }
  auto offsets = read_lines(kOffsets);
  auto notes = read_lines(kNotes);
  if (offsets && notes) {
    stopped.offsets = std::move(*offsets);
    stopped.notes = std::move(*notes);
  }
  return stopped;
}

std::string stopped_take_path(const std::string& guid) {
  return path_in(paths::kInternalTakes, guid + ".json");
}

bool save_stopped_take(const std::string& guid, const stopped_take& stopped) {
  const json_owner object(json_object_new_object());
  orb_xmp_fields texts = stopped.texts;
  for (const kept_text& kept : kept_texts(&texts)) add_text(object.get(), kept.key, kept.text.data());
  add_lines(object.get(), "offsets", stopped.offsets);
  add_lines(object.get(), "notes", stopped.notes);
  return replace_json_file(stopped_take_path(guid), object.get());
}

std::optional<stopped_take> load_stopped_take(const std::string& guid) {
  const json_owner object = load_json_file(stopped_take_path(guid).c_str());
  if (!json_object_is_type(object.get(), json_type_object)) return std::nullopt;
  stopped_take stopped{metadata_texts_now(), listed_lines(object.get(), "offsets"),
                       listed_lines(object.get(), "notes")};
  for (const kept_text& kept : kept_texts(&stopped.texts))
    copy_text(kept.text.data(), kept.text.size(), json_text(object.get(), kept.key));
  return stopped;
}
