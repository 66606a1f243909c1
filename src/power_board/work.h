// Work for the service thread: how it is queued, and the memory of the registers that is kept with it. Any
// thread.
#pragma once

#include <cstdint>
#include <span>

#include "power_board/power_board.h"

// A write of `data`, 16 bytes at most, to register `number`; and the stop of all motors.
work_item write_item(uint8_t number, std::span<const uint8_t> data);
work_item stop_item();

// Appends all of the items or none, and wakes the service; false when the queue refuses them, and once the
// service is stopping.
bool append_work(orb_power_board* board, std::span<const work_item> items) REQUIRES(board->queue_lock);
bool queue_work(orb_power_board* board, const work_item& item);
// The same with a run and, unless the speed register holds it already, its speed.
bool queue_jog(orb_power_board* board, const work_item& speed, const work_item& run);

// A setter's result: 0 when the queue has taken its write; else -1, said on standard error unless the service
// is stopping.
int setter_result(orb_power_board* board, bool taken, int line);

// For the registers' memory: a write is about to be made that was not queued; any write has been performed.
// Service thread.
void note_write(orb_power_board* board, const work_item& item);
void note_performed(orb_power_board* board, const work_item& item, bool sent);
