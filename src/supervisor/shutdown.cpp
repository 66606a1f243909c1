// The unit's end: a thread ends a take, switches the camera off, and then the unit. One request is served
// after the other.

#include <atomic>

#include "app/trace.h"
#include "base/child_process.h"
#include "base/clock.h"
#include "base/mutex.h"
#include "base/thread.h"
#include "power_board/power_board.h"
#include "recorder/recorder.h"
#include "supervisor/internal.h"

namespace {

constexpr int64_t kStep_ms = 10;
constexpr int kChildEndSteps = 2500;
constexpr int kPostProcessingBeginSteps = 150;
constexpr int kPostProcessingEndSteps = 14'400;
constexpr int64_t kCameraOff_ms = 100;
constexpr int64_t kSettle_ms = 500;
constexpr int64_t kBoardSignal_ms = 500;
constexpr int64_t kCommandDelay_ms = 50;
constexpr size_t kOutputLimit = 127;

mutex shutdown_lock;
condition shutdown_requested;
bool shutdown_wanted GUARDED_BY(shutdown_lock) = false;
int shutdown_reason GUARDED_BY(shutdown_lock) = 0;
bool is_powering_off GUARDED_BY(shutdown_lock) = false;  // no request is taken any more

// Once asked for, whatever is served ends with the power off and without waiting for a take.
std::atomic<bool> temperature_shutdown = false;

int await_request() {
  const mutex_lock lock(shutdown_lock);
  while (!shutdown_wanted) shutdown_requested.wait(shutdown_lock);
  shutdown_wanted = false;
  return shutdown_reason;
}

// The camera goes off next: an ffmpeg that still reads its stream would be left without an end.
void await_child_end() {
  for (int step = 0; step < kChildEndSteps && is_recorder_child_running(); ++step) sleep_ms(kStep_ms);
}

void await_post_processing() {
  for (int step = 0; step < kPostProcessingBeginSteps && orb_get_recorder_post_processing() == 0; ++step) {
    sleep_ms(kStep_ms);
  }
  for (int step = 0; step < kPostProcessingEndSteps && orb_get_recorder_post_processing() != 0; ++step) {
    if (temperature_shutdown) {
      trace(kTraceSupervisor, "temperature, skip post");
      return;
    }
    sleep_ms(kStep_ms);
  }
}

void end_take() {
  if (orb_get_recorder_paused() != 0) {
    trace(kTraceSupervisor, "resume recording");
    orb_resume_recorder();
  }
  const bool is_recording = orb_get_recorder_recording() != 0;
  if (is_recording) trace(kTraceSupervisor, "stop recording");
  orb_stop_recorder();  // also of a take that is only about to begin
  await_child_end();    // also of a take that has just been stopped
  if (is_recording) await_post_processing();
}

void switch_camera_off(orb_power_board* board) {
  trace(kTraceSupervisor, "camera off");
  if (board != nullptr) orb_power_board_disable_camera_power(board);
  sleep_ms(kCameraOff_ms);
  trace(kTraceSupervisor, "shutdown end");
  sleep_ms(kSettle_ms);
}

void power_off(orb_power_board* board) {
  if (board != nullptr && orb_power_board_get_board_type(board) == 1) {
    orb_power_board_signal_shutdown(board);
    sleep_ms(kBoardSignal_ms);
  }
  trace(kTraceSupervisor, "cl shutdown");
  {
    const mutex_lock lock(shutdown_lock);
    is_powering_off = true;
    shutdown_wanted = false;
  }
  sleep_ms(kCommandDelay_ms);
  shell_first_line("shutdown -P now", kOutputLimit);
}

void reboot_unit() {
  trace(kTraceSupervisor, "cl reboot");
  sleep_ms(kCommandDelay_ms);
  shell_first_line("reboot", kOutputLimit);
}

void serve(int reason) {
  trace(kTraceSupervisor, "shutdown begin");
  orb_power_board* board = power_board_now();
  end_take();
  switch_camera_off(board);
  if (temperature_shutdown || reason != kShutdownReboot) {
    power_off(board);
  } else {
    reboot_unit();
  }
}

void* shutdown_thread(void*) {
  for (;;) serve(await_request());
}

}  // namespace

void start_shutdown_thread() { start_detached_thread("shutdown", shutdown_thread, nullptr); }

void orb_trigger_supervisor_shutdown(int reason) {
  if (reason == kShutdownTemperature) temperature_shutdown = true;
  const mutex_lock lock(shutdown_lock);
  if (is_powering_off) return;
  shutdown_wanted = true;
  shutdown_reason = reason;
  shutdown_requested.signal();
}
