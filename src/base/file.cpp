#include "base/file.h"

#include <dirent.h>
#include <fcntl.h>
#include <fnmatch.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <memory>

namespace {

constexpr char kUnfinished[] = ".new";

// Of the file that is replaced, where the store has modes.
void keep_mode(int fd, const char* path) {
  struct stat old {};
  if (stat(path, &old) == 0) fchmod(fd, old.st_mode & 07777);
}

struct folder_closer {
  void operator()(DIR* folder) const { closedir(folder); }
};

// False when the folder could not be read to its end.
template <typename Visit>
bool for_each_entry(const char* path, Visit visit) {
  const std::unique_ptr<DIR, folder_closer> folder(opendir(path));
  if (!folder) return false;
  for (;;) {
    errno = 0;
    const dirent* entry = readdir(folder.get());
    if (entry == nullptr) return errno == 0;
    const std::string_view name = entry->d_name;
    if (name != "." && name != "..") visit(*entry);
  }
}

}  // namespace

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

bool rename_flushed(const char* from, const char* to) {
  const unique_fd fd(open(from, O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  return fd && rename(from, to) == 0 && fsync(fd.get()) == 0 && flush_folder_of(to);
}

bool replace_file(const char* path, const char* temporary, std::string_view data, flushed flush) {
  unlink(temporary);
  unique_fd fd(open(temporary, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644));
  if (!fd) return false;
  const bool is_flushed = flush == flushed::yes;
  bool written = write_all(fd.get(), data);
  if (is_flushed) keep_mode(fd.get(), path);
  if (is_flushed) written = written && fsync(fd.get()) == 0;
  fd.reset();
  written = written && (is_flushed ? rename_flushed(temporary, path) : rename(temporary, path) == 0);
  if (!written) unlink(temporary);
  return written;
}

bool replace_file(const std::string& path, std::string_view data) {
  return replace_file(path.c_str(), (path + kUnfinished).c_str(), data, flushed::yes);
}

void remove_unfinished(const char* folder, const char* pattern) {
  const std::string temporaries = std::string(pattern) + kUnfinished;
  for (const std::string& name : names_in(folder))
    if (fnmatch(temporaries.c_str(), name.c_str(), 0) == 0) unlink(path_in(folder, name).c_str());
}

std::optional<std::string> read_first_line(const char* path, size_t limit) {
  const unique_fd fd(open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  if (!fd) return std::nullopt;
  std::string line(limit, '\0');
  const ssize_t count = read(fd.get(), line.data(), limit);
  if (count < 0) return std::nullopt;
  line.resize(static_cast<size_t>(count));
  const size_t end = line.find('\n');
  if (end != std::string::npos) line.resize(end + 1);
  return line;
}

bool flush_file(const char* path) {
  const unique_fd fd(open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  return fd && fsync(fd.get()) == 0 && flush_folder_of(path);
}

bool make_missing_folder(const char* path) {
  struct stat info {};
  if (stat(path, &info) == 0) return false;
  if (mkdir(path, 0755) == 0) flush_folder_of(path);
  return true;
}

bool exists(const std::string& path) {
  struct stat info {};
  return lstat(path.c_str(), &info) == 0;
}

int64_t file_size(const std::string& path) {
  struct stat info {};
  if (lstat(path.c_str(), &info) != 0) return -1;
  if (S_ISREG(info.st_mode)) return info.st_size;
  errno = EINVAL;
  return -1;
}

std::vector<std::string> names_in(const char* folder) {
  std::vector<std::string> names;
  for_each_entry(folder, [&](const dirent& entry) { names.emplace_back(entry.d_name); });
  return names;
}

// The entry knows its type without a look at the file, on most file systems.
std::vector<std::string> file_names(const char* folder, std::string_view end, bool* is_whole) {
  std::vector<std::string> names;
  const bool is_read = for_each_entry(folder, [&](const dirent& entry) {
    const std::string_view name = entry.d_name;
    if (name.size() <= end.size() || !name.ends_with(end)) return;
    const bool is_file =
        entry.d_type == DT_UNKNOWN ? file_size(path_in(folder, entry.d_name)) >= 0 : entry.d_type == DT_REG;
    if (is_file) names.emplace_back(name);
  });
  if (is_whole != nullptr) *is_whole = is_read;
  std::ranges::sort(names);
  return names;
}

bool flush_folder_of(const char* path) {
  const std::string file = path;
  const std::string folder = file.substr(0, file.find_last_of('/') + 1);
  const unique_fd fd(open(folder.empty() ? "." : folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  return fd && fsync(fd.get()) == 0;
}
