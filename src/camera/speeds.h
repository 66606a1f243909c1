// The operator's focus and zoom speeds, 0 to 7, as the speed files hold them.
#pragma once

inline constexpr int kMaximumSpeed = 7;
inline constexpr int kDefaultZoomSpeed = 3;
inline constexpr int kDefaultFocusSpeed = 2;

// What a client is shown for a missing file.
inline constexpr int kMissingZoomSpeed = 0;
inline constexpr int kMissingFocusSpeed = -1;

// The speed in `path`; `absent` when the file is missing or holds a number outside 0 to 7. Any thread.
int read_speed(const char* path, int absent);
