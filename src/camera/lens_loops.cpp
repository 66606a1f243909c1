#include "camera/lens_loops.h"

#include "base/clock.h"
#include "base/paths.h"
#include "base/trace.h"
#include "base/value_file.h"
#include "camera/speeds.h"
#include "visca/camera_thread.h"

// A motion of the camera that speeds up the longer it is held.
struct lens_motion {
  int trace_level;
  const char* speed_file;
  int default_speed;
  int (*positive)(visca_camera* camera, int speed);
  int (*negative)(visca_camera* camera, int speed);
  int (*stop)(visca_camera* camera);
};

namespace {

constexpr int kSpeedUp_ms = 2000;  // of holding, for each speed step
constexpr int64_t kRetry_ns = 5 * kNanosecondsPerMillisecond;

constexpr lens_motion kZoom{kTraceZoomLoop,
                            paths::kZoomSpeed,
                            kDefaultZoomSpeed,
                            visca_camera_zoom_tele_variable,
                            visca_camera_zoom_wide_variable,
                            visca_camera_zoom_stop};
constexpr lens_motion kFocus{kTraceFocusLoop,
                             paths::kFocusSpeed,
                             kDefaultFocusSpeed,
                             visca_camera_focus_far_variable,
                             visca_camera_focus_near_variable,
                             visca_camera_focus_stop};

// The link's number first: an order that meets a new link is then taken for one of the old.
lens_link link_now() {
  lens_link link{visca_thread_data.link_number};
  const visca_camera* camera = visca_thread_data.camera;
  if (camera == nullptr) return link;
  link.lost_commands = camera->lost_commands;
  link.lost_ns = camera->lost_ns;
  link.idle = visca_camera_is_idle(camera) && camera->sockets[0].state == 0;
  return link;
}

bool queue_order(const lens_order& order) {
  visca_camera* camera = visca_thread_data.camera;
  if (camera == nullptr) return false;
  if (order.plain != nullptr) return order.plain(camera) == 0;
  return order.with_value != nullptr && order.with_value(camera, order.value) == 0;
}

// Queues the order and watches it from now on. What is not `insisted` on and refused has not been given.
bool give(lens_loop& loop, const lens_order& order, int64_t now_ns, bool insisted, bool again = false)
    REQUIRES(loop.lock) {
  const lens_link before = link_now();
  const bool taken = queue_order(order);
  if (taken || insisted) note_lens_order(loop.watch, order, taken, again, before, now_ns);
  loop.wake.signal();
  return taken;
}

lens_order stop_order(const lens_motion& motion) { return {lens_effect::stops, motion.stop}; }

lens_order drive_order(const lens_loop& loop, int speed) REQUIRES(loop.lock) {
  const bool positive = loop.hold.direction > 0;
  return {lens_effect::drives, nullptr, positive ? loop.motion.positive : loop.motion.negative, speed};
}

void begin_motion(lens_loop& loop, int64_t now_ns) REQUIRES(loop.lock) {
  loop.start_speed = read_speed(loop.motion.speed_file, loop.motion.default_speed);
  trace(loop.motion.trace_level, "start %d", loop.start_speed);
  give(loop, drive_order(loop, loop.start_speed), now_ns, true);
}

void speed_up_motion(lens_loop& loop, int64_t now_ns) REQUIRES(loop.lock) {
  const int speed = read_speed(loop.motion.speed_file, loop.motion.default_speed);
  if (speed >= kMaximumSpeed || !visca_link_is_up(&visca_thread_data)) return;
  trace(loop.motion.trace_level, "adjust %d %d", speed, speed + 1);
  if (give(loop, drive_order(loop, speed + 1), now_ns, false))
    write_value_file(loop.motion.speed_file, speed + 1);
}

// The acceleration was for this hold only.
void end_motion(lens_loop& loop, int64_t now_ns) REQUIRES(loop.lock) {
  give(loop, stop_order(loop.motion), now_ns, true);
  trace(loop.motion.trace_level, "end");
  write_value_file(loop.motion.speed_file, loop.start_speed);
}

int64_t settle_motion(lens_loop& loop, int64_t now_ns) REQUIRES(loop.lock) {
  const lens_need need = step_lens_watch(loop.watch, link_now(), loop.hold.direction != 0, now_ns);
  if (need == lens_need::stop) loop.watch.order = stop_order(loop.motion);
  if (need != lens_need::nothing) give(loop, loop.watch.order, now_ns, true, true);
  return loop.watch.watched ? now_ns + kRetry_ns : kNever_ns;
}

// Another's order ends the hold: the camera gets its stop first.
int order_lens(lens_loop& loop, const lens_order& order, int64_t now_ns) {
  const mutex_lock lock(loop.lock);
  if (loop.hold.closed) return -1;
  const bool stops = order.effect == lens_effect::stops, was_held = loop.hold.direction != 0;
  end_hold(loop, now_ns);
  if (was_held && stops) return loop.watch.queued ? 0 : -1;
  return give(loop, order, now_ns, stops) ? 0 : -1;
}

// Also for the end of a hold that is still to come.
void reset_speed(lens_loop& loop) {
  const mutex_lock lock(loop.lock);
  loop.start_speed = loop.motion.default_speed;
  write_value_file(loop.motion.speed_file, loop.start_speed);
}

// Also of a drive that is not a hold's.
void close_lens(lens_loop& loop, int64_t now_ns) {
  const mutex_lock lock(loop.lock);
  loop.hold.closed = true;
  end_hold(loop, now_ns);
  const bool drives = loop.watch.driving && loop.watch.order.effect == lens_effect::drives;
  if (drives) give(loop, stop_order(loop.motion), now_ns, true);
}

bool is_through(lens_loop& loop) {
  const mutex_lock lock(loop.lock);
  return is_lens_order_through(loop.watch, link_now());
}

// An action of a hold loop that is a lens's.
template <auto Act>
auto of_lens(hold_loop& loop, int64_t now_ns) REQUIRES(loop.lock) {
  auto& lens = static_cast<lens_loop&>(loop);
  lens.lock.assert_held();  // it is the same
  return Act(lens, now_ns);
}

constexpr hold_actions kLensActions{kSpeedUp_ms, of_lens<begin_motion>, of_lens<speed_up_motion>,
                                    of_lens<end_motion>, of_lens<settle_motion>};

}  // namespace

