#include "base/file_copy.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>

#include "base/file.h"

bool copy_blocks(int from, int to, copy_step step, void* context) {
  struct stat info {};
  if (fstat(from, &info) != 0) return false;
  int64_t copied = 0;
  char block[4096];
  while (copied < info.st_size) {
    const ssize_t count = read(from, block, sizeof block);
    if (count < 0 && errno == EINTR) continue;
    if (count == 0) errno = EIO;  // shorter than it was
    if (count <= 0 || !write_all(to, {block, static_cast<size_t>(count)})) return false;
    copied += count;
    if (step != nullptr) step(context, copied, info.st_size);
  }
  return fsync(to) == 0;
}

bool copy_file(const char* from, const char* to, copy_step step, void* context) {
  const unique_fd source(open(from, O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  if (!source) return false;
  const unique_fd target(open(to, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NONBLOCK, 0644));
  return target && copy_blocks(source.get(), target.get(), step, context) && flush_folder_of(to);
}
