#include "api/lens_speeds.h"

#include <sys/inotify.h>
#include <unistd.h>

#include "base/paths.h"
#include "base/value_file.h"
#include "camera/speeds.h"
#include "http/server.h"

namespace {

// A file that is replaced or removed loses a link, which is told as IN_ATTRIB.
constexpr uint32_t kChanges = IN_MODIFY | IN_ATTRIB | IN_MOVE_SELF;

int events = -1;
bool is_current = false;
lens_speeds kept{};

void take_changes(void*) {
  char changes[4096];
  while (read(events, changes, sizeof changes) > 0) is_current = false;
}

// Before the file is read. False when there is none to watch.
bool watch(const char* path) { return inotify_add_watch(events, path, kChanges) >= 0; }

}  // namespace

lens_speeds load_lens_speeds() {
  if (is_current) return kept;
  const bool is_watched = watch(paths::kFocusSpeed) && watch(paths::kZoomSpeed);
  kept = {read_value_file(paths::kFocusSpeed).value_or(kMissingFocusSpeed),
          read_value_file(paths::kZoomSpeed).value_or(kMissingZoomSpeed)};
  is_current = is_watched;
  return kept;
}

void watch_lens_speeds(http_server* server) {
  events = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
  if (!http_server_watch(server, {events, take_changes, nullptr})) events = -1;
}
