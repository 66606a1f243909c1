// The hand-over of the bus to a firmware update. No update image exists for this board's software, so the
// update thread finds nothing to do and gives the bus back at once.

#include "app/trace.h"
#include "base/text.h"
#include "base/thread.h"
#include "power_board/internal.h"

namespace {

void reset_status(orb_power_board* board) {
  const mutex_lock lock(board->update_status_lock);
  copy_text(board->update_status.progress, sizeof board->update_status.progress, "0 of 0");
  copy_text(board->update_status.state, sizeof board->update_status.state, "not active");
  copy_text(board->update_status.result, sizeof board->update_status.result, "not active");
}

void wait_for_request(orb_power_board* board) {
  const mutex_lock lock(board->update_lock);
  while (!board->update_requested) board->update_ready.wait(board->update_lock);
  board->update_requested = false;
  board->update_request = nullptr;
}

void* update_thread(void* argument) {
  auto* board = static_cast<orb_power_board*>(argument);
  for (;;) {
    wait_for_request(board);
    board->write_suspended = 0;
  }
}

}  // namespace

void start_update_thread(orb_power_board* board) {
  reset_status(board);
  if (board->update_thread_started) return;
  board->update_thread_started = start_detached_thread("board-update", update_thread, board) == 0;
}

void hand_over_to_update(orb_power_board* board, const void* request) {
  if (board->write_suspended != 0 || !board->update_thread_started) {
    trace(kTracePowerBoard, "update dropped");
    return;
  }
  trace(kTracePowerBoard, "update");
  board->write_suspended = 1;
  const mutex_lock lock(board->update_lock);
  board->update_request = request;
  board->update_requested = true;
  board->update_ready.signal();
}

int orb_power_board_trigger_firmware_update(orb_power_board* board, const void* request) {
  return queue_work(board, {.kind = work_kind::firmware_update, .request = request}) ? 0 : -1;
}

void orb_power_board_load_firmware_update_status(orb_power_board* board,
                                                 firmware_update_status* destination) {
  const mutex_lock lock(board->update_status_lock);
  *destination = board->update_status;
}
