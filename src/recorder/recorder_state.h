// What the recorder's sources share.
#pragma once

#include <sys/types.h>

#include <atomic>
#include <string>
#include <string_view>

#include "base/json.h"
#include "base/mutex.h"
#include "recorder/recorder.h"
#include "recorder/stopped_take.h"
#include "recorder/take.h"
#include "xmp/xmp.h"

inline constexpr size_t kNoteLimit = 511;  // bytes of a note with its newline
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

struct recorder_texts {
  char title[kRecorderTextSize] = "";
  char operator_id[kRecorderTextSize] = "";
  char flow_direction[kFlowDirectionSize] = "";
  char filename[kRecorderTextSize] = "";
  char model_name[16] = "";
  char serial_number[16] = "";
};

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
  pid_t child_pid GUARDED_BY(child_lock) = -1;         // -1 when there is none to be reaped
  bool is_stop_wanted GUARDED_BY(child_lock) = false;  // of a take that has not begun yet
  bool is_closed GUARDED_BY(child_lock) = false;
  bool is_held GUARDED_BY(child_lock) = false;  // the unit is about to end

  mutex watchdog_lock;
  int watchdog_ms GUARDED_BY(watchdog_lock) = 0;

  mutex texts_lock;
  recorder_texts texts GUARDED_BY(texts_lock);
  orb_xmp_fields stopped_texts GUARDED_BY(texts_lock);  // as they were at the last stop of a take
};

extern recorder_state recorder;

recorder_texts copy_recorder_texts();

// Free space of a store in KiB, 0 (traced) when it cannot be read.
uint64_t free_kb(const char* folder);

// The largest file that a store can hold, in KiB: vfat ends below 4 GiB.
uint64_t largest_file_kb(const char* folder);
void measure_stores();

// Whether the USB store takes a file of `size` bytes, for which one of `replaced` bytes goes, and has 1 MiB
// left: for descriptions and the service log, which share it.
bool has_usb_room(int64_t size, int64_t replaced = 0);

// Whether the daemon is about to end.
bool is_recorder_closed();

// Whether no take is started: the daemon or the unit is about to end.
bool is_recorder_held();

// Clears `recording` and asks the child to end. False when nothing was recorded.
bool stop_take(int reason);

// Completes the take that a guid file names: stills, caption, copy, metadata, description, and the end of
// guid and internal file. One that was not stopped in order gets no stills. `start_up`: an ffmpeg that was
// left may still write it. False when the take still waits. Recording worker.
bool complete_take(const char* guid_path, bool start_up);

// Takes back the take that the guid file names and that ffmpeg was never started for: guid, description, and
// its note waits for the next one. Recording worker.
void drop_take();

// Cuts a still for each mark, unless it is there, and adds it to `files`. False when the store is too full
// for one: it can be made later. Recording worker.
bool make_stills(const take& t, const stopped_take& stopped, json_object* files);

// Adds the take's stills that are on the store to `files`; what is left of one that an interruption has ended
// goes. Recording worker.
void list_found_stills(const take& t, json_object* files);

// How far into a take its mark is, as it is written: "HH:MM:SS.mmm".
std::string mark_offset_text(int64_t offset_ns);

// The note that waits in a file for the next take or mark, one line without its newline; "" without one.
std::string waiting_note(const char* path);

// The texts and the location that hold now, as metadata.
orb_xmp_fields metadata_texts_now();

// The metadata of a take or still.
orb_xmp_fields make_metadata(orb_xmp_fields texts, std::string_view start_time, std::string_view note);

void set_post_processing(int value);

// The recording worker's thread.
void* recording_worker(void*);

// One look at a running take, every 0.1 s: the reason to stop it, or 0.
struct take_watch {
  std::string path;  // of the internal file
  int ticks = 0;     // since the stores were last looked at
};
int watch_take(take_watch& watch);
