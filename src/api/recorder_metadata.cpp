// The handlers of marks, and of the metadata and notes of takes, stills and stored files.

#include <algorithm>
#include <optional>

#include "api/recorder_routes.h"
#include "base/json.h"
#include "base/trace.h"
#include "http/json_body.h"
#include "http/response.h"
#include "power_board/power_board.h"
#include "recorder/marks.h"
#include "recorder/metadata.h"

namespace {

constexpr size_t kPathSize = 81;
constexpr size_t kShownNote = 16;  // characters of a longer one, in the trace

int send_metadata(http_connection* connection, const orb_xmp_fields& fields) {
  const struct {
    const char* key;
    const char* text;
  } members[] = {
      {"metadata_title", fields.project_name},
      {"metadata_id", fields.composer},
      {"metadata_date", fields.shot_date},
      {"metadata_time", fields.shot_time},
      {"metadata_view", fields.scene},
      {"metadata_model", fields.camera_model},
      {"metadata_sn", fields.camera_label},
      {"metadata_gps_latitude", fields.gps_latitude},
      {"metadata_gps_time", fields.gps_timestamp},
      {"metadata_gps_longitude", fields.gps_longitude},
      {"metadata_note", fields.comment},
  };
  return send_object(connection, [&](json_object* answer) {
    for (const auto& [key, text] : members) add_json_text(answer, key, text);
  });
}

// The body's note without what is not printable ASCII; nothing when there is none.
std::optional<std::string> body_note(json_object* object) {
  const std::optional<std::string_view> text = text_member(object, "metadata_note");
  if (!text) return std::nullopt;
  std::string note(*text);
  std::erase_if(note, [](char c) { return c < ' ' || c > '~'; });
  return note;
}

std::string shown(const std::string& note) {
  return note.size() > kShownNote ? note.substr(0, kShownNote) + "..." : note;
}

struct note_target {
  const char* message;
  int (*set)(const char* text);
};

int put_note(http_connection* connection, const char* body, unsigned long length, const note_target& target) {
  const json_owner object = read_json_body(connection, body, length);
  const std::optional<std::string> note = body_note(object.get());
  if (!note) return send_status(connection, false);
  trace(kTraceApi, "%s '%s'", target.message, shown(*note).c_str());
  return send_status(connection, target.set(note->c_str()) == 0);
}

int send_loaded(http_connection* connection, const char* message, void (*load)(orb_xmp_fields* fields)) {
  trace(kTraceApi, "%s", message);
  orb_xmp_fields fields;
  load(&fields);
  return send_metadata(connection, fields);
}

}  // namespace

// A fresh distance accompanies the mark.
int post_recorder_save(http_connection* connection, const char*, unsigned long, void*) {
  trace(kTraceApi, "save");
  const bool saved = orb_save_recorder_image() == 0;
  if (orb_power_board* board = power_board_now()) orb_power_board_trigger_laser_reading(board);
  return send_status(connection, saved);
}

int post_recorder_remove(http_connection* connection, const char*, unsigned long, void*) {
  trace(kTraceApi, "remove");
  return send_status(connection, orb_remove_recorder_image() == 0);
}

int get_video_metadata(http_connection* connection, const char*, unsigned long, void*) {
  return send_loaded(connection, "video metadata", orb_load_recorder_video_metadata);
}

int put_video_note(http_connection* connection, const char* body, unsigned long length, void*) {
  return put_note(connection, body, length, {"video note", orb_set_recorder_video_note});
}

int get_image_metadata(http_connection* connection, const char*, unsigned long, void*) {
  return send_loaded(connection, "image metadata", orb_load_recorder_image_metadata);
}

int put_image_note(http_connection* connection, const char* body, unsigned long length, void*) {
  return put_note(connection, body, length, {"image note", orb_set_recorder_image_note});
}

int post_file_metadata(http_connection* connection, const char* body, unsigned long length, void*) {
  const json_owner object = read_json_body(connection, body, length);
  char path[kPathSize];
  if (!copy_body_text(object.get(), "file_name", path, sizeof path)) return send_status(connection, false);
  trace(kTraceApi, "post file note '%s'", path);
  orb_xmp_fields fields;
  orb_load_recorder_file_metadata(path, &fields);
  return send_metadata(connection, fields);
}

int put_file_note(http_connection* connection, const char* body, unsigned long length, void*) {
  const json_owner object = read_json_body(connection, body, length);
  char path[kPathSize];
  const bool named = copy_body_text(object.get(), "file_name", path, sizeof path);
  const std::optional<std::string> note = body_note(object.get());
  if (!named || !note) return send_status(connection, false);
  trace(kTraceApi, "put file note '%s' '%s'", path, shown(*note).c_str());
  return send_status(connection, orb_set_recorder_file_note(path, note->c_str()) == 0);
}
