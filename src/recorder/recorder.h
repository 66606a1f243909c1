// The recorder: takes of the camera's stream, written by ffmpeg as a child process to the internal store and,
// when a take has ended, completed on the USB store. One take at a time. All operations may be called on any
// thread, and none waits but for a store's writes; what takes long is done by the recording worker.
#pragma once

#include <cstdint>

// Free KiB below which a running take is ended.
inline constexpr uint64_t kLowEmmc_kb = 10'000;
inline constexpr uint64_t kLowUsb_kb = 30'000;

// Makes the stores' folders and starts the workers of files and the recording worker, which
// first completes what a power cut has interrupted. Called once, at start-up; takes can be started when that
// has ended.
void orb_create_recorder();

// Ends a running take and waits, at most 15 s, until its ffmpeg has ended: the process may exit then, and the
// next start completes the take. No take is started any more. Main thread.
void close_recorder();

// Starts a take. 0 when it records; -1 when the recorder is busy, a take still awaits its completion (which
// this triggers), starts are held, the stores are too full (80,000 KiB internal and 100,000 KiB USB are
// needed), or ffmpeg is slow to start (the take records then all the same).
int orb_start_recorder();

// Ends the take, also one that a start has just asked for; -1 when none records. Texts and location that are
// given from then on are the next take's. Never waits.
int orb_stop_recorder();

// The same for who wished it at `asked_ns` (monotonic) and had to wait: -1 for a start when a stop has been
// wished since.
int start_recorder(int64_t asked_ns);
int stop_recorder(int64_t asked_ns);

// After a stop: the take's texts, as they were then, and marks are on the disk. The worker does it too, some
// 0.1 s later, and again with each try to complete the take until it succeeds.
void keep_stopped_take();

// The take goes on without its picture: the stream is not read. -1 unless it records and is not paused.
int orb_pause_recorder();

// -1 unless it records and is paused.
int orb_resume_recorder();

// The controller lives: a take that nobody serves for 30 s is ended.
void orb_service_recorder_watchdog();

// Who asks whether the recorder is idle reads `recording` first: the other way round a take that is just
// ending would look idle.
int orb_get_recorder_recording();
int orb_get_recorder_paused();

// Whether a take is about to begin, recorded, or completed, also one that an interruption has left.
bool is_recorder_busy();

// Held, no take is started: the unit is about to end.
void hold_recorder_starts(bool held);

// Whether a take's ffmpeg has not ended yet: a power cut, or a second signal, would cost the file its index.
bool is_recorder_child_running();

// 0, or while a take is being completed 1 to 100: percent copied.
int orb_get_recorder_post_processing();

// Free space as last measured, in KiB; the USB store's less the running take.
uint64_t orb_get_recorder_emmc_kb();
uint64_t orb_get_recorder_usb_kb();

// Measures it for an idle unit; a running take does so itself. Waits for the stores: not on the main loop.
void measure_idle_stores();

// Size of the running take as last measured, in KiB; 0 when there is none.
uint64_t recorder_take_kb();

// How long after its request a still is cut, in ms. -1, and no change, above 5000.
uint32_t orb_get_recorder_save_delay();
int orb_set_recorder_save_delay(uint32_t delay_ms);
