// The camera controller: image settings kept in the settings store and re-applied when the camera powers up,
// the known state after a controlling operator has gone, the magnification of the reported zoom position, and
// the hold-to-run loops. Any thread unless it says otherwise; nothing here waits for the camera but the
// controller's own worker.
#pragma once

#include "camera/lens_watch.h"

// Loads the image settings and starts the worker, which sets the camera up as soon as the link is there. Main
// thread, once, after the camera thread has been started.
void orb_init_camera();

// Lets the worker put zoom, focus and exposure into their known state.
void orb_set_controller_defaults();

// The setting as its word, cut to size - 1 characters and terminated.
void orb_load_camera_invert_image(char* text, unsigned size);      // "off", "on"
void orb_load_camera_image_stabilizer(char* text, unsigned size);  // "off", "on"
void orb_load_camera_sensitivity(char* text, unsigned size);       // "normal", "high"
void orb_load_camera_ir_filter(char* text, unsigned size);         // "off", "on", "auto"
void orb_load_camera_defog(char* text, unsigned size);             // "off", "low", "mid", "high"

// Queue the setting's command, keep it and store it; nothing when it is the current one. 0, or -1 for another
// word or without a camera record (nothing is kept then). The IR filter needs no camera record: the worker
// sends its commands.
int orb_set_camera_invert_image(const char* text);
int orb_set_camera_image_stabilizer(const char* text);
int orb_set_camera_sensitivity(const char* text);
int orb_set_camera_ir_filter(const char* text);
int orb_set_camera_defog(const char* text);

// The reported zoom position (-1 without a camera record), its magnification (0: not known) and that as a
// text ("2.5x", "12x", "?") of at most `size` bytes. Each result may be null.
void orb_load_camera_zoom_values(int* position, float* magnification, char* text, int size);

// Hold-to-run loops: a trigger starts a motion, or extends it when it runs in the same direction already, for
// `duration_ms`. Direction: positive far / tele, negative near / wide. Trigger returns 1,
// or 0 when the direction is 0 or the other direction runs. create: once, main thread.
void orb_create_focus_loop();
int orb_trigger_focus_loop(int direction, int duration_ms);
void orb_stop_focus_loop();
void orb_create_zoom_loop();
int orb_trigger_zoom_loop(int direction, int duration_ms);
void orb_stop_zoom_loop();
// Every other order to a lens: ends its hold and is queued behind the hold's stop. 0, or -1 when it could not
// be queued, or once the loops are closed.
int orb_order_focus(const lens_order& order);
int orb_order_zoom(const lens_order& order);
// Stop zoom and focus for good: later triggers and orders are refused.
void orb_close_lens_loops();
// Waits until the camera has answered the stops of both, at most so long.
inline constexpr int kLensStopWait_ms = 1000;
void orb_await_lens_stops(int timeout_ms = kLensStopWait_ms);
// Writes the default speeds of zoom and focus; the end of a hold that is still to come leaves them.
void orb_reset_lens_speeds();
