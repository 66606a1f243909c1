#include "base/file_copy.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <string_view>

#include "base/file.h"

namespace {

constexpr int64_t kBlockSize = 4096;
constexpr size_t kReadSize = 32768;  // at once: behind an insertion the blocks lie across the source's pages
constexpr int64_t kWriteOutSize = 8 << 20;

}  // namespace

bool copy_blocks(int from, int to, int64_t size, copy_step step, void* context) {
  const int64_t start = std::max<int64_t>(lseek(to, 0, SEEK_CUR), 0);
  int64_t copied = 0;
  int64_t written_out = 0;
  char chunk[kReadSize];
  while (copied < size) {
    const ssize_t count =
        read(from, chunk, static_cast<size_t>(std::min<int64_t>(sizeof chunk, size - copied)));
    if (count < 0 && errno == EINTR) continue;
    if (count == 0) errno = EIO;  // shorter than it was
    if (count <= 0) return false;
    for (std::string_view left(chunk, static_cast<size_t>(count)); !left.empty();) {
      // The blocks are the target's: a write that reaches into two of them takes longer.
      const auto block = left.substr(0, static_cast<size_t>(kBlockSize - (start + copied) % kBlockSize));
      if (!write_all(to, block)) return false;
      left.remove_prefix(block.size());
      copied += static_cast<int64_t>(block.size());
      if (step != nullptr) step(context, copied, size);
    }
    // The store works while we copy; the flush at the end would wait for all of it.
    if (copied - written_out >= kWriteOutSize) {
      sync_file_range(to, start + written_out, copied - written_out, SYNC_FILE_RANGE_WRITE);
      written_out = copied;
    }
  }
  return true;
}

bool copy_over(int from, int to, int64_t size, copy_step step, void* context) {
  struct stat info {};
  if (fstat(to, &info) != 0) return false;
  if (info.st_size != 0 && (ftruncate(to, 0) != 0 || fsync(to) != 0)) return false;
  const int64_t last = std::min<int64_t>(size, 1);
  if (!copy_blocks(from, to, size - last, step, context) || fsync(to) != 0) return false;
  return last == 0 || (copy_blocks(from, to, last, step, context) && fsync(to) == 0);
}

bool copy_file(const char* from, const char* to, copy_step step, void* context) {
  const unique_fd source(open(from, O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  struct stat info {};
  if (!source || fstat(source.get(), &info) != 0) return false;
  const unique_fd target(open(to, O_WRONLY | O_CREAT | O_CLOEXEC | O_NONBLOCK, 0644));
  return target && copy_over(source.get(), target.get(), info.st_size, step, context) && flush_folder_of(to);
}
