#include "camera/lens_watch.h"

#include "base/clock.h"

namespace {

constexpr int64_t kRepeat_ns = 250 * kNanosecondsPerMillisecond;
constexpr int64_t kPatience_ns = 750 * kNanosecondsPerMillisecond;
constexpr int64_t kQuiet_ns = 500 * kNanosecondsPerMillisecond;
constexpr int kMostLosses = 4;

bool is_untouched(const lens_watch& watch, const lens_link& now) {
  return watch.queued && watch.link.number == now.number && watch.link.lost_commands == now.lost_commands;
}

// Half a second behind an idle queue.
void look_for_arrival(lens_watch& watch, bool idle, int64_t now_ns) {
  if (watch.through_ns == 0 && idle) watch.through_ns = now_ns;
  if (watch.through_ns == 0 || now_ns - watch.through_ns < kQuiet_ns) return;
  watch.watched = false;
  if (watch.order.effect != lens_effect::drives && !watch.doubted) watch.driving = false;
}

}  // namespace

void note_lens_order(lens_watch& watch, const lens_order& order, bool taken, bool again,
                     const lens_link& before, int64_t now_ns) {
  const bool drives = order.effect == lens_effect::drives;
  if (drives && taken) watch.driving = true;
  watch.order = order;
  watch.watched = watch.driving || drives;
  watch.queued = taken;
  watch.link = before;
  watch.queued_ns = now_ns;
  watch.through_ns = 0;
  if (!again) watch.losses = 0;
  watch.doubted = order.effect == lens_effect::stops && !again && before.lost_ns != 0 &&
                  now_ns - before.lost_ns < kQuiet_ns;
}

lens_need step_lens_watch(lens_watch& watch, const lens_link& now, bool held, int64_t now_ns) {
  if (!watch.watched) return lens_need::nothing;
  if (is_untouched(watch, now)) {
    look_for_arrival(watch, now.idle, now_ns);
    if (watch.watched || !watch.doubted) return lens_need::nothing;
    watch.watched = true;
    return lens_need::again;
  }
  const bool same_link = watch.link.number == now.number;
  if (same_link && watch.queued) {
    const int64_t age_ns = now_ns - watch.queued_ns;
    if (age_ns < kRepeat_ns || (!now.idle && age_ns < kPatience_ns)) return lens_need::nothing;
    ++watch.losses;
  }
  if (held || watch.order.effect == lens_effect::stops) return lens_need::again;
  return same_link && watch.losses < kMostLosses ? lens_need::again : lens_need::stop;
}

bool is_lens_order_through(const lens_watch& watch, const lens_link& now) {
  return !watch.watched || (is_untouched(watch, now) && now.idle);
}
