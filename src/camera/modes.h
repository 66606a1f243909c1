// The kept focus and exposure modes. Any thread.
#pragma once

enum class camera_mode { automatic, manual };

camera_mode kept_focus_mode();
camera_mode kept_exposure_mode();

// "auto" or "manual".
const char* mode_text(camera_mode mode);

// Keep the mode and write it to "/tmp/focus_mode" or "/tmp/exposure_mode". No command is sent.
void keep_focus_mode(camera_mode mode);
void keep_exposure_mode(camera_mode mode);
