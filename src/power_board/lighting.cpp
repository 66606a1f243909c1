#include "power_board/lighting.h"

#include <ev.h>

#include <algorithm>
#include <climits>
#include <cstdio>
#include <iterator>
#include <optional>
#include <string_view>

#include "base/mutex.h"
#include "base/paths.h"
#include "base/trace.h"
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

// What the LEDs count as before they have been given anything, whatever the board reports: it may show the
// beam of a run that was killed.
constexpr led_setting kStartLeds{kLedOff, kStartIntensity};

struct lighting_state {
  const led_mode* mode = &kModes[0];
  const led_mode* saved_mode = &kModes[0];  // what comes back after the high beam
  led_setting saved_leds = kStartLeds;
  int countdown_s = 0;
};

mutex lighting_lock;
lighting_state lighting GUARDED_BY(lighting_lock);
int high_beam_time_s GUARDED_BY(lighting_lock) = kDefaultHighBeamTime_s;
bool is_closed GUARDED_BY(lighting_lock) = false;  // no high beam any more

struct ev_loop* main_loop GUARDED_BY(lighting_lock) = nullptr;  // null before its start and after its end
ev_async beam_changed;                                          // main loop
ev_timer high_beam_timer;  // main loop: it is brought in line with the state there

bool is_high_beam() REQUIRES(lighting_lock) { return lighting.mode == &kHighBeam; }

// Not always those of the mode: the command pipe sets them past it.
led_setting leds_now() {
  orb_power_board* board = power_board_now();
  return board == nullptr ? kStartLeds : given_leds(board).value_or(kStartLeds);
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

void tell_main_loop() REQUIRES(lighting_lock) {
  if (main_loop != nullptr) ev_async_send(main_loop, &beam_changed);
}

void end_high_beam() REQUIRES(lighting_lock) {
  lighting.countdown_s = 0;
  tell_main_loop();
}

void restore_lights() REQUIRES(lighting_lock) {
  end_high_beam();
  show_mode(lighting.saved_mode, lighting.saved_leds);
}

void on_high_beam_timer(struct ev_loop*, ev_timer*, int) { tick_high_beam(); }

void follow_high_beam(struct ev_loop* loop, ev_async*, int) {
  ev_timer_stop(loop, &high_beam_timer);
  const mutex_lock lock(lighting_lock);
  if (!is_high_beam()) return;
  ev_timer_set(&high_beam_timer, kTick_s, kTick_s);
  ev_timer_start(loop, &high_beam_timer);
}

const led_mode* find_mode(std::string_view name) {
  const auto* mode = std::ranges::find(kModes, name, &led_mode::name);
  return mode == std::end(kModes) ? nullptr : mode;
}

void select_mode(const led_mode* mode, uint8_t intensity) REQUIRES(lighting_lock) {
  if (is_high_beam()) end_high_beam();
  show_mode(mode, {mode->mask, intensity});
}

uint8_t as_intensity(int value) { return static_cast<uint8_t>(std::clamp(value, 0, kMaximumIntensity)); }

// At most 18 characters of the file count.
std::optional<int> stored_intensity() { return read_value_file(paths::kIntensity, 18); }

uint8_t present_intensity() {
  orb_power_board* board = power_board_now();
  return board == nullptr ? kStartIntensity : current_leds(board).pwm;
}

void apply_intensity(uint8_t mask, int value) REQUIRES(lighting_lock) {
  write_leds({mask, static_cast<uint8_t>(value & 0xFF)});
  write_value_file(paths::kIntensity, value);
}

}  // namespace

bool is_high_beam_time(int seconds) { return seconds >= 0 && seconds <= kMaximumHighBeamTime_s; }

lighting_values load_lighting() {
  const mutex_lock lock(lighting_lock);
  return {lighting.mode->name, lighting.countdown_s};
}

intensity_text load_led_intensity() {
  intensity_text result;
  const std::optional<int> value = stored_intensity();
  if (value) snprintf(result.text, sizeof result.text, "%d%%", *value);
  return result;
}

int set_led_mode(const char* name) {
  const led_mode* mode = find_mode(name);
  if (mode == nullptr) return -1;
  const mutex_lock lock(lighting_lock);
  const std::optional<int> wanted = stored_intensity();
  select_mode(mode, wanted ? as_intensity(*wanted) : present_intensity());
  return 0;
}

void set_v1_leds(const char* name, std::optional<int> intensity) {
  const led_mode* mode = name == nullptr ? nullptr : find_mode(name);
  const mutex_lock lock(lighting_lock);
  if (intensity) write_value_file(paths::kIntensity, as_intensity(*intensity));
  if (mode == nullptr) return;
  const bool takes_it = intensity && mode->mask != kLedStrip;
  const uint8_t pwm = takes_it ? as_intensity(*intensity) : present_intensity();
  select_mode(mode, mode->mask == kLedOff ? 0 : pwm);
}

void set_led_mask(orb_power_board* board, uint8_t mask) {
  const mutex_lock lock(lighting_lock);
  orb_power_board_enable_led_power(board, mask, current_leds(board).pwm);
}

void set_led_pwm(orb_power_board* board, uint8_t pwm) {
  const mutex_lock lock(lighting_lock);
  orb_power_board_enable_led_power(board, current_leds(board).mask, pwm);
}

void orb_set_api_led_intensity(int value) {
  const mutex_lock lock(lighting_lock);
  apply_intensity(leds_now().mask, value);
}

void step_led_intensity(int step) {
  const mutex_lock lock(lighting_lock);
  const std::optional<int> now = stored_intensity();
  if (!now) return;
  const int64_t sum = int64_t{*now} + step;
  const int64_t limit = step > 0 ? kMaximumIntensity : INT_MAX;
  const auto next = static_cast<int>(std::clamp<int64_t>(sum, 0, limit));
  if (next == *now) return;
  trace(kTraceIntensityLoop, "adjust %d %d", *now, next);
  apply_intensity(leds_now().mask, next);
}

void set_high_beam(bool on) {
  const mutex_lock lock(lighting_lock);
  if (on == is_high_beam() || (on && is_closed)) return;
  if (!on) return restore_lights();
  lighting.saved_mode = lighting.mode;
  lighting.saved_leds = leds_now();
  lighting.countdown_s = high_beam_time_s;
  show_mode(&kHighBeam, {kHighBeam.mask, kHighBeamPwm});
  tell_main_loop();
}

void close_high_beam() {
  const mutex_lock lock(lighting_lock);
  is_closed = true;
  if (is_high_beam()) restore_lights();
}

void start_high_beam_timer(struct ev_loop* loop) {
  ev_timer_init(&high_beam_timer, on_high_beam_timer, kTick_s, kTick_s);
  ev_async_init(&beam_changed, follow_high_beam);
  ev_async_start(loop, &beam_changed);
  const mutex_lock lock(lighting_lock);
  main_loop = loop;
  tell_main_loop();
}

void stop_high_beam_timer() {
  const mutex_lock lock(lighting_lock);
  if (main_loop == nullptr) return;
  ev_async_stop(main_loop, &beam_changed);
  ev_timer_stop(main_loop, &high_beam_timer);
  main_loop = nullptr;
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
  if (!is_high_beam() || --lighting.countdown_s > 0) return;
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
