// The external USB stick: mounted when it is plugged in, unmounted when it has been pulled, and ejected on
// request as soon as nothing is written to it.
#pragma once

struct stick_state {
  bool mounted = false;
  bool ejected = false;  // and still plugged in
  bool eject_pending = false;
  bool update_available = false;
};

// Looks at a stick that has just been mounted: whether an update is on it. Stick's thread.
using stick_visit = bool();

// Starts the stick's thread: it lets go of what a run before this one has left mounted, and takes a step
// every second, or at once when an eject is asked for. Start-up, once.
void start_usb_stick(stick_visit* visit);

// Mounts a stick that has been plugged in, unmounts one that has been pulled, tries to eject one that shall
// go. Waits as long as the stick takes. Stick's thread.
void step_usb_stick(stick_visit* visit);

// Any thread.
stick_state usb_stick_now();

// "eject pending", "ejected", "inserted", "removed".
const char* stick_text(const stick_state& now);

// Asks for the stick to be unmounted as soon as nothing is written to it: 1, or -1 when there is none. Any
// thread.
int orb_request_supervisor_eject();

// Whether a stick is mounted and not about to be ejected. Any thread.
bool orb_is_external_usb_mounted();
