#include "supervisor/usb_store.h"

#include <atomic>
#include <cstdint>

#include "base/clock.h"
#include "base/paths.h"
#include "base/space.h"
#include "base/thread.h"
#include "recorder/recorder.h"

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

void measure_usb_store() { percent = used_percent(paths::kUsbTakes); }

int usb_store_percent() { return percent; }
