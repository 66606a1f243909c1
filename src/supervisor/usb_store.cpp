// How full the stores are, once a second. A store that hangs holds only this thread.

#include <sys/statvfs.h>

#include <algorithm>
#include <atomic>
#include <cstdint>

#include "base/clock.h"
#include "base/paths.h"
#include "base/thread.h"
#include "recorder/recorder.h"
#include "supervisor/internal.h"

namespace {

constexpr int64_t kPeriod_ms = 1000;

std::atomic<int> percent = 0;

void* store_thread(void*) {
  for (;;) {
    measure_usb_store();
    measure_idle_stores();
    sleep_ms(kPeriod_ms);
  }
}

}  // namespace

void start_usb_store_watch() { start_detached_thread("usb-store", store_thread, nullptr); }

void measure_usb_store() {
  struct statvfs info {};
  const bool is_told = statvfs(paths::kUsbTakes, &info) == 0;
  const uint64_t used = info.f_blocks - std::min(info.f_blocks, info.f_bfree);
  const uint64_t usable = used + info.f_bavail;
  percent = is_told && usable != 0 ? static_cast<int>(100 * used / usable) : 0;
}

int usb_store_percent() { return percent; }