constinit lens_loop zoom_loop{kLensActions, kZoom};
constinit lens_loop focus_loop{kLensActions, kFocus};

void orb_create_focus_loop() { create_hold_loop(focus_loop, "focus-loop"); }
int orb_trigger_focus_loop(int direction, int duration_ms) {
  return trigger_hold_loop(focus_loop, direction, duration_ms, monotonic_ns());
}
void orb_stop_focus_loop() { stop_hold_loop(focus_loop, monotonic_ns()); }
int orb_order_focus(const lens_order& order) { return order_lens(focus_loop, order, monotonic_ns()); }

void orb_create_zoom_loop() { create_hold_loop(zoom_loop, "zoom-loop"); }
int orb_trigger_zoom_loop(int direction, int duration_ms) {
  return trigger_hold_loop(zoom_loop, direction, duration_ms, monotonic_ns());
}
void orb_stop_zoom_loop() { stop_hold_loop(zoom_loop, monotonic_ns()); }
int orb_order_zoom(const lens_order& order) { return order_lens(zoom_loop, order, monotonic_ns()); }

void orb_reset_lens_speeds() {
  reset_speed(zoom_loop);
  reset_speed(focus_loop);
}

void orb_close_lens_loops() {
  close_lens(zoom_loop, monotonic_ns());
  close_lens(focus_loop, monotonic_ns());
}

void orb_await_lens_stops(int timeout_ms) {
  const int64_t end = monotonic_ns() + timeout_ms * kNanosecondsPerMillisecond;
  while (!(is_through(zoom_loop) && is_through(focus_loop)) && monotonic_ns() < end) sleep_ms(1);
}
