// "/api/camera/recorder": takes, marks and stored files, their metadata and notes; and the cached image.

#include <optional>
#include <string>

#include "api/files_route.h"
#include "api/routes.h"
#include "base/file.h"
#include "base/paths.h"
#include "base/trace.h"
#include "http/response.h"
#include "power_board/power_board.h"
#include "recorder/finished_takes.h"
#include "recorder/marks.h"
#include "recorder/metadata.h"
#include "recorder/recorder.h"
#include "recorder/take_list.h"

namespace {

// --- takes and marks ---

// Of the recorder, wished at `asked_ns` (monotonic): it may have waited in its lane since.
struct action_route {
  const char* message;
  int (*act)(int64_t asked_ns);  // 0, or -1
};

int stop_and_keep(int64_t asked_ns) {
  const int result = stop_recorder(asked_ns);
  if (result == 0) keep_stopped_take();
  return result;
}

// A fresh distance accompanies the mark.
int mark(int64_t) {
  const int result = orb_save_recorder_image();
  if (orb_power_board* board = power_board_now()) orb_power_board_trigger_laser_reading(board);
  return result;
}

template <int (*Act)()>
int whenever(int64_t) {
  return Act();
}

constexpr action_route kStart{"start", start_recorder};
constexpr action_route kStop{"stop", stop_and_keep};
constexpr action_route kPause{"pause", whenever<orb_pause_recorder>};
constexpr action_route kResume{"resume", whenever<orb_resume_recorder>};
constexpr action_route kSave{"save", mark};
constexpr action_route kRemove{"remove", whenever<orb_remove_recorder_image>};

int post_action(http_connection* connection, const action_route& route) {
  trace(kTraceApi, "%s", route.message);
  return send_status(connection, route.act(connection->asked_ns) == 0);
}

// --- stored files ---

constexpr files_route kCopy{orb_copy_recorder_files, "copy"};
constexpr files_route kDelete{orb_delete_recorder_files, "delete"};

int get_files(http_connection* connection) {
  trace(kTraceApi, "files");
  return send_json_text(connection, orb_get_recorder_files());
}

// --- metadata: answered also when there is none, with empty texts ---

int send_metadata(http_connection* connection, const orb_xmp_fields& fields) {
  return send_object(connection, [&](json_object* answer) {
    add_text(answer, "metadata_title", fields.project_name);
    add_text(answer, "metadata_id", fields.composer);
    add_text(answer, "metadata_date", fields.shot_date);
    add_text(answer, "metadata_time", fields.shot_time);
    add_text(answer, "metadata_view", fields.scene);
    add_text(answer, "metadata_model", fields.camera_model);
    add_text(answer, "metadata_sn", fields.camera_label);
    add_text(answer, "metadata_gps_latitude", fields.gps_latitude);
    add_text(answer, "metadata_gps_time", fields.gps_timestamp);
    add_text(answer, "metadata_gps_longitude", fields.gps_longitude);
    add_text(answer, "metadata_note", fields.comment);
  });
}

struct metadata_route {
  const char* message;
  void (*load)(orb_xmp_fields* fields);
};

constexpr metadata_route kVideoMetadata{"video metadata", orb_load_recorder_video_metadata};
constexpr metadata_route kImageMetadata{"image metadata", orb_load_recorder_image_metadata};

int get_metadata(http_connection* connection, const metadata_route& route) {
  trace(kTraceApi, "%s", route.message);
  orb_xmp_fields fields;
  route.load(&fields);
  return send_metadata(connection, fields);
}

constexpr size_t kPathSize = 81;

int post_file_metadata(http_connection* connection, json_object* body) {
  char path[kPathSize];
  if (!copy_body_text(body, "file_name", path, sizeof path)) return send_status(connection, false);
  trace(kTraceApi, "post file note '%s'", path);
  orb_xmp_fields fields;
  orb_load_recorder_file_metadata(path, &fields);
  return send_metadata(connection, fields);
}

// --- notes ---

// The body's note without what is not printable ASCII; nothing when there is none.
std::optional<std::string> body_note(json_object* body) {
  const std::optional<std::string_view> text = text_member(body, "metadata_note");
  if (!text) return std::nullopt;
  std::string note(*text);
  std::erase_if(note, [](char c) { return c < ' ' || c > '~'; });
  return note;
}

// As the trace shows it.
std::string shown(const std::string& note) {
  constexpr size_t kShown = 16;  // characters of a longer one
  return note.size() > kShown ? note.substr(0, kShown) + "..." : note;
}

struct note_route {
  const char* label;
  int (*set)(const char* text);
};

constexpr note_route kVideoNote{"video note", orb_set_recorder_video_note};
constexpr note_route kImageNote{"image note", orb_set_recorder_image_note};

int put_note(http_connection* connection, json_object* body, const note_route& route) {
  const std::optional<std::string> note = body_note(body);
  if (!note) return send_status(connection, false);
  trace(kTraceApi, "%s '%s'", route.label, shown(*note).c_str());
  return send_status(connection, route.set(note->c_str()) == 0);
}

int put_file_note(http_connection* connection, json_object* body) {
  char path[kPathSize];
  const bool named = copy_body_text(body, "file_name", path, sizeof path);
  const std::optional<std::string> note = body_note(body);
  if (!named || !note) return send_status(connection, false);
  trace(kTraceApi, "put file note '%s' '%s'", path, shown(*note).c_str());
  return send_status(connection, orb_set_recorder_file_note(path, note->c_str()) == 0);
}

// --- the cached image: any bytes, kept for the other tablets ---

int get_image_cache(http_connection* connection) {
  constexpr size_t kReadLimit = 16 << 20;  // another program's image may be larger than ours
  trace(kTraceApi, "get image cache");
  const std::optional<std::string> image = read_file(paths::kImageCache, kReadLimit);
  if (!image) return http_connection_send_not_found(connection);
  jpeg_response_handler(connection, *image);
  return 0;
}

int post_image_cache(http_connection* connection, const char* body, unsigned long length) {
  constexpr unsigned long kImageLimit = 524'287;
  trace(kTraceApi, "post image cache %d", static_cast<int>(length));
  const bool is_fit = length >= 1 && length <= kImageLimit;
  return send_status(connection, is_fit && replace_file(paths::kImageCache, paths::kImageCacheTemporary,
                                                        {body, length}, flushed::no));
}

constexpr http_path kPaths[] = {
    {"/api/camera/recorder/start", post<post_action, kStart>.in(store_lane)},
    {"/api/camera/recorder/stop", post<post_action, kStop>.in(store_lane)},
    {"/api/camera/recorder/pause", post<post_action, kPause>.in(store_lane)},
    {"/api/camera/recorder/resume", post<post_action, kResume>.in(store_lane)},
    {"/api/camera/recorder/save", post<post_action, kSave>.in(store_lane)},
    {"/api/camera/recorder/remove", post<post_action, kRemove>.in(store_lane)},
    {"/api/camera/recorder/files", get<get_files>.in(files_lane)},
    {"/api/camera/recorder/copy", post<post_files, kCopy>.in(files_lane)},
    {"/api/camera/recorder/delete", post<post_files, kDelete>.in(files_lane)},
    {"/api/camera/recorder/video/metadata", get<get_metadata, kVideoMetadata>.in(store_lane)},
    {"/api/camera/recorder/video/note", put<put_note, kVideoNote>.in(store_lane)},
    {"/api/camera/recorder/image/metadata", get<get_metadata, kImageMetadata>.in(store_lane)},
    {"/api/camera/recorder/image/note", put<put_note, kImageNote>.in(store_lane)},
    {"/api/camera/recorder/file/metadata", post<post_file_metadata>.in(files_lane)},
    {"/api/camera/recorder/file/note", put<put_file_note>.in(files_lane)},
    {"/api/camera/imagecache", get<get_image_cache>, post<post_image_cache>},
};

}  // namespace

constinit const route_group recorder_routes(kRows<kPaths, route_counts{.get = 4, .put = 3, .post = 10}>);
