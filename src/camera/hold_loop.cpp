#include "camera/hold_loop.h"

#include <algorithm>

#include "base/clock.h"
#include "base/thread.h"

namespace {

constexpr int64_t kTick_ns = kHoldTick_ms * kNanosecondsPerMillisecond;

struct hold_run {
  int direction = 0;
  unsigned number = 0;
};

hold_run wait_for_trigger(hold_loop* loop) {
  const mutex_lock lock(loop->lock);
  while (loop->direction == 0) loop->wake.wait(loop->lock);
  return {loop->direction, loop->run};
}

// One tick less to hold; true while this run goes on.
bool count_down(hold_loop* loop, const hold_run& run) {
  const mutex_lock lock(loop->lock);
  if (loop->direction == 0 || loop->run != run.number) return false;
  loop->remaining_ms -= kHoldTick_ms;
  if (loop->remaining_ms < 1) loop->direction = 0;
  return loop->direction != 0;
}

void hold(hold_loop* loop, const hold_run& run) {
  loop->actions.start(run.direction);
  int64_t next = monotonic_ns();
  for (int held_ms = kHoldTick_ms;; held_ms += kHoldTick_ms) {
    next = std::max(next + kTick_ns, monotonic_ns());  // a missed tick is not made up for
    sleep_until_ns(next);
    if (!count_down(loop, run)) break;
    loop->actions.step(run.direction, held_ms);
  }
  while (!loop->actions.end()) sleep_ms(kHoldTick_ms);
}

void* hold_thread(void* argument) {
  auto* loop = static_cast<hold_loop*>(argument);
  for (;;) hold(loop, wait_for_trigger(loop));
}

}  // namespace

void create_hold_loop(hold_loop* loop) {
  start_detached_thread(loop->actions.thread_name, hold_thread, loop);
}

int trigger_hold_loop(hold_loop* loop, int direction, int duration_ms) {
  if (direction == 0) return 0;
  const mutex_lock lock(loop->lock);
  if (loop->direction != 0 && (loop->direction > 0) != (direction > 0)) return 0;
  if (loop->direction == 0) {
    loop->direction = direction;
    ++loop->run;
    loop->wake.signal();
  }
  loop->remaining_ms = duration_ms;
  return 1;
}

void stop_hold_loop(hold_loop* loop) {
  const mutex_lock lock(loop->lock);
  loop->direction = 0;
}
