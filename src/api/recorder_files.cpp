// The routes of stored files and of the cached image.

#include <cstdio>

#include "api/files_route.h"
#include "api/recorder_routes.h"
#include "base/file.h"
#include "base/paths.h"
#include "base/trace.h"
#include "http/response.h"
#include "recorder/finished_takes.h"

namespace {

constexpr unsigned long kImageLimit = 524'287;
constexpr size_t kReadLimit = 16 << 20;  // another program's image may be larger

}  // namespace

int get_recorder_files(http_connection* connection, const char*, unsigned long, void*) {
  trace(kTraceApi, "files");
  json_response_handler(connection, orb_get_recorder_files().release());
  return 0;
}

int post_recorder_copy(http_connection* connection, const char* body, unsigned long length, void*) {
  trace(kTraceApi, "copy");
  return hand_files_over(connection, body, length, orb_copy_recorder_files);
}

int post_recorder_delete(http_connection* connection, const char* body, unsigned long length, void*) {
  trace(kTraceApi, "delete");
  return hand_files_over(connection, body, length, orb_delete_recorder_files);
}

int api_get_recordings(http_connection* connection, const char*, unsigned long, void*) {
  printf("get_recordings\n");
  json_owner list = list_recordings();
  printf("Writing files response");
  json_v1_response_handler(connection, list.release());
  return 0;
}

int post_image_cache(http_connection* connection, const char* body, unsigned long length, void*) {
  trace(kTraceApi, "post image cache %d", static_cast<int>(length));
  const bool is_fit = length >= 1 && length <= kImageLimit;
  return send_status(connection, is_fit && replace_file(paths::kImageCache, paths::kImageCacheTemporary,
                                                        {body, length}, flushed::no));
}

int get_image_cache(http_connection* connection, const char*, unsigned long, void*) {
  trace(kTraceApi, "get image cache");
  const std::optional<std::string> image = read_file(paths::kImageCache, kReadLimit);
  if (!image) return http_connection_send_not_found(connection);
  jpeg_response_handler(connection, *image);
  return 0;
}
