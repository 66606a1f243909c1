#include "app/main_loop.h"

#include <ev.h>

#include <algorithm>
#include <array>

#include "base/mutex.h"

namespace {

constexpr size_t kWaitingLimit = 16;  // different functions

mutex mailbox_lock;
struct ev_loop* mailbox_loop GUARDED_BY(mailbox_lock) = nullptr;  // null: before the start, and when closed
bool is_closed GUARDED_BY(mailbox_lock) = false;                  // posts are refused
std::array<main_loop_function, kWaitingLimit> waiting GUARDED_BY(mailbox_lock);
size_t waiting_count GUARDED_BY(mailbox_lock) = 0;
ev_async mailbox_watcher;

main_loop_function take_post() {
  const mutex_lock lock(mailbox_lock);
  if (waiting_count == 0) return nullptr;
  const main_loop_function first = waiting[0];
  std::copy(waiting.begin() + 1, waiting.begin() + static_cast<long>(waiting_count), waiting.begin());
  --waiting_count;
  return first;
}

void on_post(struct ev_loop*, ev_async*, int) {
  while (const main_loop_function function = take_post()) function();
}

}  // namespace

void open_main_loop_mailbox(struct ev_loop* loop) {
  ev_async_init(&mailbox_watcher, on_post);
  ev_async_start(loop, &mailbox_watcher);
  const mutex_lock lock(mailbox_lock);
  mailbox_loop = loop;
  is_closed = false;
  if (waiting_count != 0) ev_async_send(loop, &mailbox_watcher);
}

void close_main_loop_mailbox() {
  const mutex_lock lock(mailbox_lock);
  is_closed = true;
  if (mailbox_loop == nullptr) return;
  ev_async_stop(mailbox_loop, &mailbox_watcher);
  mailbox_loop = nullptr;
  waiting_count = 0;
}

bool post_to_main_loop(main_loop_function function) {
  const mutex_lock lock(mailbox_lock);
  if (is_closed) return false;
  const auto end = waiting.begin() + static_cast<long>(waiting_count);
  if (std::find(waiting.begin(), end, function) == end) {
    if (waiting_count == waiting.size()) return false;
    waiting[waiting_count++] = function;
  }
  if (mailbox_loop != nullptr) ev_async_send(mailbox_loop, &mailbox_watcher);
  return true;
}
