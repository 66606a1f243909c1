#include "camera/hold_loop.h"

#include <algorithm>
#include <optional>

#include "base/clock.h"
#include "base/thread.h"

namespace {

constexpr int64_t kTick_ns = kHoldTick_ms * kNanosecondsPerMillisecond;
constexpr int64_t kSettlePause_ns = 20 * kNanosecondsPerMillisecond;

struct hold_run {
  int direction = 0;
  unsigned number = 0;
};

bool has_expired(const hold_loop* loop) REQUIRES(loop->lock) { return monotonic_ns() >= loop->hold_until_ns; }

std::optional<hold_run> held_run(hold_loop* loop) REQUIRES(loop->lock) {
  if (loop->direction != 0 && has_expired(loop)) loop->direction = 0;
  if (loop->direction == 0) return std::nullopt;
  loop->holding = loop->run;
  return hold_run{loop->direction, loop->run};
}

// The run that a trigger has started and that is still held. While the loop has something to settle, the wait
// is short and nothing may come of it.
std::optional<hold_run> wait_for_trigger(hold_loop* loop, bool settled) {
  const mutex_lock lock(loop->lock);
  std::optional<hold_run> run = held_run(loop);
  while (!run && settled) {
    loop->wake.wait(loop->lock);
    run = held_run(loop);
  }
  if (run) return run;
  loop->wake.wait_until_ns(loop->lock, monotonic_ns() + kSettlePause_ns);
  return held_run(loop);
}

bool goes_on(const hold_loop* loop, unsigned run) REQUIRES(loop->lock) {
  return loop->direction != 0 && loop->run == run;
}

// Waits for the tick, or for a stop that comes before. True while this run goes on.
bool is_held_at(hold_loop* loop, const hold_run& run, int64_t tick_ns) {
  const mutex_lock lock(loop->lock);
  while (goes_on(loop, run.number) && monotonic_ns() < tick_ns) loop->wake.wait_until_ns(loop->lock, tick_ns);
  if (!goes_on(loop, run.number)) return false;
  if (has_expired(loop)) loop->direction = 0;
  return loop->direction != 0;
}

// The run whose end is being made, 0 when there is none.
unsigned ending_run(hold_loop* loop) {
  const mutex_lock lock(loop->lock);
  return goes_on(loop, loop->holding) && !has_expired(loop) ? 0 : loop->holding;
}

void hold(hold_loop* loop, const hold_run& run) {
  loop->actions.start(run.direction);
  int64_t next = monotonic_ns();
  for (int held_ms = kHoldTick_ms;; held_ms += kHoldTick_ms) {
    next = std::max(next + kTick_ns, monotonic_ns());  // a missed tick is not made up for
    if (!is_held_at(loop, run, next)) break;
    loop->actions.step(run.direction, held_ms);
  }
  while (!loop->actions.end()) sleep_ms(kHoldTick_ms);
  const mutex_lock lock(loop->lock);
  loop->holding = 0;
}

void* hold_thread(void* argument) {
  auto* loop = static_cast<hold_loop*>(argument);
  for (;;) {
    const bool settled = loop->actions.settle == nullptr || loop->actions.settle();
    if (const std::optional<hold_run> run = wait_for_trigger(loop, settled)) hold(loop, *run);
  }
}

}  // namespace

void create_hold_loop(hold_loop* loop) {
  start_detached_thread(loop->actions.thread_name, hold_thread, loop);
}

int trigger_hold_loop(hold_loop* loop, int direction, int duration_ms) {
  if (direction == 0) return 0;
  const mutex_lock lock(loop->lock);
  if (has_expired(loop)) loop->direction = 0;  // the thread may be busy with an end and not know yet
  if (loop->closed || (loop->direction != 0 && (loop->direction > 0) != (direction > 0))) return 0;
  if (loop->direction == 0) {
    loop->direction = direction;
    ++loop->run;
    loop->wake.signal();
  }
  loop->hold_until_ns = monotonic_ns() + duration_ms * kNanosecondsPerMillisecond;
  return 1;
}

void stop_hold_loop(hold_loop* loop) {
  const mutex_lock lock(loop->lock);
  loop->direction = 0;
  loop->wake.signal();
}

void close_hold_loop(hold_loop* loop) {
  const mutex_lock lock(loop->lock);
  loop->closed = true;
  loop->direction = 0;
  loop->wake.signal();
}

void await_hold_end(hold_loop* loop, int timeout_ms) {
  const unsigned run = ending_run(loop);
  for (int left_ms = timeout_ms; run != 0 && ending_run(loop) == run && left_ms > 0; --left_ms) sleep_ms(1);
}
