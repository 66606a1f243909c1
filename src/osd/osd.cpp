// The overlay's items, and the tick on the main loop.

#include "osd/osd.h"

#include <ev.h>

#include <array>
#include <atomic>
#include <climits>
#include <ctime>

#include "app/trace.h"
#include "base/text.h"
#include "camera/controller.h"
#include "camera/visca_thread.h"
#include "osd/overlay.h"
#include "recorder/recorder.h"
#include "store/settings.h"
#include "supervisor/supervisor.h"

namespace {

constexpr double kTick_s = 0.1;

constexpr uint32_t kNotStored = kSettingCount;

// By osd_item.
constexpr std::array<uint32_t, kOsdItemCount> kItemSettings{
    kSettingZoomOsd,    kSettingFlowDirectionOsd, kSettingDateTimeOsd,
    kSettingCompassOsd, kSettingTitleOsd,         kSettingOperatorIdOsd,
    kNotStored,         kSettingOsdColor,         kSettingOsdDelay,
};

constexpr int kUnset = INT_MIN;  // until the start has loaded it
std::array<std::atomic<int>, kOsdItemCount> items{kUnset, kUnset, kUnset, kUnset, kUnset,
                                                  kUnset, kUnset, kUnset, kUnset};
std::atomic<float> laser_reading_m = 0;
std::atomic<int> is_recorder_active = 0;

// Main loop.
ev_timer tick_timer;
overlay_state state;
int units = 0;

bool is_item(int item) { return item >= 0 && item < kOsdItemCount; }

overlay_inputs load_inputs() {
  overlay_inputs in;
  for (size_t i = 0; i < items.size(); ++i) in.items[i] = items[i];
  in.is_recording = is_recorder_active != 0;
  // The number first: a link that is built after it has been read is cleared in the next tick.
  in.link_number = visca_thread_data.link_number;
  if (visca_link_is_up(&visca_thread_data)) in.camera = visca_thread_data.camera;
  const time_t now = time(nullptr);
  localtime_r(&now, &in.now);
  orb_load_recorder_title(in.title.data(), in.title.size());
  orb_load_recorder_flow_direction(in.flow_direction.data(), in.flow_direction.size());
  orb_load_recorder_operator_id(in.operator_id.data(), in.operator_id.size());
  orb_load_supervisor_direction(in.compass.data(), in.compass.size());
  orb_load_camera_zoom_values(nullptr, nullptr, in.zoom.data(), static_cast<int>(in.zoom.size()));
  in.laser_m = laser_reading_m;
  try_read_nv(kSettingUnits, &units, sizeof units);
  in.in_feet = units == 1;
  return in;
}

void on_tick(struct ev_loop*, ev_timer*, int) { step_overlay(state, load_inputs()); }

}  // namespace

void orb_init_osd() {
  trace(kTraceOverlay, "init");
  for (size_t i = 0; i < items.size(); ++i) {
    int value = 0;
    orb_read_nv(kItemSettings[i], &value, sizeof value);  // nothing for the one that is not stored
    int unset = kUnset;
    if (kItemSettings[i] == kNotStored) {
      items[i] = 0;
    } else {
      items[i].compare_exchange_strong(unset, value);  // the API runs already: what it was given stands
    }
  }
  state = {};
}

void start_osd_tick(struct ev_loop* loop) {
  ev_timer_init(&tick_timer, on_tick, kTick_s, kTick_s);
  ev_timer_start(loop, &tick_timer);
}

void orb_set_osd_item(int item, int value) {
  if (!is_item(item)) return;
  const auto i = static_cast<size_t>(item);
  items[i] = value;
  if (kItemSettings[i] != kNotStored) orb_write_nv(kItemSettings[i], &value, sizeof value);
}

int orb_get_osd_item(int item) {
  const int value = is_item(item) ? items[static_cast<size_t>(item)].load() : kUnset;
  return value == kUnset ? 0 : value;
}

void orb_set_osd_laser_reading(float metres) { laser_reading_m = metres; }

void orb_update_osd_recorder_activity(int active) {
  trace(kTraceOverlay, "recorder %d", active);
  is_recorder_active = active;
}
