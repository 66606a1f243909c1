// What the recorder's tests share: the stores of takes, and a recorder that nothing else uses.
#pragma once

#include <sys/mount.h>
#include <sys/stat.h>

#include "base/child_process.h"
#include "base/clock.h"
#include "base/text.h"
#include "base/trace_reader.h"
#include "recorder/completion.h"
#include "recorder/metadata.h"
#include "recorder/recorder.h"
#include "recorder/recorder_state.h"
#include "recorder/recording_worker.h"
#include "recorder/stills.h"
#include "recorder/stopped_take.h"
#include "recorder/take.h"
#include "store/texts.h"
#include "tests/files.h"

inline const std::string kGuid = "0f7e3a52-8d5c-11ef-9c1a-0242ac120002";

inline void clear_stores() {
  for (const char* folder : {paths::kInternalTakes, paths::kUsbTakes})
    fs::remove_all(folder), fs::create_directories(folder);
}

inline void set_stage(recorder_stage stage) {
  const mutex_lock lock(recorder.stage_lock);
  recorder.stage = stage;
}

inline void make_video(const std::string& path, const std::string& options) {
  shell_first_line(
      "ffmpeg -v error -f lavfi -i testsrc=" + options + " " + shell_quoted(path) + " </dev/null", 1);
}
