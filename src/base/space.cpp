#include "base/space.h"

#include <linux/magic.h>
#include <sys/statfs.h>
#include <sys/statvfs.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "base/trace.h"

namespace {

constexpr uint64_t kSpared_kb = 1024;
constexpr uint64_t kLargestVfatFile_kb = (uint64_t{4} << 20) - 1;

uint64_t as_kb(int64_t size) { return static_cast<uint64_t>(std::max<int64_t>(size, 0)) / 1024; }

}  // namespace

uint64_t free_kb(const char* folder) {
  struct statvfs info {};
  if (statvfs(folder, &info) != 0) {
    trace(kTraceRecorder, "path error %d '%s'", errno, strerror(errno));
    return 0;
  }
  return uint64_t{info.f_frsize / 1024} * info.f_bavail;
}

uint64_t largest_file_kb(const char* folder) {
  struct statfs info {};
  const bool is_vfat = statfs(folder, &info) == 0 && info.f_type == MSDOS_SUPER_MAGIC;
  return is_vfat ? kLargestVfatFile_kb : UINT64_MAX;
}

int used_percent(const char* folder) {
  struct statvfs info {};
  const bool is_told = statvfs(folder, &info) == 0;
  const uint64_t used = info.f_blocks - std::min(info.f_blocks, info.f_bfree);
  const uint64_t usable = used + info.f_bavail;
  return is_told && usable != 0 ? static_cast<int>(100 * used / usable) : 0;
}

bool has_room(const char* folder, int64_t size, int64_t replaced) {
  const uint64_t size_kb = as_kb(size) + 1;
  return size_kb + kSpared_kb <= free_kb(folder) + as_kb(replaced) && size_kb <= largest_file_kb(folder);
}
