// The three hold-to-run loops: zoom, focus and LED intensity.

#include <algorithm>

#include "app/trace.h"
#include "base/clock.h"
#include "base/paths.h"
#include "base/value_file.h"
#include "camera/controller.h"
#include "camera/hold_loop.h"
#include "camera/speeds.h"
#include "camera/visca_thread.h"
#include "power_board/lighting.h"

namespace {

constexpr int kSpeedUp_ms = 2000;  // of holding, for each speed step

// A motion of the camera that speeds up the longer it is held.
struct motion {
  int trace_level;
  const char* speed_file;
  int default_speed;
  int (*positive)(visca_camera* camera, int speed);
  int (*negative)(visca_camera* camera, int speed);
  int (*stop)(visca_camera* camera);
  std::atomic<bool> visca_camera::*at_rest;
};

constexpr motion kZoom{kTraceZoomLoop,
                       paths::kZoomSpeed,
                       kDefaultZoomSpeed,
                       visca_camera_zoom_tele_variable,
                       visca_camera_zoom_wide_variable,
                       visca_camera_zoom_stop,
                       &visca_camera::zoom_at_rest};
constexpr motion kFocus{kTraceFocusLoop,
                        paths::kFocusSpeed,
                        kDefaultFocusSpeed,
                        visca_camera_focus_far_variable,
                        visca_camera_focus_near_variable,
                        visca_camera_focus_stop,
                        &visca_camera::focus_at_rest};

constexpr int kStopTries = 3;  // on one link
constexpr int64_t kStopWatch_ns = 1000 * kNanosecondsPerMillisecond;

struct sent_stop {
  uint32_t link = 0;
  uint32_t lost_commands = 0;  // of the camera, before it was queued
  int tries = 0;               // on this link; 0: none was sent since the last drive
  int64_t through_ns = 0;      // when the queue was first seen empty behind it; 0 not yet
};

mutex speed_lock;
template <const motion& Motion>
int start_speed GUARDED_BY(speed_lock) = 0;

// Touched by the motion's own thread only.
template <const motion& Motion>
bool moving = false;  // the camera has been told to move, and it is not certain yet that it has the stop
template <const motion& Motion>
uint32_t driven_link = 0;  // the link that it was told on
template <const motion& Motion>
sent_stop last_stop;

template <const motion& Motion>
bool drive(visca_camera* camera, int direction, int speed) {
  if ((direction > 0 ? Motion.positive : Motion.negative)(camera, speed) != 0) return false;
  moving<Motion> = true;
  driven_link<Motion> = visca_thread_data.link_number;
  last_stop<Motion> = {};
  return true;
}

template <const motion& Motion>
int take_start_speed() {
  const mutex_lock lock(speed_lock);
  return start_speed<Motion> = read_speed(Motion.speed_file, Motion.default_speed);
}

// The acceleration was for this hold only.
template <const motion& Motion>
void restore_speed() {
  const mutex_lock lock(speed_lock);
  write_value_file(Motion.speed_file, start_speed<Motion>);
}

// Also for the end of a hold that is still to come.
template <const motion& Motion>
void reset_speed() {
  const mutex_lock lock(speed_lock);
  start_speed<Motion> = Motion.default_speed;
  write_value_file(Motion.speed_file, Motion.default_speed);
}

template <const motion& Motion>
void start_motion(int direction) {
  const int speed = take_start_speed<Motion>();
  trace(Motion.trace_level, "start %d", speed);
  driven_link<Motion> = 0;  // of this hold: what a full queue refuses is told again
  visca_camera* camera = visca_thread_data.camera;
  if (camera != nullptr) drive<Motion>(camera, direction, speed);
}

// A hold goes on over a lost link: the camera is told again on the next one. Without a link nothing speeds
// up.
template <const motion& Motion>
void step_motion(int direction, int held_ms) {
  visca_camera* camera = visca_thread_data.camera;
  if (camera == nullptr || !visca_link_is_up(&visca_thread_data)) return;
  const int speed = read_speed(Motion.speed_file, Motion.default_speed);
  if (driven_link<Motion> != visca_thread_data.link_number) drive<Motion>(camera, direction, speed);
  if (held_ms % kSpeedUp_ms != 0 || speed >= kMaximumSpeed) return;
  trace(Motion.trace_level, "adjust %d %d", speed, speed + 1);
  if (!drive<Motion>(camera, direction, speed + 1)) return;
  write_value_file(Motion.speed_file, speed + 1);
}

// True when the stop was queued on a link that is still up.
template <const motion& Motion>
bool queue_stop() {
  visca_camera* camera = visca_thread_data.camera;
  if (camera == nullptr) return false;
  const uint32_t link = visca_thread_data.link_number;
  const uint32_t lost_commands = camera->lost_commands;
  if (Motion.stop(camera) != 0 || !visca_link_is_up(&visca_thread_data)) return false;
  sent_stop& stop = last_stop<Motion>;
  stop = {link, lost_commands, stop.link == link ? stop.tries + 1 : 1};
  return true;
}

// A lens must not run on because the queue was full: the stop is tried again while the link is up.
template <const motion& Motion>
bool end_motion() {
  if (!queue_stop<Motion>() && visca_link_is_up(&visca_thread_data)) return false;
  trace(Motion.trace_level, "end");
  restore_speed<Motion>();
  return true;
}

enum class stop_state { on_its_way, taken, lost, given_up };

// What has become of the stop, as far as it can be told: it may still wait in the queue, and its refusal come
// late.
stop_state judge_stop(sent_stop& stop, const visca_camera* camera) {
  if (stop.tries == 0 || stop.link != visca_thread_data.link_number) return stop_state::lost;
  if (!visca_camera_is_idle(camera)) return stop_state::on_its_way;
  if (stop.through_ns == 0) stop.through_ns = monotonic_ns();
  if (camera->lost_commands != stop.lost_commands) {
    return stop.tries < kStopTries ? stop_state::lost : stop_state::given_up;
  }
  return monotonic_ns() - stop.through_ns < kStopWatch_ns ? stop_state::on_its_way : stop_state::taken;
}

// A lens must not run on because the camera did not take the stop, or because the link went before it had:
// the stop is sent again, on the next link too, unless something else has been asked of the lens.
template <const motion& Motion>
bool settle_motion() {
  if (!moving<Motion>) return true;
  visca_camera* camera = visca_thread_data.camera;
  if (camera == nullptr || !visca_link_is_up(&visca_thread_data)) return false;
  const stop_state state = judge_stop(last_stop<Motion>, camera);
  moving<Motion> = camera->*Motion.at_rest && state != stop_state::taken;
  if (moving<Motion> && state == stop_state::lost) queue_stop<Motion>();
  return !moving<Motion>;
}

constexpr int kIntensityPeriod_ms = 250;

int intensity_step(int held_ms) { return held_ms <= 2000 ? 1 : held_ms <= 4000 ? 3 : 5; }

void start_intensity(int) { trace(kTraceIntensityLoop, "start"); }

void step_intensity(int direction, int held_ms) {
  if (held_ms % kIntensityPeriod_ms != 0) return;
  step_led_intensity(direction > 0 ? intensity_step(held_ms) : -intensity_step(held_ms));
}

bool end_intensity() {
  trace(kTraceIntensityLoop, "end");
  return true;
}

constexpr hold_actions kZoomActions{"zoom-loop", start_motion<kZoom>, step_motion<kZoom>, end_motion<kZoom>,
                                    settle_motion<kZoom>};
constexpr hold_actions kFocusActions{"focus-loop", start_motion<kFocus>, step_motion<kFocus>,
                                     end_motion<kFocus>, settle_motion<kFocus>};
constexpr hold_actions kIntensityActions{"intensity-loop", start_intensity, step_intensity, end_intensity,
                                         nullptr};

constinit hold_loop zoom_loop{kZoomActions};
constinit hold_loop focus_loop{kFocusActions};
constinit hold_loop intensity_loop{kIntensityActions};

}  // namespace

