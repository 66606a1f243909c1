// LED intensity as long as a button is held: 1 percent each 0.25 s, 3 from the third second on, 5 from the
// fifth. Thread: any thread.
#pragma once

struct hold_loop;

// Starts the loop's thread. Once. Thread: start-up.
void orb_create_intensity_loop();

// Holds the button for `duration_ms` more. Direction: positive brighter, negative dimmer. Returns 1, or 0
// when the direction is 0 or the other one is held.
int orb_trigger_intensity_loop(int direction, int duration_ms);
void orb_stop_intensity_loop();

extern hold_loop intensity_loop;
