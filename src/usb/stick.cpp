// All of it on a thread of its own, a step a second: a stick can keep each of these waiting for seconds.
// "eject_pending" says whether a pull or the eject unmounts it; it is cleared with the mount, so that a
// second wish, served late, does not eject the next stick. While a mount hangs there is no stick to eject;
// one that was pulled meanwhile is unmounted with the next step.
#include "usb/stick.h"

#include <sys/mount.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <utility>

#include "base/clock.h"
#include "base/file.h"
#include "base/mutex.h"
#include "base/paths.h"
#include "base/thread.h"
#include "base/trace.h"
#include "xmp/xmp.h"

namespace {

constexpr char kFileSystem[] = "vfat";
constexpr int64_t kStep_ns = 1000 * kNanosecondsPerMillisecond;
constexpr int kInFlightField = 9;  // of a block device's statistics, counted from 1
constexpr size_t kStatisticsLimit = 4096;

mutex stick_lock;
condition eject_requested;
stick_state stick GUARDED_BY(stick_lock);
bool eject_wanted GUARDED_BY(stick_lock) = false;

enum class ejection { none, under_way, ending };
ejection ejection_now = ejection::none;  // stick's thread

void unmount_stick(bool ejected) {
  if (umount(paths::kStick) != 0)
    return trace(kTraceSupervisor, ejected ? "eject umount %d %d" : "umount %d %d", -1, errno);
  trace(kTraceSupervisor, ejected ? "usb ejected" : "usb out");
  const mutex_lock lock(stick_lock);
  stick = {.ejected = ejected};
}

void clear_ejected() {
  const mutex_lock lock(stick_lock);
  stick.ejected = false;
}

void mount_plugged(stick_visit* visit) {
  if (mount(paths::kStickDevice, paths::kStick, kFileSystem, 0, nullptr) != 0) {
    const int error = errno;
    trace(kTraceSupervisor, "mount %d %d", -1, error);
    if (error == EBUSY) umount(paths::kStick);  // an earlier run's, which was busy at the start
    return;
  }
  trace(kTraceSupervisor, "usb in");
  orb_xmp_end_interrupted(paths::kStick);
  {
    const mutex_lock lock(stick_lock);
    stick.mounted = true;
  }
  const bool update_available = visit();
  const mutex_lock lock(stick_lock);
  stick.update_available = update_available;
}

// 0 when the statistics cannot be read: a stick that has gone has nothing in flight.
unsigned long long requests_in_flight() {
  const std::string fields = read_file(paths::kStickStatistics, kStatisticsLimit).value_or("");
  const char* at = fields.c_str();
  unsigned long long value = 0;
  for (int field = 0; field < kInFlightField; ++field) {
    char* end = nullptr;
    value = strtoull(at, &end, 10);
    if (end == at) return 0;
    at = end;
  }
  return value;
}

void try_eject() {
  const unsigned long long in_flight = requests_in_flight();
  trace(kTraceSupervisor, "io %llu", in_flight);
  if (in_flight != 0) return;
  trace(kTraceSupervisor, "umount start");
  unmount_stick(true);
}

bool take_eject_request() {
  const mutex_lock lock(stick_lock);
  return std::exchange(eject_wanted, false);
}

// One request is served after the other; a second is over when the first has ejected the stick.
void step_ejection() {
  if (ejection_now == ejection::ending) {
    trace(kTraceSupervisor, "usb eject end");
    ejection_now = ejection::none;
  }
  if (ejection_now == ejection::none && take_eject_request()) {
    trace(kTraceSupervisor, "usb eject begin");
    ejection_now = ejection::under_way;
  }
  if (ejection_now != ejection::under_way) return;
  if (usb_stick_now().eject_pending) {
    try_eject();
  } else {
    ejection_now = ejection::ending;
  }
}

void step_plug(stick_visit* visit) {
  const stick_state now = usb_stick_now();
  if (access(paths::kStickDevice, R_OK | W_OK) != 0) {
    clear_ejected();
    if (now.mounted && !now.eject_pending) unmount_stick(false);
  } else if (!now.mounted && !now.ejected) {
    mount_plugged(visit);
  }
}

// A request does not wait for the second to end, unless one is being served.
void await_next_step() {
  const int64_t end_ns = monotonic_ns() + kStep_ns;
  const mutex_lock lock(stick_lock);
  while (monotonic_ns() < end_ns && !(eject_wanted && ejection_now == ejection::none)) {
    eject_requested.wait_until_ns(stick_lock, end_ns);
  }
}

void* stick_thread(void* visit) {
  umount(paths::kStick);  // an earlier run's; nothing, most often
  for (;;) {
    await_next_step();
    step_usb_stick(reinterpret_cast<stick_visit*>(visit));
  }
}

}  // namespace

void start_usb_stick(stick_visit* visit) {
  start_detached_thread("usb-stick", stick_thread, reinterpret_cast<void*>(visit));
}

void step_usb_stick(stick_visit* visit) {
  step_ejection();
  step_plug(visit);
}

const char* stick_text(const stick_state& now) {
  if (now.eject_pending) return "eject pending";
  if (now.ejected) return "ejected";
  return now.mounted ? "inserted" : "removed";
}

stick_state usb_stick_now() {
  const mutex_lock lock(stick_lock);
  return stick;
}

int orb_request_supervisor_eject() {
  const mutex_lock lock(stick_lock);
  if (!stick.mounted) return -1;
  stick.eject_pending = true;
  eject_wanted = true;
  eject_requested.signal();
  return 1;
}

bool orb_is_external_usb_mounted() {
  const stick_state now = usb_stick_now();
  return now.mounted && !now.eject_pending;
}
