// LED intensity while a button is held: a step each 0.25 s of 1 percent, 3 after 2 s, 5 after 4 s. Any
// thread.
#pragma once

struct hold_loop;

// Starts the loop's thread, once. Start-up.
void orb_create_intensity_loop();

// Holds the button for `duration_ms` more. Direction: positive brighter, negative dimmer. Returns 1, or 0
// when the direction is 0 or the other one is held.
int orb_trigger_intensity_loop(int direction, int duration_ms);
void orb_stop_intensity_loop();

extern hold_loop intensity_loop;
