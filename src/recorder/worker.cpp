// The recording worker: starts ffmpeg, watches the take, ends it and completes it.

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>

#include "app/trace.h"
#include "base/clock.h"
#include "base/file.h"
#include "base/paths.h"
#include "osd/osd.h"
#include "recorder/encoder_child.h"
#include "recorder/internal.h"

namespace {

constexpr int64_t kTick_ms = 100;
constexpr int kTicksPerLook = 10;

void set_stage(recorder_stage stage) {
  const mutex_lock lock(recorder.stage_lock);
  recorder.stage = stage;
}

// Waits for a start's request, and takes it.
recorder_stage wait_for_request() {
  const mutex_lock lock(recorder.stage_lock);
  while (recorder.stage != recorder_stage::take_requested &&
         recorder.stage != recorder_stage::completion_requested) {
    recorder.stage_changed.wait(recorder.stage_lock);
  }
  const recorder_stage request = recorder.stage;
  recorder.stage =
      request == recorder_stage::take_requested ? recorder_stage::working : recorder_stage::recovering;
  return request;
}

// What was interrupted, and what was set aside since.
void complete_waiting_takes() {
  complete_take(paths::kTakeGuid, true);
  for (const std::string& path : set_aside_guid_files()) complete_take(path.c_str(), true);
}

// A take that cannot be completed although the store is there does not keep the next ones from being
// recorded: its guid goes aside, and every start of the daemon tries it again.
void complete_again() {
  if (complete_take(paths::kTakeGuid, true) || access(paths::kUsbTakes, W_OK) != 0) return;
  const std::string guid = read_guid(paths::kTakeGuid);
  const std::string aside = paths::kTakeGuid + ("." + (guid.empty() ? "unreadable" : guid));
  if (rename(paths::kTakeGuid, aside.c_str()) != 0) return;
  flush_folder_of(paths::kTakeGuid);
  trace(kTraceRecorder, "take set aside '%s'", guid.c_str());
}

// The internal file of the take that the guid file names, "" without one.
std::string requested_path() {
  take t;
  const std::string guid = read_guid(paths::kTakeGuid);
  if (guid.empty()) {
    trace(kTraceRecorder, "no guid");
    return "";
  }
  load_description(guid, &t);
  return internal_take_path(t);
}

enum class beginning { recording, unwanted, failed };

// Starts ffmpeg; from then on the take runs.
beginning begin_take(const std::string& path, child_process* child) {
  const mutex_lock lock(recorder.child_lock);
  if (recorder.is_stop_wanted || recorder.is_closed) return beginning::unwanted;
  if (path.empty() || start_ffmpeg(path, child) != 0) return beginning::failed;
  recorder.child_pid = child->pid;
  orb_service_recorder_watchdog();
  recorder.started_ns = monotonic_ns();
  recorder.error = 0;
  recorder.recording = 1;
  return beginning::recording;
}

void watch_until_stopped(const std::string& path) {
  take_watch watch{.path = path};
  int64_t next = monotonic_ns();
  while (recorder.recording != 0) {
    next += kTick_ms * kNanosecondsPerMillisecond;
    if (next < monotonic_ns()) next = monotonic_ns();  // what was missed is not made up for
    sleep_until_ns(next);
    if (recorder.recording == 0) break;
    const int reason = watch_take(watch);
    if (reason != 0) stop_take(reason);
  }
}

// What the child has written is on the disk afterwards: the operator may switch the unit off at any moment.
void end_child(const std::string& path) {
  pid_t pid = -1;
  {
    const mutex_lock lock(recorder.child_lock);  // whoever cleared `recording` has sent its signals now
    pid = recorder.child_pid;
  }
  recorder.take_kb = 0;
  await_ffmpeg_end(pid);
  while (waitpid(pid, nullptr, 0) < 0 && errno == EINTR) continue;
  flush_file(path.c_str());
  const mutex_lock lock(recorder.child_lock);
  recorder.child_pid = -1;
}

// A mark or note that was being written is there afterwards; none is written to this take any more.
void await_last_note() { const mutex_lock lock(recorder.notes_lock); }

void record_take() {
  trace(kTraceRecorder, "record starting");
  const std::string path = requested_path();
  child_process child;
  const beginning begun = begin_take(path, &child);
  if (begun == beginning::failed) {
    trace(kTraceRecorder, "error");
    recorder.error = 1;
  }
  if (begun != beginning::recording) {
    if (!is_recorder_closed()) complete_take(paths::kTakeGuid, true);
    return;
  }
  orb_update_osd_recorder_activity(1);
  trace(kTraceRecorder, "started %d", child.pid);
  if (const int error = exec_error(child)) trace(kTraceRecorder, "rerror %d '%s'", -1, strerror(error));
  watch_until_stopped(path);
  trace(kTraceRecorder, "record stopped");
  orb_update_osd_recorder_activity(0);
  end_child(path);
  if (is_recorder_closed()) return;  // the next start completes it
  await_last_note();
  complete_take(paths::kTakeGuid, false);
  measure_stores();
  trace(kTraceRecorder, "record end");
}

bool count_down_watchdog() {
  const mutex_lock lock(recorder.watchdog_lock);
  if (recorder.watchdog_ms <= 0) return false;
  recorder.watchdog_ms -= static_cast<int>(kTick_ms);
  return recorder.watchdog_ms < 1;
}

// In bytes; 0 (traced) when it cannot be told.
uint64_t take_size(const std::string& path) {
  struct stat info {};
  if (stat(path.c_str(), &info) == 0) return static_cast<uint64_t>(info.st_size);
  trace(kTraceRecorder, "size error '%s' '%s'", path.c_str(), strerror(errno));
  return 0;
}

// A longer take could never be copied to the store.
bool is_file_full(uint64_t size_kb) { return size_kb + kLowUsb_kb > largest_file_kb(paths::kUsbTakes); }

bool is_space_low(const std::string& path) {
  const uint64_t size = take_size(path);
  recorder.take_kb = size / 1024;
  const uint64_t emmc = free_kb(paths::kInternalTakes);
  const uint64_t usb = free_kb(paths::kUsbTakes);
  const uint64_t left = usb - std::min(usb, size / 1024);
  recorder.emmc_kb = emmc;
  recorder.usb_kb = left;
  trace(kTraceRecorder, "active %ld %ld %ld", static_cast<long>(size), static_cast<long>(emmc),
        static_cast<long>(left));
  return emmc < kLowEmmc_kb || left < kLowUsb_kb || is_file_full(size / 1024);
}

}  // namespace

int watch_take(take_watch& watch) {
  if (count_down_watchdog()) return kStopByWatchdog;
  if (++watch.ticks < kTicksPerLook) return 0;
  watch.ticks = 0;
  return is_space_low(watch.path) ? kStopByLowSpace : 0;
}

void* recording_worker(void*) {
  complete_waiting_takes();
  measure_stores();
  for (;;) {
    set_stage(recorder_stage::idle);
    if (wait_for_request() == recorder_stage::take_requested) {
      record_take();
    } else {
      complete_again();
      measure_stores();
    }
    if (is_recorder_closed()) pause();
  }
}
