// What the supervisor's sources share. Main loop, unless it says otherwise.
#pragma once

#include <array>

#include "supervisor/supervisor.h"

struct ev_loop;

// --- the encoder, every 5 s ---

struct encoder_report {
  camera_temperatures temperatures;
  std::array<char[64], 2> channels{};  // what the encoder says of its streams
};

void start_encoder_poll(struct ev_loop* loop);

// What the last poll that got through has told. Any thread.
encoder_report last_encoder_report();

// --- the camera's echo, every second ---

void start_camera_ping(struct ev_loop* loop);
bool is_camera_reachable();

// --- the external USB stick ---

struct stick_state {
  bool mounted = false;
  bool ejected = false;  // and still plugged in
  bool eject_pending = false;
  bool update_available = false;
};

// Starts the stick's thread: it lets go of what a run before this one has left mounted, and takes a step
// every second, or at once when an eject is asked for.
void start_usb_stick();

// Mounts a stick that has been plugged in, unmounts one that has been pulled, tries to eject one that shall
// go. Waits as long as the stick takes. Stick's thread.
void step_usb_stick();

stick_state usb_stick_now();  // any thread

// --- the USB store ---

// Starts the thread that measures the store every second: one that hangs holds nobody else.
void start_usb_store_watch();

// Measures it. Waits for the store. Its thread.
void measure_usb_store();

// Percent in use as last measured, of what is in use and free for us; 0 when it cannot be told. Any thread.
int usb_store_percent();

// --- the end ---

void start_shutdown_thread();

// --- status ---

// Text of the release file, as it was at the start. Any thread.
void load_release(char* text, size_t size);
