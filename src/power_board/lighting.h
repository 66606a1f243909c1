// The lights as the operator sees them: LED mode, intensity and the high beam, which goes out by itself. Any
// thread; the board is told through power_board_instance and need not be there.
#pragma once

#include <cstdint>

inline constexpr int kStartIntensity = 25;  // percent
inline constexpr int kMaximumIntensity = 100;

struct lighting_values {
  const char* mode = "off";   // "off", "low", "medium", "high", "strip", "all" (high beam)
  int high_beam_seconds = 0;  // left of the high beam
};

lighting_values load_lighting();

// The intensity in "/tmp/intensity" as "25%"; empty when that is missing.
struct intensity_text {
  char text[16] = "";
};
intensity_text load_led_intensity();

// The intensity that the board last reported; the start intensity before there is a board.
uint8_t reported_intensity();

// Selects "off", "low", "medium", "high" or "strip" at `intensity`; a running high beam ends first. 0, or -1
// for another word.
int set_leds(const char* mode, uint8_t intensity);

// The same at the intensity in "/tmp/intensity", or the last reading when that is missing.
int set_led_mode(const char* mode);

// Writes register 1 with the current LED setting and the low byte of `value`, and `value` to
// "/tmp/intensity".
void orb_set_api_led_intensity(int value);

// All LEDs on for the high-beam time; what was before comes back afterwards. "on" while on and "off" while
// off do nothing.
void set_high_beam(bool on);

// The high beam's time, 0 to 30 s, saved as setting 18; -1, and no change, for any other. With 0 the next
// tick ends the beam.
int high_beam_time();
int set_high_beam_time(int seconds);

// One second of the high beam: counts down, and restores what was before at the end. Main loop; tests call
// it.
void tick_high_beam();

// Lights off, at the start intensity.
void reset_lighting();

// Mode "off", no high beam; its time from setting 18. HTTP server thread, at its start.
void init_lighting();
