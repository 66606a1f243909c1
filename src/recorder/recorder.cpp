#include "recorder/recorder.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>

#include "base/clock.h"
#include "base/file.h"
#include "base/json.h"
#include "base/paths.h"
#include "base/space.h"
#include "base/text.h"
#include "base/thread.h"
#include "base/trace.h"
#include "recorder/ffmpeg.h"
#include "recorder/finished_takes.h"
#include "recorder/metadata.h"
#include "recorder/recorder_state.h"
#include "recorder/recording_worker.h"
#include "recorder/stopped_take.h"
#include "recorder/take.h"
#include "store/texts.h"

constinit recorder_state recorder;

namespace {

// KiB that a start needs.
constexpr uint64_t kStartEmmc_kb = 80'000;
constexpr uint64_t kStartUsb_kb = 100'000;

constexpr int64_t kStartWait_ms = 5;  // for the worker to have started ffmpeg
constexpr uint32_t kLongestSaveDelay_ms = 5000;
constexpr char kNamelessTake[] = "ORB";

constexpr int64_t kCloseStep_ms = 10;
constexpr int kCloseSteps = 1500;

void make_folder(const char* path) {
  if (make_missing_folder(path)) trace(kTraceRecorder, "create '%s'", path);
}

bool change_stage(recorder_stage from, recorder_stage to) {
  const mutex_lock lock(recorder.stage_lock);
  if (recorder.stage != from) return false;
  recorder.stage = to;
  recorder.stage_changed.signal();
  return true;
}

bool has_room() {
  measure_stores();
  const uint64_t emmc = recorder.emmc_kb;
  const uint64_t usb = recorder.usb_kb;
  trace(kTraceRecorder, "start %ld %ld", static_cast<long>(emmc), static_cast<long>(usb));
  return emmc >= kStartEmmc_kb && usb >= kStartUsb_kb;
}

// The note that waits for the next take, cut at the end of a character.
std::string read_video_note() {
  char note[kNoteLimit + 1];
  copy_text(note, sizeof note, read_first_line(paths::kVideoNote, sizeof note).value_or(""));
  return as_utf8(note);
}

// Moves the start time on until no file of another take has the name.
void choose_start_time(take* t) {
  for (int k = 0;; ++k) {
    t->start_time = local_time_text(k);
    const bool is_free = !exists(usb_take_path(*t)) && !exists(internal_take_path(*t)) &&
                         !exists(caption_path(*t));  // all that is left of a take without a picture
    if (is_free) return;
    trace(kTraceRecorder, "start dup adjust %d", k);
  }
}

take next_take() {
  const recorder_texts texts = copy_recorder_texts();
  take t;
  t.name = texts.filename[0] != '\0'      ? texts.filename
           : texts.operator_id[0] != '\0' ? texts.operator_id
                                          : kNamelessTake;
  t.asset_id = texts.title;
  choose_start_time(&t);
  t.guid = make_guid();
  t.note = read_video_note();
  return t;
}

void truncate_file(const char* path) {
  const unique_fd fd(open(path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NONBLOCK, 0644));
}

// The guid file comes last: a guid always has its description.
bool store_guid(const std::string& guid) {
  if (!replace_file(paths::kTakeGuid, guid)) return false;
  trace(kTraceRecorder, "store guid file");
  truncate_file(paths::kSaveTimes);
  truncate_file(paths::kImageNotes);
  return true;
}

// What the recorder is at afterwards. A take that cannot be described leaves it in its preparation: no take
// starts until the next start of the daemon. On purpose.
recorder_stage store_take(const take& t) {
  if (!save_description(t, "", json_owner(json_object_new_array()))) return recorder_stage::preparing;
  if (!store_guid(t.guid)) {
    remove(description_path(t.guid).c_str());
    flush_folder_of(description_path(t.guid).c_str());
    return recorder_stage::idle;
  }
  remove(paths::kVideoNote);  // the take has it
  return recorder_stage::take_requested;
}

recorder_stage prepare_take() {
  const mutex_lock lock(recorder.notes_lock);
  const take t = next_take();
  const recorder_stage next = store_take(t);
  if (next == recorder_stage::take_requested)  // and the marks are no other's
    copy_text(recorder.open_take, sizeof recorder.open_take, t.guid);
  return next;
}

// Whoever stops the take, and whenever it is kept: what is given from now on is the next one's.
void remember_texts() {
  const orb_xmp_fields texts = metadata_texts_now();
  const mutex_lock lock(recorder.stop_lock);
  recorder.stopped_texts = texts;
}

void signal_child(int number) REQUIRES(recorder.child_lock) {
  if (recorder.child_pid > 0 && recorder.is_child_ffmpeg) kill(recorder.child_pid, number);
}

// A stop that came before a start was asked for is not for its take; false when one has come since.
bool forget_stops(int64_t asked_ns) {
  const mutex_lock lock(recorder.child_lock);
  if (recorder.stopped_ns > asked_ns) return false;
  recorder.is_stop_wanted = false;
  return true;
}

int set_paused(int paused) {
  const mutex_lock lock(recorder.child_lock);
  if (recorder.recording == 0 || recorder.paused == paused) return -1;
  trace(kTraceRecorder, paused != 0 ? "pause" : "resume");
  signal_child(paused != 0 ? SIGSTOP : SIGCONT);
  recorder.paused = paused;
  return 0;
}

}  // namespace