void orb_create_focus_loop() { create_hold_loop(&focus_loop); }
int orb_trigger_focus_loop(int direction, int duration_ms) {
  return trigger_hold_loop(&focus_loop, direction, duration_ms);
}
void orb_stop_focus_loop() { stop_hold_loop(&focus_loop); }

void orb_create_zoom_loop() { create_hold_loop(&zoom_loop); }
int orb_trigger_zoom_loop(int direction, int duration_ms) {
  return trigger_hold_loop(&zoom_loop, direction, duration_ms);
}
void orb_stop_zoom_loop() { stop_hold_loop(&zoom_loop); }

void orb_reset_lens_speeds() {
  reset_speed<kZoom>();
  reset_speed<kFocus>();
}

void orb_close_lens_loops() {
  close_hold_loop(&zoom_loop);
  close_hold_loop(&focus_loop);
}

void orb_await_zoom_stop(int timeout_ms) { await_hold_end(&zoom_loop, timeout_ms); }
void orb_await_focus_stop(int timeout_ms) { await_hold_end(&focus_loop, timeout_ms); }

void orb_create_intensity_loop() { create_hold_loop(&intensity_loop); }
int orb_trigger_intensity_loop(int direction, int duration_ms) {
  return trigger_hold_loop(&intensity_loop, direction, duration_ms);
}
void orb_stop_intensity_loop() { stop_hold_loop(&intensity_loop); }
