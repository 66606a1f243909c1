#include "power_board/lighting.h"

#include <ev.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <optional>

#include "app/main_loop.h"
#include "app/trace.h"
#include "base/mutex.h"
#include "base/paths.h"
#include "base/value_file.h"
#include "power_board/power_board.h"
#include "store/settings.h"

namespace {

constexpr double kTick_s = 1.0;
constexpr uint8_t kHighBeamPwm = 100;
constexpr int kDefaultHighBeamTime_s = 15;
constexpr int kMaximumHighBeamTime_s = 30;

struct led_mode {
  const char* name;
  uint8_t mask;
};

constexpr led_mode kModes[] = {
    {"off", kLedOff}, {"low", kLedLow}, {"medium", kLedMedium}, {"high", kLedHigh}, {"strip", kLedStrip}};
constexpr led_mode kHighBeam{"all", kLedAll};

struct lighting_state {
  const led_mode* mode = &kModes[0];
  const led_mode* saved_mode = &kModes[0];  // what comes back after the high beam
  led_setting saved_leds;
  int countdown_s = 0;
};

mutex lighting_lock;
lighting_state lighting GUARDED_BY(lighting_lock);
int high_beam_time_s GUARDED_BY(lighting_lock) = kDefaultHighBeamTime_s;

ev_timer high_beam_timer;     // main loop
bool is_timer_ready = false;  // main loop

bool is_high_beam_time(int seconds) { return seconds >= 0 && seconds <= kMaximumHighBeamTime_s; }

bool is_high_beam() REQUIRES(lighting_lock) { return lighting.mode == &kHighBeam; }

// Not always those of the mode: the command pipe sets them past it.
led_setting leds_now() {
  orb_power_board* board = power_board_now();
  return board == nullptr ? led_setting{} : current_leds(board);
}

void write_leds(const led_setting& leds) REQUIRES(lighting_lock) {
  orb_power_board* board = power_board_now();
  if (board != nullptr) orb_power_board_enable_led_power(board, leds.mask, leds.pwm);
}

void show_mode(const led_mode* mode, const led_setting& leds) REQUIRES(lighting_lock) {
  lighting.mode = mode;
  write_leds(leds);
  write_value_file(paths::kLighting, mode->name);
}

// The timer belongs to the main loop: it is brought in line with the state there.
void follow_high_beam();

void end_high_beam() REQUIRES(lighting_lock) {
  lighting.countdown_s = 0;
  post_to_main_loop(follow_high_beam);
}

void restore_lights() REQUIRES(lighting_lock) {
  end_high_beam();
  show_mode(lighting.saved_mode, lighting.saved_leds);
}

void on_high_beam_timer(struct ev_loop*, ev_timer*, int) { tick_high_beam(); }

void follow_high_beam() {
  if (!is_timer_ready) {
    ev_timer_init(&high_beam_timer, on_high_beam_timer, kTick_s, kTick_s);
    is_timer_ready = true;
  }
  struct ev_loop* loop = ev_default_loop(0);
  ev_timer_stop(loop, &high_beam_timer);
  const mutex_lock lock(lighting_lock);
  if (!is_high_beam()) return;
  ev_timer_set(&high_beam_timer, kTick_s, kTick_s);
  ev_timer_start(loop, &high_beam_timer);
}

const led_mode* find_mode(const char* name) {
  for (const led_mode& mode : kModes) {
    if (strcmp(mode.name, name) == 0) return &mode;
  }
  return nullptr;
}

// The intensity for a mode: the operator's, or what the board last reported.
uint8_t current_intensity() {
  if (const std::optional<int> value = read_value_file(paths::kIntensity)) {
    return static_cast<uint8_t>(std::clamp(*value, 0, kMaximumIntensity));
  }
  return reported_intensity();
}

void apply_intensity(uint8_t mask, int value) REQUIRES(lighting_lock) {
  write_leds({mask, static_cast<uint8_t>(value & 0xFF)});
  write_value_file(paths::kIntensity, value);
}

}  // namespace

lighting_values load_lighting() {
  const mutex_lock lock(lighting_lock);
  return {lighting.mode->name, lighting.countdown_s};
}

intensity_text load_led_intensity() {
  intensity_text result;
  const std::optional<int> value = read_value_file(paths::kIntensity);
  if (value) snprintf(result.text, sizeof result.text, "%d%%", *value);
  return result;
}

uint8_t reported_intensity() {
  orb_power_board* board = power_board_now();
  if (board == nullptr) return kStartIntensity;
  power_board_readings readings;
  orb_power_board_load_registers(board, &readings);
  return readings.led_pwm;
}

int set_led_mode(const char* name) { return set_leds(name, current_intensity()); }

int set_leds(const char* name, uint8_t intensity) {
  const led_mode* mode = find_mode(name);
  if (mode == nullptr) return -1;
  const mutex_lock lock(lighting_lock);
  if (is_high_beam()) end_high_beam();
  show_mode(mode, {mode->mask, intensity});
  return 0;
}

void orb_set_api_led_intensity(int value) {
  const mutex_lock lock(lighting_lock);
  apply_intensity(leds_now().mask, value);
}

void set_high_beam(bool on) {
  const mutex_lock lock(lighting_lock);
  if (on == is_high_beam()) return;
  if (!on) {
    restore_lights();
    return;
  }
  lighting.saved_mode = lighting.mode;
  lighting.saved_leds = leds_now();
  lighting.countdown_s = high_beam_time_s;
  show_mode(&kHighBeam, {kHighBeam.mask, kHighBeamPwm});
  post_to_main_loop(follow_high_beam);
}

int high_beam_time() {
  const mutex_lock lock(lighting_lock);
  return high_beam_time_s;
}

// Saved outside the lock, which the main loop's tick takes.
int set_high_beam_time(int seconds) {
  if (!is_high_beam_time(seconds)) return -1;
  orb_write_nv(kSettingHighBeamTime, &seconds, sizeof seconds);
  const mutex_lock lock(lighting_lock);
  high_beam_time_s = seconds;
  return 0;
}

void tick_high_beam() {
  const mutex_lock lock(lighting_lock);
  if (!is_high_beam()) return;
  if (--lighting.countdown_s > 0) return;
  trace(kTracePowerBoard, "high beam timeout");
  restore_lights();
}

void reset_lighting() {
  const mutex_lock lock(lighting_lock);
  if (is_high_beam()) end_high_beam();
  lighting.mode = &kModes[0];
  apply_intensity(kLedOff, kStartIntensity);
}

void init_lighting() {
  int seconds = 0;
  orb_read_nv(kSettingHighBeamTime, &seconds, sizeof seconds);
  const mutex_lock lock(lighting_lock);
  lighting = {};
  high_beam_time_s = is_high_beam_time(seconds) ? seconds : kDefaultHighBeamTime_s;
}
