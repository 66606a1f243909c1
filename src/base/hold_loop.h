// Hold-to-run: a motion that goes on while the operator holds a button. Each trigger holds it for some time
// more; a stop, or the end of that time, ends it. Who decides also acts, under the loop's lock: what a loop
// does never waits. Its thread sees to what time brings, and to what an action has left undone.
#pragma once

#include <cstdint>
#include <limits>
#include <optional>

#include "base/mutex.h"

// How long one trigger holds: while its button is held, a client asks again within this time.
inline constexpr int kHold_ms = 500;

inline constexpr int64_t kNever_ns = std::numeric_limits<int64_t>::max();

// The button as a plain record: it reads no clock, and who owns it locks it.
struct hold_state {
  int direction = 0;      // 0: not held
  int64_t until_ns = 0;   // it ends then
  int64_t period_ns = 0;  // the next whole period is over then
  int held_ms = 0;        // whole periods
  bool closed = false;    // for good
};

enum class hold_event { none, begin, period, end };

// What the time brings, one event a call.
hold_event step_hold(hold_state& hold, int64_t now_ns, int period_ms);

// After step_hold at the same time. Nothing when it is refused: the direction is 0, or the other one is held,
// or the hold is closed.
std::optional<hold_event> trigger_hold(hold_state& hold, int direction, int duration_ms, int64_t now_ns,
                                       int period_ms);

struct hold_loop;

// What a loop does, under its lock.
struct hold_actions {
  int period_ms;
  void (*begin)(hold_loop& loop, int64_t now_ns);
  void (*period)(hold_loop& loop, int64_t now_ns);  // at the end of each whole one; a late one counts once
  void (*end)(hold_loop& loop, int64_t now_ns);
  // What is left to do; when to call it next, or kNever_ns.
  int64_t (*settle)(hold_loop& loop, int64_t now_ns);
};

struct hold_loop {
  explicit constexpr hold_loop(const hold_actions& what) : actions(what) {}

  const hold_actions& actions;
  mutex lock;
  condition wake;
  hold_state hold GUARDED_BY(lock);
};

// Starts the loop's thread. Start-up, once.
void create_hold_loop(hold_loop& loop, const char* thread_name);

// Any thread, without the lock; the time is monotonic_ns(), or a test's. Trigger returns 1, or 0 when it is
// refused.
int trigger_hold_loop(hold_loop& loop, int direction, int duration_ms, int64_t now_ns);
void stop_hold_loop(hold_loop& loop, int64_t now_ns);

// Ends the hold, if there is one.
void end_hold(hold_loop& loop, int64_t now_ns) REQUIRES(loop.lock);

// What the loop's thread does at `now_ns`; when it has something to do next, or kNever_ns.
int64_t step_hold_loop(hold_loop& loop, int64_t now_ns) REQUIRES(loop.lock);
