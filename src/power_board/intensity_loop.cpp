#include "power_board/intensity_loop.h"

#include "base/clock.h"
#include "base/hold_loop.h"
#include "base/trace.h"
#include "power_board/lighting.h"

namespace {

constexpr int kPeriod_ms = 250;

int step_size(int held_ms) { return held_ms <= 2000 ? 1 : held_ms <= 4000 ? 3 : 5; }

void begin(hold_loop&, int64_t) { trace(kTraceIntensityLoop, "start"); }

void adjust(hold_loop& loop, int64_t) REQUIRES(loop.lock) {
  const int step = step_size(loop.hold.held_ms);
  step_led_intensity(loop.hold.direction > 0 ? step : -step);
}

void end(hold_loop&, int64_t) { trace(kTraceIntensityLoop, "end"); }

int64_t settle(hold_loop&, int64_t) { return kNever_ns; }

constexpr hold_actions kActions{kPeriod_ms, begin, adjust, end, settle};

}  // namespace

constinit hold_loop intensity_loop{kActions, nullptr};

void orb_create_intensity_loop() { create_hold_loop(intensity_loop, "intensity-loop"); }
int orb_trigger_intensity_loop(int direction, int duration_ms) {
  return trigger_hold_loop(intensity_loop, direction, duration_ms, monotonic_ns());
}
void orb_stop_intensity_loop() { stop_hold_loop(intensity_loop, monotonic_ns()); }
