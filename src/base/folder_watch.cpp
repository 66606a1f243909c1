#include "base/folder_watch.h"

#include <sys/inotify.h>
#include <sys/stat.h>

#include <cstring>

namespace {

constexpr uint32_t kChanges = IN_CREATE | IN_DELETE | IN_MODIFY | IN_MOVED_FROM | IN_MOVED_TO | IN_ONLYDIR;
constexpr size_t kMostNames = 1000;  // a second look at each is dearer than one at all
constexpr uint32_t kLostTrack = IN_Q_OVERFLOW | IN_UNMOUNT | IN_IGNORED;

bool is_watched(const folder_watch& watch, const struct stat& folder) {
  return watch.events && folder.st_dev == watch.device && folder.st_ino == watch.inode;
}

// Before the folder is looked at: what changes meanwhile is told the next time. Not when it is exchanged
// while the watch begins.
void start(folder_watch* watch, const struct stat& folder) {
  watch->device = folder.st_dev;
  watch->inode = folder.st_ino;
  watch->events.reset(inotify_init1(IN_NONBLOCK | IN_CLOEXEC));
  if (watch->events && inotify_add_watch(watch->events.get(), watch->path, kChanges) < 0)
    watch->events.reset();
  struct stat now {};
  if (stat(watch->path, &now) != 0 || !is_watched(*watch, now)) watch->events.reset();
}

// False when the kernel has lost track.
bool take_names(const char* events, size_t length, std::vector<std::string>* names) {
  for (size_t at = 0; at < length;) {
    inotify_event event{};
    memcpy(&event, events + at, sizeof event);
    if ((event.mask & kLostTrack) != 0) return false;
    const char* name = events + at + sizeof event;
    if (event.len != 0 && (names->empty() || names->back() != name)) names->emplace_back(name);
    at += sizeof event + event.len;
  }
  return true;
}

}  // namespace

std::optional<std::vector<std::string>> changed_names(folder_watch* watch) {
  struct stat folder {};
  if (stat(watch->path, &folder) != 0) return watch->events.reset(), std::nullopt;
  if (!is_watched(*watch, folder)) return start(watch, folder), std::nullopt;
  std::vector<std::string> names;
  char events[8192];
  for (;;) {
    const ssize_t length = read(watch->events.get(), events, sizeof events);
    if (length <= 0) return names;
    if (names.size() > kMostNames) return start(watch, folder), std::nullopt;
    if (!take_names(events, static_cast<size_t>(length), &names)) return start(watch, folder), std::nullopt;
  }
}
