#include "supervisor/supervisor.h"

#include <ev.h>

#include <atomic>

#include "supervisor/camera_ping.h"
#include "supervisor/encoder_poll.h"
#include "supervisor/shutdown.h"
#include "supervisor/status.h"
#include "supervisor/usb_store.h"

namespace {

constexpr double kStatusPeriod_s = 1.0;

ev_timer status_timer;
std::atomic<bool> is_initialised = false;

void on_status_timer(struct ev_loop*, ev_timer*, int) { step_status(); }

}  // namespace

void orb_init_supervisor(int) {
  if (is_initialised.exchange(true)) return;
  reset_status();
  start_usb_store_watch();
  start_shutdown_thread();
}

void start_supervisor_timers(struct ev_loop* loop) {
  ev_timer_init(&status_timer, on_status_timer, kStatusPeriod_s, kStatusPeriod_s);
  ev_timer_start(loop, &status_timer);
  start_camera_ping(loop);
  start_encoder_poll(loop);
}
