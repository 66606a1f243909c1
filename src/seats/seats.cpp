#include "seats/seats.h"

#include <ev.h>
#include <sys/random.h>

#include "base/mutex.h"
#include "base/text.h"
#include "base/trace.h"
#include "recorder/recorder.h"
#include "store/settings.h"

namespace {

constexpr double kTick_s = 1.0;

mutex seat_lock;
seat_table table GUARDED_BY(seat_lock);

ev_timer tick_timer;  // main loop

// From the kernel each time: whatever seed a generator of ours had could be found from one token. False while
// the kernel has none to give, early after its boot; it is not waited for.
bool draw_token(token_draws& draws) {
  return getrandom(draws.data(), sizeof draws, GRND_NONBLOCK) == static_cast<ssize_t>(sizeof draws);
}

void on_tick(struct ev_loop*, ev_timer*, int) { tick_seats(); }

void free_excess_observers() REQUIRES(seat_lock) {
  while (seat* excess = excess_observer(table)) {
    const int index = static_cast<int>(excess - table.seats.data());
    const bool pending = excess->role == seat_role::observer_requested;
    trace(kTraceApi, pending ? "kick pending %d" : "kick observer %d", index);
    free_seat(*excess);
  }
}

}  // namespace

void init_seats() {
  int limit = 0;
  orb_read_nv(kSettingViewerSeats, &limit, sizeof limit);
  const mutex_lock lock(seat_lock);
  table = {};
  if (limit >= 0 && limit <= kMaximumObservers) table.observer_limit = limit;
}

void start_seat_tick(struct ev_loop* loop) {
  ev_timer_init(&tick_timer, on_tick, kTick_s, kTick_s);
  ev_timer_start(loop, &tick_timer);
}

void tick_seats() {
  const mutex_lock lock(seat_lock);
  for (int lost = count_down_seats(table); lost > 0; --lost) restore_controller_defaults();
}

seat_token request_seat(std::string_view role) {
  seat_token token;
  token_draws draws;
  if (!draw_token(draws)) {
    trace(kTraceApi, "no random numbers yet");
    return token;
  }
  const mutex_lock lock(seat_lock);
  copy_text(token.text, sizeof token.text, grant_seat(table, role, draws));
  return token;
}

seat_answer update_seat(std::string_view action, std::string_view token) {
  const mutex_lock lock(seat_lock);
  const seat_change change = change_seat(table, action, token);
  if (change.is_controller_lost) restore_controller_defaults();
  if (change.is_controller_kept) orb_service_recorder_watchdog();
  return {change.role, count_available(table)};
}

int observer_seats() {
  const mutex_lock lock(seat_lock);
  return table.observer_limit;
}

// Saved first and without the lock: a save waits for the disk, the tick must not. One thread at a
// time sets the limit (api-store).
void set_observer_seats(int limit) {
  orb_write_nv(kSettingViewerSeats, &limit, sizeof limit);
  const mutex_lock lock(seat_lock);
  table.observer_limit = limit;
  free_excess_observers();
}

bool controller_seat_warning() {
  const mutex_lock lock(seat_lock);
  return is_controller_running_out(table);
}