void measure_stores() {
  recorder.emmc_kb = free_kb(paths::kInternalTakes);
  recorder.usb_kb = free_kb(paths::kUsbTakes);
}

bool is_recorder_closed() {
  const mutex_lock lock(recorder.child_lock);
  return recorder.is_closed;
}

bool is_recorder_held() {
  const mutex_lock lock(recorder.child_lock);
  return recorder.is_closed || recorder.is_held;
}

void hold_recorder_starts(bool held) {
  const mutex_lock lock(recorder.child_lock);
  recorder.is_held = held;
}

bool is_recorder_busy() {
  const mutex_lock lock(recorder.stage_lock);
  return recorder.stage != recorder_stage::idle && recorder.stage != recorder_stage::preparing;
}

bool is_recorder_child_running() {
  const mutex_lock lock(recorder.child_lock);
  return recorder.child_pid >= 0;
}

bool stop_take(int reason, int64_t asked_ns) {
  const mutex_lock lock(recorder.child_lock);
  recorder.is_stop_wanted = true;
  recorder.stopped_ns = std::max(recorder.stopped_ns, asked_ns);
  if (recorder.recording == 0) return false;
  trace(kTraceRecorder, "stop %d", reason);
  remember_texts();
  recorder.post_processing = 1;
  recorder.recording = 0;
  recorder.paused = 0;
  recorder.error = 0;
  if (recorder.child_pid > 0 && recorder.is_child_ffmpeg) end_ffmpeg(recorder.child_pid);
  return true;
}

void tell_child_what_holds() {
  const mutex_lock lock(recorder.child_lock);
  recorder.is_child_ffmpeg = true;
  if (recorder.recording == 0) return end_ffmpeg(recorder.child_pid);
  if (recorder.paused != 0) signal_child(SIGSTOP);
}

void orb_create_recorder() {
  make_folder(paths::kVideos);
  make_folder(paths::kInternalTakes);
  make_folder(paths::kUsbTakes);
  remove(paths::kXmpTemporary);  // of a write that a power cut has ended
  orb_xmp_end_interrupted(paths::kUsbTakes);
  measure_stores();
  start_take_file_workers();
  start_detached_thread("recorder", recording_worker, nullptr);
}

void close_recorder() {
  {
    const mutex_lock lock(recorder.child_lock);
    recorder.is_closed = true;
  }
  stop_take(kStopByRequest, monotonic_ns());
  for (int step = 0; step < kCloseSteps && is_recorder_child_running(); ++step) sleep_ms(kCloseStep_ms);
}

int orb_start_recorder() { return start_recorder(monotonic_ns()); }

int start_recorder(int64_t asked_ns) {
  if (recorder.recording != 0 || recorder.post_processing != 0 || is_recorder_held()) return -1;
  if (!change_stage(recorder_stage::idle, recorder_stage::preparing)) return -1;
  if (!forget_stops(asked_ns)) return change_stage(recorder_stage::preparing, recorder_stage::idle), -1;
  if (exists(paths::kTakeGuid)) {
    change_stage(recorder_stage::preparing, recorder_stage::completion_requested);
    return -1;
  }
  const recorder_stage next = has_room() ? prepare_take() : recorder_stage::idle;
  change_stage(recorder_stage::preparing, next);
  if (next == recorder_stage::take_requested) sleep_ms(kStartWait_ms);
  return recorder.error == 0 && recorder.recording != 0 ? 0 : -1;
}

int orb_stop_recorder() { return stop_recorder(monotonic_ns()); }
int stop_recorder(int64_t asked_ns) { return stop_take(kStopByRequest, asked_ns) ? 0 : -1; }

// While a take is only about to begin there is nothing to keep.
void keep_stopped_take() {
  const mutex_lock lock(recorder.notes_lock);
  if (recorder.open_take[0] == '\0' || recorder.recording != 0 || recorder.post_processing == 0) return;
  if (!save_stopped_take(recorder.open_take, last_stopped_take()))
    return trace(kTraceRecorder, "stop not kept %d", errno);
  recorder.open_take[0] = '\0';
}

int orb_pause_recorder() { return set_paused(1); }
int orb_resume_recorder() { return set_paused(0); }

void orb_service_recorder_watchdog() {
  const mutex_lock lock(recorder.watchdog_lock);
  recorder.watchdog_ms = kWatchdog_ms;
}

int orb_get_recorder_recording() { return recorder.recording; }
int orb_get_recorder_paused() { return recorder.paused; }
int orb_get_recorder_post_processing() { return recorder.post_processing; }
void measure_idle_stores() {
  if (recorder.recording == 0) measure_stores();
}

uint64_t orb_get_recorder_emmc_kb() { return recorder.emmc_kb; }
uint64_t orb_get_recorder_usb_kb() { return recorder.usb_kb; }
uint64_t recorder_take_kb() { return recorder.take_kb; }

uint32_t orb_get_recorder_save_delay() { return recorder.save_delay_ms; }

int orb_set_recorder_save_delay(uint32_t delay_ms) {
  if (delay_ms > kLongestSaveDelay_ms) return -1;
  recorder.save_delay_ms = delay_ms;
  return 0;
}
