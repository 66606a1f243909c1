#include "recorder/marks.h"

#include <cerrno>
#include <cstdio>
#include <ctime>

#include "base/clock.h"
#include "base/trace.h"
#include "recorder/mark_files.h"
#include "recorder/metadata.h"
#include "recorder/recorder_state.h"

namespace {

bool can_mark() REQUIRES(recorder.notes_lock) { return recorder.recording != 0 && recorder.paused == 0; }

std::string offset_now() {
  return mark_offset_text(monotonic_ns() - recorder.started_ns +
                          recorder.save_delay_ms * kNanosecondsPerMillisecond);
}

// Without the file of offsets the note is written all the same: the stills pair what lines there are.
int add_mark() REQUIRES(recorder.notes_lock) {
  const std::string offset = offset_now();
  const int64_t offsets = append_line(kOffsets, offset);
  if (offsets < 0 && errno != ENOENT) return -1;
  if (offsets >= 0) trace(kTraceRecorder, "save offset %s %ld", offset.c_str(), static_cast<long>(offsets));
  const int64_t notes = append_line(kNotes, waiting_note(paths::kImageNote));
  if (notes < 0) {
    if (offsets >= 0) cut_last_line(kOffsets, cut::removes);
    return -1;
  }
  trace(kTraceRecorder, "save note %ld", static_cast<long>(notes));
  remove(paths::kImageNote);
  return 0;
}

}  // namespace

// The hours are those of local time, and so shift with the zone: on purpose.
std::string mark_offset_text(int64_t offset_ns) {
  const int64_t milliseconds = offset_ns / kNanosecondsPerMillisecond;
  const tm local = local_time(milliseconds / 1000);
  char text[64];
  snprintf(text, sizeof text, "%02d:%02d:%02d.%03d", local.tm_hour, local.tm_min, local.tm_sec,
           static_cast<int>(milliseconds % 1000));
  return text;
}

int orb_save_recorder_image() {
  const mutex_lock lock(recorder.notes_lock);
  return can_mark() ? add_mark() : -1;
}

int orb_remove_recorder_image() {
  const mutex_lock lock(recorder.notes_lock);
  if (!can_mark()) return -1;
  return cut_last_line(kOffsets, cut::removes) && cut_last_line(kNotes, cut::removes) ? 0 : -1;
}
