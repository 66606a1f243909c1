// What brings the LEDs in line with their last setting when its write is lost.
#pragma once

struct orb_power_board;

// Queues a setting that was lost, unless writes are suspended. Any thread.
void queue_lost_leds(orb_power_board* board);

// Writes one that is lost when the queue has been closed; false when it is lost again. Service thread.
bool write_lost_leds(orb_power_board* board);
