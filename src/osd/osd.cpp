// The overlay's items, and the tick on the main loop.

#include "osd/osd.h"

#include <ev.h>

#include <array>
#include <atomic>
#include <ctime>

#include "base/clock.h"
#include "base/trace.h"
#include "camera/zoom_values.h"
#include "heading/direction.h"
#include "osd/overlay.h"
#include "store/settings.h"
#include "store/texts.h"
#include "store/units.h"
#include "visca/camera_thread.h"

namespace {

constexpr double kTick_s = 0.1;

constexpr uint32_t kNotStored = kSettingCount;

// By osd_item.
constexpr std::array<uint32_t, kOsdItemCount> kItemSettings{
    kSettingZoomOsd,    kSettingFlowDirectionOsd, kSettingDateTimeOsd,
    kSettingCompassOsd, kSettingTitleOsd,         kSettingOperatorIdOsd,
    kNotStored,         kSettingOsdColor,         kSettingOsdDelay,
};

std::atomic<int> is_laser_shown = 0;
std::atomic<float> laser_reading_m = 0;
std::atomic<int> is_recorder_active = 0;

// Main loop.
ev_timer tick_timer;
overlay_state state;

bool is_item(int item) { return item >= 0 && item < kOsdItemCount; }

std::array<int, kOsdItemCount> read_items() {
  std::array<int, kOsdItemCount> items{};
  std::array<nv_target, kOsdItemCount> targets;
  for (size_t i = 0; i < items.size(); ++i) targets[i] = {kItemSettings[i], &items[i], sizeof items[i]};
  read_nv(targets);
  items[kOsdLaser] = is_laser_shown;
  return items;
}

overlay_inputs load_inputs() {
  overlay_inputs in;
  in.items = read_items();
  in.is_recording = is_recorder_active != 0;
  // The number first: a link that is built after it has been read is cleared in the next tick.
  in.link_number = visca_thread_data.link_number;
  if (visca_link_is_up(&visca_thread_data)) in.camera = visca_thread_data.camera;
  in.now = local_time(time(nullptr));
  orb_load_recorder_title(in.title.data(), in.title.size());
  orb_load_recorder_flow_direction(in.flow_direction.data(), in.flow_direction.size());
  orb_load_recorder_operator_id(in.operator_id.data(), in.operator_id.size());
  orb_load_supervisor_direction(in.compass.data(), in.compass.size());
  orb_load_camera_zoom_values(nullptr, nullptr, in.zoom.data(), static_cast<int>(in.zoom.size()));
  in.laser_m = laser_reading_m;
  in.in_feet = in_feet();
  return in;
}

void on_tick(struct ev_loop*, ev_timer*, int) { step_overlay(state, load_inputs()); }

}  // namespace

void orb_init_osd() {
  trace(kTraceOverlay, "init");
  state = {};
}

void start_osd_tick(struct ev_loop* loop) {
  ev_timer_init(&tick_timer, on_tick, kTick_s, kTick_s);
  ev_timer_start(loop, &tick_timer);
}

void orb_set_osd_item(int item, int value) {
  if (item == kOsdLaser) {
    is_laser_shown = value;
  } else if (is_item(item)) {
    orb_write_nv(kItemSettings[static_cast<size_t>(item)], &value, sizeof value);
  }
}

int orb_get_osd_item(int item) {
  int value = item == kOsdLaser ? is_laser_shown.load() : 0;
  if (is_item(item)) orb_read_nv(kItemSettings[static_cast<size_t>(item)], &value, sizeof value);
  return value;
}

void orb_set_osd_laser_reading(float metres) { laser_reading_m = metres; }

void orb_update_osd_recorder_activity(int active) {
  trace(kTraceOverlay, "recorder %d", active);
  is_recorder_active = active;
}
