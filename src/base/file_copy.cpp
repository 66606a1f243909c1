#include "base/file_copy.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>

#include "base/file.h"

bool copy_blocks(int from, int to, int64_t size, copy_step step, void* context) {
  int64_t copied = 0;
  char block[4096];
  while (copied < size) {
    const ssize_t count = read(from, block, std::min(sizeof block, static_cast<size_t>(size - copied)));
    if (count < 0 && errno == EINTR) continue;
    if (count == 0) errno = EIO;  // shorter than it was
    if (count <= 0 || !write_all(to, {block, static_cast<size_t>(count)})) return false;
    copied += count;
    if (step != nullptr) step(context, copied, size);
  }
  return true;
}

bool copy_file(const char* from, const char* to, copy_step step, void* context) {
  const unique_fd source(open(from, O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  struct stat info {};
  if (!source || fstat(source.get(), &info) != 0) return false;
  const unique_fd target(open(to, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NONBLOCK, 0644));
  return target && copy_blocks(source.get(), target.get(), info.st_size, step, context) &&
         fsync(target.get()) == 0 && flush_folder_of(to);
}
