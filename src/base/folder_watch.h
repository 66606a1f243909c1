// What has changed in a folder since one last looked (inotify): so that who keeps what its files hold, or
// their sizes, looks at few of them again. Changes are told before the call that made them returns.
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

#include "base/file.h"

struct folder_watch {
  const char* path;
  unique_fd events{};
  dev_t device = 0;  // of the folder that is watched: another may have been mounted there
  ino_t inode = 0;
};

// The names of what was made, written, renamed or removed since the last call, each at least once; nothing
// when everything may have changed: at the first call, when the folder is another one or is missing, when too
// much has happened, or when it cannot be watched. One thread at a time.
std::optional<std::vector<std::string>> changed_names(folder_watch* watch);
