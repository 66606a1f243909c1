// What the recorder's sources share: what it is at, and who may change it. Each word says its lock; the
// atomics may be read by anyone.
#pragma once

#include <sys/types.h>

#include <atomic>
#include <cstdint>

#include "base/mutex.h"
#include "recorder/take.h"
#include "xmp/xmp.h"

inline constexpr int kWatchdog_ms = 30'000;

// What the recorder is at. A start takes it from idle without ever waiting.
enum class recorder_stage {
  recovering,  // what was interrupted is being completed
  idle,
  preparing,             // a start writes its take's files
  take_requested,        // of the worker
  completion_requested,  // of the worker: a take that still waits
  working,               // the worker records or completes
};

// Why a take is stopped, as traced.
inline constexpr int kStopByRequest = 1;
inline constexpr int kStopByWatchdog = 2;
inline constexpr int kStopByLowSpace = 3;

struct recorder_state {
  mutex stage_lock;
  condition stage_changed;
  recorder_stage stage GUARDED_BY(stage_lock) = recorder_stage::recovering;

  std::atomic<int> recording = 0;
  std::atomic<int> paused = 0;
  std::atomic<int> post_processing = 0;  // set before `recording` is cleared, so that no gap looks idle
  std::atomic<int> error = 0;            // the last start failed
  std::atomic<uint64_t> emmc_kb = 0;
  std::atomic<uint64_t> usb_kb = 0;
  std::atomic<uint64_t> take_kb = 0;
  std::atomic<uint32_t> save_delay_ms = 1000;
  std::atomic<int64_t> started_ns = 0;  // monotonic, so that setting the clock moves no mark

  // Marks and notes, the waiting ones too, and the running take's description: who writes one looks at
  // `recording` under it, and the worker takes it once between the end of a take and its completion.
  mutex notes_lock;
  // The guid of the last take; "" when what it was at its stop is kept.
  char open_take[kGuidLength + 1] GUARDED_BY(notes_lock) = "";

  // Whoever clears `recording` asks the child to end; pause and resume signal under the same lock, or a late
  // SIGSTOP would cost the take.
  mutex child_lock;
  pid_t child_pid GUARDED_BY(child_lock) = -1;          // -1 when there is none to be reaped
  bool is_child_ffmpeg GUARDED_BY(child_lock) = false;  // before it holds copies of the daemon's sockets
  bool is_stop_wanted GUARDED_BY(child_lock) = false;   // of a take that has not begun yet
  int64_t stopped_ns GUARDED_BY(child_lock) = 0;        // when the last stop was wished
  bool is_closed GUARDED_BY(child_lock) = false;
  bool is_held GUARDED_BY(child_lock) = false;  // the unit is about to end

  mutex watchdog_lock;
  int watchdog_ms GUARDED_BY(watchdog_lock) = 0;

  mutex stop_lock;
  orb_xmp_fields stopped_texts GUARDED_BY(stop_lock);  // as they were at the last stop of a take
};

extern recorder_state recorder;

// Measures the stores' free space. Waits for them.
void measure_stores();

// Whether the daemon is about to end.
bool is_recorder_closed();

// Whether no take is started: the daemon or the unit is about to end.
bool is_recorder_held();

// Clears `recording` and asks the child to end. False when nothing was recorded. `asked_ns` (monotonic) is
// when it was wished.
bool stop_take(int reason, int64_t asked_ns);

// Tells the child, which has become ffmpeg, what it was told before: a stop or a pause. Until then a stop
// would shut the daemon's own sockets. Recording worker.
void tell_child_what_holds();

// Percent copied of the take that is being completed, 1 to 100; 0 when none is. Recording worker.
void set_post_processing(int value);
