// The unit's end: a thread ends a take, switches the camera off, and then the unit.
//
// A wish (a hot unit, a route, the board, the installer) sets a word under shutdown_lock and never waits; the
// thread takes it, lets the lock go and works:
//
//   end_take            no take starts from now on; ffmpeg has 25 s, the completion 144 s, whoever began it
//   switch_camera_off
//   power_off           the board's signal, and half a second later the command, because the board cuts the
//                       power some time after its signal; or reboot_unit
//   plan_retry          when the command has failed; give_back when nothing asks for the end any more
//
// What holds:
//   1. A wish that comes meanwhile is served once more afterwards; one that comes before the power-off
//      command has ended, only if that fails.
//   2. The reason is the one that the thread took; of several that wait the last one's counts.
//   3. Heat holds for whatever is served, until the unit is given back: a completion is not waited for, and a
//      reboot becomes a power-off. ffmpeg is waited for in any case (D13).
#include "supervisor/shutdown.h"

#include <atomic>
#include <optional>

#include "base/child_process.h"
#include "base/clock.h"
#include "base/mutex.h"
#include "base/thread.h"
#include "base/trace.h"
#include "power_board/power_board.h"
#include "recorder/recorder.h"

namespace {

constexpr int64_t kStep_ms = 10;
constexpr int kChildEndSteps = 2500;
constexpr int kCompletionSteps = 14'400;
constexpr int64_t kCameraOff_ms = 100;
constexpr int64_t kSettle_ms = 500;
constexpr int64_t kBoardSignal_ms = 500;
constexpr int64_t kCommandDelay_ms = 50;
constexpr int kCommand_ms = 30'000;
constexpr size_t kOutputLimit = 127;
constexpr int64_t kRetry_ns = 10'000 * kNanosecondsPerMillisecond;
constexpr int64_t kHeatGone_ns = 2000 * kNanosecondsPerMillisecond;  // a hot unit asks every second

mutex shutdown_lock;
condition shutdown_requested;
std::optional<int> wish GUARDED_BY(shutdown_lock);       // its reason
bool is_heat_heard GUARDED_BY(shutdown_lock) = false;    // apart from it: heat asks again, others do not
bool is_powering_off GUARDED_BY(shutdown_lock) = false;  // no request is served any more
int64_t retry_ns GUARDED_BY(shutdown_lock) = 0;          // from when on heat is heard again
int64_t give_back_ns GUARDED_BY(shutdown_lock) = 0;      // when the unit is given back, 0: it is

std::atomic<bool> temperature_shutdown = false;  // from heat on until the unit is given back

// The reason of the next request; nothing when the unit is to be given back.
std::optional<int> await_request() {
  const mutex_lock lock(shutdown_lock);
  while (is_powering_off || (!wish && !is_heat_heard)) {
    if (give_back_ns == 0) {
      shutdown_requested.wait(shutdown_lock);
    } else if (monotonic_ns() < give_back_ns) {
      shutdown_requested.wait_until_ns(shutdown_lock, give_back_ns);
    } else {
      give_back_ns = 0;
      return std::nullopt;
    }
  }
  const int reason = wish.value_or(kShutdownTemperature);
  wish.reset();
  is_heat_heard = false;
  give_back_ns = 0;
  return reason;
}

// Of a take that has just been stopped, was stopped before, or waited for its completion.
void await_completion() {
  for (int step = 0; step < kCompletionSteps && is_recorder_busy(); ++step) {
    if (temperature_shutdown) return trace(kTraceSupervisor, "temperature, skip post");
    sleep_ms(kStep_ms);
  }
}

void end_take() {
  hold_recorder_starts(true);
  if (orb_get_recorder_paused() != 0) {
    trace(kTraceSupervisor, "resume recording");
    orb_resume_recorder();
  }
  if (orb_get_recorder_recording() != 0) trace(kTraceSupervisor, "stop recording");
  orb_stop_recorder();  // also of a take that is only about to begin
  // The camera goes off next: an ffmpeg that still reads its stream would be left without an end.
  for (int step = 0; step < kChildEndSteps && is_recorder_child_running(); ++step) sleep_ms(kStep_ms);
  await_completion();
}

void switch_camera_off(orb_power_board* board) {
  trace(kTraceSupervisor, "camera off");
  if (board != nullptr) orb_power_board_disable_camera_power(board);
  sleep_ms(kCameraOff_ms);
  trace(kTraceSupervisor, "shutdown end");
  sleep_ms(kSettle_ms);
}

bool run_command(const char* command) {
  sleep_ms(kCommandDelay_ms);
  const int status = run_shell(command, kOutputLimit, [](std::string_view) {}, {.timeout_ms = kCommand_ms});
  if (status != 0) trace(kTraceSupervisor, "'%s' failed %d", command, status);
  return status == 0;
}

bool power_off(orb_power_board* board) {
  if (board != nullptr && orb_power_board_get_board_type(board) == 1) {
    orb_power_board_signal_shutdown(board);
    sleep_ms(kBoardSignal_ms);
  }
  trace(kTraceSupervisor, "cl shutdown");
  {
    const mutex_lock lock(shutdown_lock);
    is_powering_off = true;
    is_heat_heard = false;
  }
  return run_command("shutdown -P now");
}

bool reboot_unit() {
  trace(kTraceSupervisor, "cl reboot");
  return run_command("reboot");
}

// The unit stays on. Heat that it was to end for asks again, but is not heard at once.
void plan_retry() {
  const mutex_lock lock(shutdown_lock);
  const int64_t now_ns = monotonic_ns();
  is_powering_off = false;
  give_back_ns = now_ns;
  if (!temperature_shutdown) return;
  retry_ns = now_ns + kRetry_ns;
  give_back_ns = retry_ns + kHeatGone_ns;
}

void give_back() {
  trace(kTraceSupervisor, "unit stays on");
  temperature_shutdown = false;
  if (orb_power_board* board = power_board_now()) orb_power_board_enable_camera_power(board);
  hold_recorder_starts(false);
}

void serve(int reason) {
  trace(kTraceSupervisor, "shutdown begin");
  orb_power_board* board = power_board_now();
  end_take();
  switch_camera_off(board);
  const bool is_off = temperature_shutdown || reason != kShutdownReboot ? power_off(board) : reboot_unit();
  if (!is_off) plan_retry();
}

void* shutdown_thread(void*) {
  for (;;) {
    const std::optional<int> reason = await_request();
    reason ? serve(*reason) : give_back();
  }
}

}  // namespace

void start_shutdown_thread() { start_detached_thread("shutdown", shutdown_thread, nullptr); }

void orb_trigger_supervisor_shutdown(int reason) {
  const mutex_lock lock(shutdown_lock);
  if (reason != kShutdownTemperature) {
    wish = reason;
  } else if (!is_powering_off && monotonic_ns() >= retry_ns) {
    temperature_shutdown = true;
    is_heat_heard = true;
  }
  shutdown_requested.signal();
}
