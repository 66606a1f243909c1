#include "base/file.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>

std::optional<std::string> read_file(const char* path, size_t limit) {
  // O_NONBLOCK: a pipe put in the file's place must not hold the caller.
  const unique_fd fd(open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  struct stat info {};
  if (!fd || fstat(fd.get(), &info) != 0 || !S_ISREG(info.st_mode)) return std::nullopt;

  std::string content;
  char block[4096];
  for (;;) {
    const ssize_t count = read(fd.get(), block, sizeof block);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return std::nullopt;
    if (count == 0) return content;
    if (content.size() + static_cast<size_t>(count) > limit) return std::nullopt;
    content.append(block, static_cast<size_t>(count));
  }
}

bool write_all(int fd, std::string_view data) {
  while (!data.empty()) {
    const ssize_t count = write(fd, data.data(), data.size());
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return false;
    data.remove_prefix(static_cast<size_t>(count));
  }
  return true;
}

bool flush_folder_of(const char* path) {
  const std::string file = path;
  const std::string folder = file.substr(0, file.find_last_of('/') + 1);
  const unique_fd fd(open(folder.empty() ? "." : folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  return fd && fsync(fd.get()) == 0;
}
