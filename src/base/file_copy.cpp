#include "base/file_copy.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>

#include "base/file.h"

bool copy_file(const char* from, const char* to, copy_step step, void* context) {
  const unique_fd source(open(from, O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  struct stat info {};
  if (!source || fstat(source.get(), &info) != 0) return false;
  const unique_fd target(open(to, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NONBLOCK, 0644));
  if (!target) return false;
  int64_t copied = 0;
  char block[4096];
  while (copied < info.st_size) {
    const ssize_t count = read(source.get(), block, sizeof block);
    if (count < 0 && errno == EINTR) continue;
    if (count == 0) errno = EIO;  // shorter than it was
    if (count <= 0 || !write_all(target.get(), {block, static_cast<size_t>(count)})) return false;
    copied += count;
    step(context, copied, info.st_size);
  }
  return fsync(target.get()) == 0 && flush_folder_of(to);
}
