// Hold-to-run: a motion that goes on while the operator holds a button. Each trigger holds it for some time
// more; a stop, or the end of that time, ends it. One thread a loop.
#pragma once

#include <cstdint>

#include "base/mutex.h"

inline constexpr int kHoldTick_ms = 5;

// What a loop does. The functions run on the loop's thread, without its lock.
struct hold_actions {
  const char* thread_name;
  void (*start)(int direction);
  void (*step)(int direction, int held_ms);  // every 5 ms while held
  bool (*end)();                             // false: not yet; it is called again after 5 ms
  bool (*settle)();  // what the end still owes; false: not yet, it is called again after 20 ms. May be null
};

struct hold_loop {
  constexpr explicit hold_loop(const hold_actions& what) : actions(what) {}

  const hold_actions& actions;
  mutex lock;
  condition wake;
  int direction GUARDED_BY(lock) = 0;  // 0 idle
  int64_t hold_until_ns GUARDED_BY(lock) = 0;
  unsigned run GUARDED_BY(lock) = 0;  // counts the starts, so that a stop and a new start are not one motion
  unsigned holding GUARDED_BY(lock) = 0;  // the run whose end has not been made yet; 0 none
  bool closed GUARDED_BY(lock) = false;
};

// Starts the loop's thread. Once, main thread.
void create_hold_loop(hold_loop* loop);

// Any thread; neither waits for the motion. Trigger returns 1, or 0 when the direction is 0 or the other one
// runs.
int trigger_hold_loop(hold_loop* loop, int direction, int duration_ms);
void stop_hold_loop(hold_loop* loop);

// Stops it for good: later triggers are refused.
void close_hold_loop(hold_loop* loop);

// Waits until a run that has been stopped has made its end, at most `timeout_ms`; neither for one that is
// held nor for a later one. Not the loop's thread.
void await_hold_end(hold_loop* loop, int timeout_ms);
