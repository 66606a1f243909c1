#include "camera/defaults_worker.h"

#include <utility>

#include "base/clock.h"
#include "base/mutex.h"
#include "base/thread.h"
#include "base/trace.h"
#include "camera/image_settings.h"
#include "camera/lens_loops.h"
#include "camera/zoom_values.h"
#include "visca/camera_thread.h"

namespace {

constexpr int kLinkWaits = 90;
constexpr int64_t kLinkWait_ms = 1000;
constexpr int64_t kCameraWait_ms = 250;
constexpr int64_t kRefusedWait_ms = 5;
constexpr int64_t kZoomWatch_ms = 250;
constexpr int64_t kStartPause_ms = 5;

struct worker_requests {
  bool power_up = false;
  bool defaults = false;
  bool ir_filter = false;
};

mutex worker_lock;  // guards the flags only
condition worker_wake;
worker_requests requests GUARDED_BY(worker_lock);

void request(bool worker_requests::*flag) {
  const mutex_lock lock(worker_lock);
  requests.*flag = true;
  worker_wake.signal();
}

// Queues a command until the queue takes it, however long the camera stays away.
template <typename Command>
void queue_until_taken(Command command) {
  for (;;) {
    visca_camera* camera = visca_thread_data.camera;
    if (camera == nullptr) {
      sleep_ms(kCameraWait_ms);
    } else if (command(camera) == 0) {
      return;
    } else {
      sleep_ms(kRefusedWait_ms);
    }
  }
}

void queue_traced(const char* message, int (*command)(visca_camera*)) {
  trace(kTraceCamera, "%s", message);
  queue_until_taken(command);
}

// False when the link has not come up within the 90 s.
bool wait_for_link() {
  for (int n = 1; n <= kLinkWaits; ++n) {
    if (visca_connection_is_connected(visca_thread_data.connection) != 0) return true;
    trace(kTraceCamera, "power up wait %d", n);
    sleep_ms(kLinkWait_ms);
  }
  return false;
}

// Zooms out and waits until the camera has arrived or stands still.
void reset_zoom() {
  trace(kTraceCamera, "zoom direct %d", 0);
  queue_until_taken([](visca_camera*) {
    return orb_order_zoom({lens_effect::ends, nullptr, visca_camera_zoom_direct, 0});
  });
  int previous = 0;
  for (;;) {
    sleep_ms(kZoomWatch_ms);
    int position = 0;
    orb_load_camera_zoom_values(&position, nullptr, nullptr, 0);
    trace(kTraceCamera, "zoom actual %d", position);
    if (position == 0 || position == previous) break;
    previous = position;
  }
  trace(kTraceCamera, "zoom done");
}

void reset_camera_state() {
  reset_zoom();
  queue_traced("auto focus", [](visca_camera*) {
    return orb_order_focus({lens_effect::ends, visca_camera_auto_focus});
  });
  queue_traced("auto exposure", visca_camera_exposure_mode_auto);
}

// Automatic switching goes off before the filter is forced, forcing goes off before automatic switching comes
// on.
void send_ir_filter() {
  const int value = image_ir_filter();
  trace(kTraceCamera, "ir filter %d", value);
  if (value != 2) queue_traced("auto icr off", visca_camera_auto_icr_off);
  if (value == 1) return queue_traced("icr on", visca_camera_icr_on);
  queue_traced("icr off", visca_camera_icr_off);
  if (value == 2) queue_traced("auto icr on", visca_camera_auto_icr_on);
}

// Each command is chosen when the queue takes it: a request may change the value while it waits.
void send_image_settings() {
  trace(kTraceCamera, "invert image %d", image_invert());
  queue_until_taken(send_image_invert);
  trace(kTraceCamera, "stabilize image %d", image_stabilizer());
  queue_until_taken(send_image_stabilizer);
  trace(kTraceCamera, "sensitivity %d", image_sensitivity());
  queue_until_taken(send_image_sensitivity);
  send_ir_filter();
  trace(kTraceCamera, "defog %d", image_defog());
  queue_until_taken(send_image_defog);
}

void set_up_camera() {
  trace(kTraceCamera, "power up defaults");
  if (!wait_for_link()) return;
  trace(kTraceCamera, "power up set");
  reset_camera_state();
  send_image_settings();
}

worker_requests take_requests() {
  const mutex_lock lock(worker_lock);
  while (!requests.power_up && !requests.defaults && !requests.ir_filter) worker_wake.wait(worker_lock);
  return std::exchange(requests, {});
}

void* defaults_worker(void*) {
  for (;;) {
    const worker_requests now = take_requests();
    if (now.power_up) set_up_camera();
    if (now.defaults) reset_camera_state();
    if (now.ir_filter) send_ir_filter();
  }
}

void start_defaults_worker() {
  start_detached_thread("camera-defaults", defaults_worker, nullptr);
  sleep_ms(kStartPause_ms);
  request(&worker_requests::power_up);
}

}  // namespace

int orb_set_camera_ir_filter(const char* text) {
  const int kept = keep_ir_filter(text);
  if (kept == 1) request(&worker_requests::ir_filter);
  return kept < 0 ? -1 : 0;
}

void orb_set_controller_defaults() { request(&worker_requests::defaults); }

void orb_init_camera() {
  load_image_settings();
  start_defaults_worker();
}
