#include "base/hold_loop.h"

#include <algorithm>

#include "base/clock.h"
#include "base/thread.h"

hold_event step_hold(hold_state& hold, int64_t now_ns, int period_ms) {
  if (hold.direction == 0) return hold_event::none;
  if (now_ns >= hold.until_ns) {
    hold.direction = 0;
    return hold_event::end;
  }
  if (now_ns < hold.period_ns) return hold_event::none;
  while (hold.period_ns <= now_ns) {
    hold.held_ms += period_ms;
    hold.period_ns += period_ms * kNanosecondsPerMillisecond;
  }
  return hold_event::period;
}

std::optional<hold_event> trigger_hold(hold_state& hold, int direction, int duration_ms, int64_t now_ns,
                                       int period_ms) {
  const bool begins = hold.direction == 0;
  if (direction == 0 || hold.closed || (!begins && (hold.direction > 0) != (direction > 0))) return {};
  hold.until_ns = now_ns + duration_ms * kNanosecondsPerMillisecond;
  if (!begins) return hold_event::none;
  hold.direction = direction;
  hold.held_ms = 0;
  hold.period_ns = now_ns + period_ms * kNanosecondsPerMillisecond;
  return hold_event::begin;
}

void end_hold(hold_loop& loop, int64_t now_ns) {
  if (loop.hold.direction == 0) return;
  loop.hold.direction = 0;
  loop.actions.end(loop, now_ns);
}

int64_t step_hold_loop(hold_loop& loop, int64_t now_ns) {
  const hold_event event = step_hold(loop.hold, now_ns, loop.actions.period_ms);
  if (event == hold_event::end) loop.actions.end(loop, now_ns);
  if (event == hold_event::period) loop.actions.period(loop, now_ns);
  const int64_t settle_ns = loop.actions.settle(loop, now_ns);
  if (loop.hold.direction == 0) return settle_ns;
  return std::min({settle_ns, loop.hold.until_ns, loop.hold.period_ns});
}

int trigger_hold_loop(hold_loop& loop, int direction, int duration_ms, int64_t now_ns) {
  const mutex_lock lock(loop.lock);
  step_hold_loop(loop, now_ns);  // the thread may be late for the end of the hold before
  const auto event = trigger_hold(loop.hold, direction, duration_ms, now_ns, loop.actions.period_ms);
  if (!event) return 0;
  if (*event == hold_event::begin) loop.actions.begin(loop, now_ns);
  loop.wake.signal();  // the end may have come nearer
  return 1;
}

void stop_hold_loop(hold_loop& loop, int64_t now_ns) {
  const mutex_lock lock(loop.lock);
  end_hold(loop, now_ns);
}

namespace {

void* hold_thread(void* argument) {
  auto& loop = *static_cast<hold_loop*>(argument);
  const mutex_lock lock(loop.lock);
  for (;;) {
    const int64_t next = step_hold_loop(loop, monotonic_ns());
    if (next == kNever_ns) {
      loop.wake.wait(loop.lock);
    } else {
      loop.wake.wait_until_ns(loop.lock, next);
    }
  }
}

}  // namespace

void create_hold_loop(hold_loop& loop, const char* thread_name) {
  start_detached_thread(thread_name, hold_thread, &loop);
}
