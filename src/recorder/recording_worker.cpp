#include "recorder/recording_worker.h"

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <optional>
#include <string>

#include "base/clock.h"
#include "base/file.h"
#include "base/paths.h"
#include "base/space.h"
#include "base/trace.h"
#include "osd/osd.h"
#include "recorder/completion.h"
#include "recorder/ffmpeg.h"
#include "recorder/recorder.h"
#include "recorder/recorder_state.h"
#include "recorder/take.h"

namespace {

constexpr int64_t kTick_ms = 100;
constexpr int kTicksPerLook = 10;
constexpr int64_t kStoreLook_ms = 2000;  // while takes wait
constexpr uint64_t kMoreRoom_kb = 64;

void set_stage(recorder_stage stage) {
  const mutex_lock lock(recorder.stage_lock);
  recorder.stage = stage;
}

// What a completion needs of the USB store.
struct store_state {
  dev_t device = 0;  // 0 without a store
  uint64_t free_kb = 0;
};

store_state usb_store_now() {
  struct stat info {};
  if (stat(paths::kUsbTakes, &info) != 0) return {};
  return {info.st_dev, free_kb(paths::kUsbTakes)};
}

// Where every take that waits was last tried, with the least room that one of them had; the worker's own.
store_state tried_on;

// Of another store nothing is known: all takes are to be tried there.
void lower(store_state* state) {
  const store_state now = usb_store_now();
  if (now.device == state->device) state->free_kb = std::min(state->free_kb, now.free_kb);
}

// One take says nothing of the room that came for the others. Room that comes while it is completed is room
// that it has not had.
bool try_completion(bool start_up) {
  lower(&tried_on);
  const bool done = complete_take(paths::kTakeGuid, start_up);
  lower(&tried_on);
  return done;
}

// A request of a start, taken; nothing when there was none in time, which is for ever while no take waits.
std::optional<recorder_stage> await_request(bool has_waiting_takes) {
  const int64_t deadline_ns = monotonic_ns() + kStoreLook_ms * kNanosecondsPerMillisecond;
  const mutex_lock lock(recorder.stage_lock);
  while (recorder.stage != recorder_stage::take_requested &&
         recorder.stage != recorder_stage::completion_requested) {
    if (!has_waiting_takes) {
      recorder.stage_changed.wait(recorder.stage_lock);
    } else if (monotonic_ns() < deadline_ns) {
      recorder.stage_changed.wait_until_ns(recorder.stage_lock, deadline_ns);
    } else {
      return std::nullopt;
    }
  }
  const recorder_stage request = recorder.stage;
  recorder.stage =
      request == recorder_stage::take_requested ? recorder_stage::working : recorder_stage::recovering;
  return request;
}

bool begin_retry() {
  const mutex_lock lock(recorder.stage_lock);
  if (recorder.stage != recorder_stage::idle) return false;
  recorder.stage = recorder_stage::recovering;
  return true;
}

// Waits for a start's request, and takes it; or until the store is another one, or has more room, than when
// the takes that wait were last tried: `recovering`.
recorder_stage wait_for_work() {
  const bool has_waiting_takes = !incomplete_takes().empty();
  for (;;) {
    if (const auto request = await_request(has_waiting_takes)) return *request;
    const store_state now = usb_store_now();
    const bool is_better = now.device != tried_on.device || now.free_kb >= tried_on.free_kb + kMoreRoom_kb;
    if (now.device != 0 && is_better && !is_recorder_held() && begin_retry())
      return recorder_stage::recovering;
  }
}

// What was interrupted, and what was set aside since. A round that is cut short is made again.
void complete_waiting_takes() {
  tried_on = {};
  store_state least = usb_store_now();
  complete_take(paths::kTakeGuid, true);
  for (const std::string& path : set_aside_guid_files()) {
    if (is_recorder_held()) return;
    lower(&least);
    complete_take(path.c_str(), true);
  }
  lower(&least);
  tried_on = least;
}

// A take that cannot be completed although the store is there does not keep the next ones from being
// recorded: its guid goes aside. It is tried again when the store has more room, and by every start of the
// daemon.
void complete_again() {
  if (try_completion(true) || access(paths::kUsbTakes, W_OK) != 0) return;
  const std::string guid = read_guid(paths::kTakeGuid);
  const std::string aside = paths::kTakeGuid + ("." + (guid.empty() ? "unreadable" : guid));
  if (rename(paths::kTakeGuid, aside.c_str()) != 0) return;
  flush_folder_of(paths::kTakeGuid);
  trace(kTraceRecorder, "take set aside '%s'", guid.c_str());
}

// The internal file of the take that the guid file names, "" without one.
std::string requested_path() {
  const take t = take_in_work();
  if (!t.guid.empty()) return internal_take_path(t);
  trace(kTraceRecorder, "no guid");
  return "";
}

enum class beginning { recording, unwanted, failed };

// Starts ffmpeg; from then on the take runs.
beginning begin_take(const std::string& path, child_process* child) {
  const mutex_lock lock(recorder.child_lock);
  if (recorder.is_stop_wanted || recorder.is_closed || recorder.is_held) return beginning::unwanted;
  if (path.empty() || start_ffmpeg(path, child) != 0) return beginning::failed;
  recorder.child_pid = child->pid;
  recorder.is_child_ffmpeg = false;
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
    if (reason != 0) stop_take(reason, monotonic_ns());
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

// Runs the take from its start to its stop. False when ffmpeg was never there.
bool run_take(const std::string& path, const child_process& child) {
  orb_update_osd_recorder_activity(1);
  trace(kTraceRecorder, "started %d", child.pid);
  const int error = exec_error(child);
  if (error != 0) trace(kTraceRecorder, "rerror %d '%s'", -1, strerror(error));
  tell_child_what_holds();
  watch_until_stopped(path);
  trace(kTraceRecorder, "record stopped");
  keep_stopped_take();  // a mark or note that was being written is there; none is written to it any more
  orb_update_osd_recorder_activity(0);
  end_child(path);
  return error == 0;
}

void record_take() {
  trace(kTraceRecorder, "record starting");
  const std::string path = requested_path();
  child_process child;
  const beginning begun = begin_take(path, &child);
  if (begun == beginning::failed) {
    trace(kTraceRecorder, "error");
    recorder.error = 1;
  }
  if (begun != beginning::recording) return drop_take();
  const bool has_run = run_take(path, child);
  if (is_recorder_closed()) return;  // the next start completes it
  if (has_run) {
    try_completion(false);
  } else {
    drop_take();
    set_post_processing(0);
  }
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
  const int64_t size = file_size(path);
  if (size >= 0) return static_cast<uint64_t>(size);
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
  for (;;) {
    measure_stores();
    set_stage(recorder_stage::idle);
    switch (wait_for_work()) {
      case recorder_stage::take_requested:
        record_take();
        break;
      case recorder_stage::completion_requested:
        complete_again();
        break;
      default:
        complete_waiting_takes();
    }
    if (is_recorder_closed()) pause();
  }
}
