// No update image exists for this board's software, so the update thread finds nothing to do and gives the
// bus back at once.
#include "power_board/firmware_update.h"

#include "base/text.h"
#include "base/trace.h"
#include "base/update_progress.h"
#include "power_board/power_board.h"
#include "power_board/work.h"

namespace {

completion_function wait_for_request(orb_power_board* board) {
  const mutex_lock lock(board->update_lock);
  while (!board->update_requested) board->update_ready.wait(board->update_lock);
  board->update_requested = false;
  return board->update_completed;
}

void* update_thread(void* argument) {
  auto* board = static_cast<orb_power_board*>(argument);
  for (;;) {
    const completion_function completed = wait_for_request(board);
    board->write_suspended = 0;
    if (completed != nullptr) completed();
  }
}

}  // namespace

void start_update_thread(orb_power_board* board) {
  if (board->update_thread_started) return;
  board->update_thread_started = start_detached_thread("board-update", update_thread, board) == 0;
}

void hand_over_to_update(orb_power_board* board, completion_function completed) {
  if (board->write_suspended != 0 || !board->update_thread_started) {
    trace(kTracePowerBoard, "update dropped");
    if (completed != nullptr) completed();
    return;
  }
  trace(kTracePowerBoard, "update");
  stop_motors(board, "update");  // unwatched for so long, nothing may drive on behind it
  board->write_suspended = 1;
  const mutex_lock lock(board->update_lock);
  board->update_completed = completed;
  board->update_requested = true;
  board->update_ready.signal();
}

int orb_power_board_get_update_available(const orb_power_board*, char* path, size_t size) {
  if (path != nullptr) copy_text(path, size, "");
  return 0;
}

void orb_power_board_load_update_version(const orb_power_board*, char* version, size_t size) {
  copy_text(version, size, "");
}

void orb_power_board_load_update_status(const orb_power_board*, char* step, size_t step_size,
                                        char* description_1, size_t description_1_size, char* description_2,
                                        size_t description_2_size) {
  copy_update_progress({}, step, step_size, description_1, description_1_size, description_2,
                       description_2_size);
}

int orb_power_board_trigger_firmware_update(orb_power_board* board, completion_function completed) {
  return queue_work(board, {.kind = work_kind::firmware_update, .completed = completed}) ? 1 : 0;
}
