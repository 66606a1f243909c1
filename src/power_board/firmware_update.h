// The hand-over of the bus to a firmware update. Service thread.
#pragma once

#include "base/thread.h"

struct orb_power_board;

// Starts the update thread, once.
void start_update_thread(orb_power_board* board);

// Gives the bus to the update thread, or drops the request when an update runs; `completed`, which may be
// null, is called in either case.
void hand_over_to_update(orb_power_board* board, completion_function completed);
