// Zoom and focus, hold-to-run, and every other order to a lens, which ends its hold. Any thread unless it
// says otherwise; nothing here waits for the camera but orb_await_lens_stops.
#pragma once

#include "base/hold_loop.h"
#include "camera/lens_watch.h"

struct lens_motion;

// A hold loop of a lens, with what its lens was told last.
struct lens_loop : hold_loop {
  constexpr lens_loop(const hold_actions& what, const lens_motion& lens) : hold_loop(what), motion(lens) {}

  const lens_motion& motion;
  int start_speed GUARDED_BY(lock) = 0;  // what the speed file held when the hold began
  lens_watch watch GUARDED_BY(lock);
};

// For tests, which step them.
extern lens_loop zoom_loop, focus_loop;

// A trigger starts a motion, or extends it when it runs in the same direction already, for
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
