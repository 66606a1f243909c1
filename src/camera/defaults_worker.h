// The camera's worker: its power-up sequence, the known state after a controlling operator has gone, and the
// IR filter's commands. It may wait for a camera for ever; a request never waits for it.
#pragma once

// Loads the image settings and starts the worker, which sets the camera up as soon as the link is there. Main
// thread, once, after the camera thread has been started.
void orb_init_camera();

// Any thread: lets the worker put zoom, focus and exposure into their known state.
void orb_set_controller_defaults();

// "off", "on", "auto": keeps the word, stores it, and has the worker send its commands; nothing when it is
// the current one. 0, or -1 for another word. Any thread.
int orb_set_camera_ir_filter(const char* text);
