// The SPI link to the board. Service thread.
#pragma once

#include "power_board/work_queue.h"

struct orb_power_board;

// Brings GPIO lines and SPI bus up. Returns 0; on failure says why on standard error, closes what was opened
// and returns -1.
int open_bus(orb_power_board* board);
void close_bus(orb_power_board* board);

// The two transactions on the wire. While writes are suspended a write only traces that it was dropped, and
// the refresh that would read the status is skipped. A write that fails is sent again, three times in all;
// false when it was not taken. A run whose speed was not taken goes out as a stop, and counts as not taken.
bool write_register(orb_power_board* board, const work_item& item);
void read_status(orb_power_board* board);
