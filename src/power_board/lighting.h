// The lights as the operator sees them: LED mode, intensity and the high beam, which goes out by itself. The
// board is told through power_board_instance and need not be there. What the LEDs were last given is in its
// record (power_board.h), which sees to it that the board has it. Any thread.
#pragma once

#include <cstdint>
#include <optional>

struct ev_loop;
struct orb_power_board;

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

// Selects "off", "low", "medium", "high" or "strip" at the intensity in "/tmp/intensity", or at the present
// one when that is missing; a running high beam ends first. 0, or -1 for another word.
int set_led_mode(const char* mode);

// As the version-1.0 routes have it: `intensity`, kept inside 0 to 100, is stored in "/tmp/intensity", and
// the mode selected at it. Without one, and always for "strip", at the present intensity; "off" at 0. A null
// mode only stores.
void set_v1_leds(const char* mode, std::optional<int> intensity);

// What the command pipe asks: one byte is set, the other stays as it was last given (before that as the board
// reports it). Mode and high beam are not touched.
void set_led_mask(orb_power_board* board, uint8_t mask);
void set_led_pwm(orb_power_board* board, uint8_t pwm);

// Writes register 1 with the current LED setting and the low byte of `value`, and `value` to
// "/tmp/intensity".
void orb_set_api_led_intensity(int value);

// The same with the number in "/tmp/intensity" and `step` more: upwards to at most 100, downwards to at least
// 0. Traced at the intensity loop's level. Nothing when the file is missing or the number stays.
void step_led_intensity(int step);

// All LEDs on for the high-beam time; what was before comes back afterwards. "on" while on and "off" while
// off do nothing.
void set_high_beam(bool on);

// Ends the beam with the daemon, and refuses another. Before the board is destroyed.
void close_high_beam();

// Lets `loop` count the beam down, also one that is on already. Once. Start-up.
void start_high_beam_timer(struct ev_loop* loop);
// A beam that is lit from now on does not touch the loop, which can be destroyed. Main loop, when it has
// ended.
void stop_high_beam_timer();

// The high beam's time, 0 to 30 s, saved as setting 18; -1, and no change, for any other. With 0 the next
// tick ends the beam.
int high_beam_time();
bool is_high_beam_time(int seconds);
int set_high_beam_time(int seconds);

// One second of the high beam: counts down, and restores what was before at the end. Main loop.
void tick_high_beam();

// Lights off, at the start intensity.
void reset_lighting();

// Mode "off", no high beam; its time from setting 18. HTTP thread, at its start.
void init_lighting();
