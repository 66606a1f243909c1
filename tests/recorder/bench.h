// What the recorder's tests share: the stores of takes, and a recorder that nothing else uses.
#pragma once

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

// A packet that is missing is a failure.
inline orb_xmp_fields metadata_of(const std::string& path) {
  orb_xmp_fields fields;
  EXPECT_EQ(orb_xmp_read(path.c_str(), &fields), 0) << path;
  return fields;
}

inline void make_video(const std::string& path, const std::string& options) {
  shell_first_line(
      "ffmpeg -v error -f lavfi -i testsrc=" + options + " " + shell_quoted(path) + " </dev/null", 1);
}
