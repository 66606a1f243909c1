#include "camera/modes.h"

#include <atomic>

#include "base/paths.h"
#include "base/value_file.h"

namespace {

std::atomic<camera_mode> focus_mode = camera_mode::automatic;
std::atomic<camera_mode> exposure_mode = camera_mode::automatic;

}  // namespace

camera_mode kept_focus_mode() { return focus_mode; }

camera_mode kept_exposure_mode() { return exposure_mode; }

const char* mode_text(camera_mode mode) { return mode == camera_mode::manual ? "manual" : "auto"; }

void keep_focus_mode(camera_mode mode) {
  focus_mode = mode;
  write_value_file(paths::kFocusMode, mode_text(mode));
}

void keep_exposure_mode(camera_mode mode) {
  exposure_mode = mode;
  write_value_file(paths::kExposureMode, mode_text(mode));
}
