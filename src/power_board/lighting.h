// The lights as the operator sees them: the LED setting and its intensity. Any thread.
#pragma once

inline constexpr int kStartIntensity = 25;  // percent

// Writes register 1 with the current LED setting and the low byte of `value`, and `value` to
// "/tmp/intensity".
void orb_set_api_led_intensity(int value);

// Lights off, at the start intensity.
void reset_lighting();
