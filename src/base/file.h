// Owners of descriptors, and reads and writes of whole small files. Any thread.
#pragma once

#include <unistd.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

// Closes its descriptor; -1 is none.
class unique_fd {
 public:
  unique_fd() = default;
  explicit unique_fd(int fd) : fd_(fd) {}
  unique_fd(unique_fd&& other) noexcept : fd_(other.release()) {}
  unique_fd& operator=(unique_fd&& other) noexcept {
    reset(other.release());
    return *this;
  }
  unique_fd(const unique_fd&) = delete;
  unique_fd& operator=(const unique_fd&) = delete;
  ~unique_fd() { reset(); }

  int get() const { return fd_; }
  explicit operator bool() const { return fd_ >= 0; }
  int release() {
    const int fd = fd_;
    fd_ = -1;
    return fd;
  }
  void reset(int fd = -1) {
    if (fd_ >= 0) close(fd_);
    fd_ = fd;
  }

 private:
  int fd_ = -1;
};

inline std::string path_in(const char* folder, const std::string& name) {
  return std::string(folder) + "/" + name;
}

// The content of a regular file of at most `limit` bytes; nothing when it cannot be read, is not a regular
// file or is larger.
std::optional<std::string> read_file(const char* path, size_t limit);

// Writes all of `data`, over short writes and interruptions. False at the first error (errno tells).
bool write_all(int fd, std::string_view data);

// Renames a file within its folder, over what has the name `to`, and flushes it, content and name. On vfat a
// flush before the rename does not count: the new name begins with no content, and gets it with the next
// flush of the file. False when it could not be renamed or flushed.
bool rename_flushed(const char* from, const char* to);

// Writes `data` to the file `temporary` in the same folder and renames it over `path`, so that a reader, and
// with `flushed` a power cut, sees the old content or the new, never a part. Two writers of one temporary
// must take turns. False when it could not be written, or not flushed: `path` holds the old or the new then.
enum class flushed : bool { no, yes };
bool replace_file(const char* path, const char* temporary, std::string_view data, flushed flush);

// The same, flushed and with the mode that the file had, with the temporary "PATH.new".
bool replace_file(const std::string& path, std::string_view data);

// Removes such temporaries that a power cut has left, of files in `folder` whose names fit a shell's pattern.
// Nobody may be writing one.
void remove_unfinished(const char* folder, const char* pattern);

// The first line of a file with its newline, at most `limit` bytes; nothing when the file cannot be read.
std::optional<std::string> read_first_line(const char* path, size_t limit);

// Flushes what has been written to a file, by whomever, and its name.
bool flush_file(const char* path);

// Makes the folder `path` (mode 0755), flushed, when nothing has that name. True when it was missing, made or
// not.
bool make_missing_folder(const char* path);

// Whether anything has that name, a dangling symbolic link too.
bool exists(const std::string& path);

// Bytes of a regular file; -1 for anything else (errno is ENOENT when there is nothing).
int64_t file_size(const std::string& path);

// The names in a folder; none when it cannot be read.
std::vector<std::string> names_in(const char* folder);

// Those of its regular files that end with `end` and are longer, in order. `is_whole`, when given, gets
// whether the folder was read to its end.
std::vector<std::string> file_names(const char* folder, std::string_view end, bool* is_whole = nullptr);

// Flushes the folder that holds `path`, so that the name of a new file or folder survives a power cut.
bool flush_folder_of(const char* path);
