// The service thread: it alone talks to the board, working the queue that the refresh timer and the setters
// feed.

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "base/application.h"
#include "base/clock.h"
#include "base/thread.h"
#include "base/trace.h"
#include "power_board/events.h"
#include "power_board/firmware_update.h"
#include "power_board/laser.h"
#include "power_board/leds.h"
#include "power_board/link.h"
#include "power_board/work.h"

namespace {

constexpr double kRefreshPeriod_s = 0.1;
constexpr int64_t kShutdownDelay_ms = 50;
constexpr int kLastTries = 10;
constexpr int64_t kLastPause_ms = 100;

void try_owed_stop(orb_power_board* board) {
  if (board->stop_owed) write_register(board, stop_item());
}

void run_refresh(orb_power_board* board) {
  try_owed_stop(board);
  read_status(board);
  const power_board_readings readings = current_readings(board);
  detect_events(board, readings);
  average_battery(board, readings);
  average_pressure(board, readings);
  average_humidity(board, readings);
  if (board->advanced != 0) run_motors(board, readings);
  update_laser(board, readings);
  if (!board->refresh_suspended) board->refresh_queued = false;
}

void refresh(orb_power_board* board) {
  if (board->write_suspended == 0) return run_refresh(board);
  board->refresh_queued = false;
}

void signal_shutdown(orb_power_board* board) {
  trace(kTracePowerBoard, "signal shutdown");
  sleep_ms(kShutdownDelay_ms);
  const uint8_t data[] = {static_cast<uint8_t>(current_readings(board).power_enable | kPowerCut)};
  write_register(board, write_item(kPowerRegister, data));
  const mutex_lock lock(board->queue_lock);
  board->shutdown_queued = false;
}

work_item take_work(orb_power_board* board) {
  const mutex_lock lock(board->queue_lock);
  while (board->queue.empty()) board->queue_ready.wait(board->queue_lock);
  const work_item item = board->queue.take();
  if (item.kind == work_kind::refresh) board->refresh_waiting = false;
  return item;
}

void serve(orb_power_board* board) {
  for (;;) {
    const work_item item = take_work(board);
    switch (item.kind) {
      case work_kind::stop:
        return;
      case work_kind::refresh:
        refresh(board);
        break;
      case work_kind::write:
        board->motors_disturbed |= is_motor_write(item);
        write_register(board, item);
        break;
      case work_kind::firmware_update:
        hand_over_to_update(board, item.completed);
        break;
      case work_kind::signal_shutdown:
        signal_shutdown(board);
        break;
    }
  }
}

// The queue is closed, so nothing can start a drive behind the stop. A bus that does not take it is given the
// time for which a drive could run on. So is the LEDs' last setting.
void end_drives_and_lights(orb_power_board* board) {
  stop_motors(board, "end");
  bool are_lit_as_given = write_lost_leds(board);
  for (int i = 0; (board->stop_owed || !are_lit_as_given) && i < kLastTries; ++i) {
    sleep_ms(kLastPause_ms);
    try_owed_stop(board);
    are_lit_as_given = write_lost_leds(board);
  }
}

void* service_thread(void* argument) {
  auto* board = static_cast<orb_power_board*>(argument);
  board->service_state = kServiceStarting;
  run_before_others();
  if (open_bus(board) != 0) {
    board->service_state = kServiceFailed;
    return nullptr;
  }
  board->write_suspended = 0;
  start_update_thread(board);
  board->service_state = kServiceRunning;
  serve(board);
  board->service_state = kServiceStopping;
  end_drives_and_lights(board);
  close_bus(board);
  board->service_state = kServiceStopped;
  return nullptr;
}

void on_refresh_timer(struct ev_loop*, ev_timer* timer, int) {
  auto* board = static_cast<orb_power_board*>(timer->data);
  queue_lost_leds(board);
  if (board->refresh_queued) return;
  const mutex_lock lock(board->queue_lock);
  if (board->stopping || board->refresh_waiting) return;
  board->refresh_waiting = board->queue.append({.kind = work_kind::refresh});
  board->refresh_queued = board->refresh_waiting;
  board->queue_ready.signal();
}

}  // namespace

int orb_power_board_start_service(orb_power_board* board) {
  trace(kTracePowerBoard, "start");
  if (board->service_state != kServiceStopped || board->thread_started) {
    fprintf(stderr, "%s: orb_power_board_start_service() failed at line %d: %s\n", board->program_name.data(),
            __LINE__, strerror(EALREADY));
    return -1;
  }
  {
    const mutex_lock lock(board->queue_lock);
    board->stopping = false;
  }
  board->refresh_queued = board->refresh_suspended.load();
  const int error = start_thread(&board->thread, "power-board", service_thread, board);
  if (error != 0) {
    fprintf(stderr, "%s: pthread_create() failed at line %d: %s\n", board->program_name.data(), __LINE__,
            strerror(error));
    return -1;
  }
  board->thread_started = true;
  ev_timer_init(&board->refresh_timer, on_refresh_timer, kRefreshPeriod_s, kRefreshPeriod_s);
  board->refresh_timer.data = board;
  ev_timer_start(board->application->loop, &board->refresh_timer);
  return 0;
}

void orb_power_board_stop_service(orb_power_board* board) {
  if (!board->thread_started) return;
  ev_timer_stop(board->application->loop, &board->refresh_timer);
  {
    const mutex_lock lock(board->queue_lock);
    board->queue.append({.kind = work_kind::stop});
    board->stopping = true;
    board->queue_ready.signal();
  }
  pthread_join(board->thread, nullptr);
  board->thread_started = false;
}

void orb_power_board_destroy(orb_power_board* board) { orb_power_board_stop_service(board); }

void orb_power_board_suspend_refresh(orb_power_board* board) {
  trace(kTracePowerBoard, "suspend refresh");
  board->refresh_suspended = true;
  withdraw_motor_requests(board);
}

void orb_power_board_resume_refresh(orb_power_board* board) {
  trace(kTracePowerBoard, "resume refresh");
  board->refresh_suspended = false;
  board->refresh_queued = false;
}

void orb_power_board_trigger_refresh(orb_power_board* board) {
  if (!board->refresh_suspended) return;
  trace(kTracePowerBoard, "trigger refresh");
  board->refresh_queued = false;
}
