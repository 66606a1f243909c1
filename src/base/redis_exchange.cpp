#include "base/redis_exchange.h"

#include <fcntl.h>
#include <hiredis/adapters/libev.h>

#include <cstdarg>

#include "base/paths.h"

namespace {

constexpr double kTimeout_s = 0.05;

// Every command gets here once; without a reply when the connection is being freed.
void on_reply(redisAsyncContext* context, void* reply, void*) {
  auto* exchange = static_cast<redis_exchange*>(context->data);
  if (exchange->take_reply != nullptr) exchange->take_reply(static_cast<const redisReply*>(reply));
  if (--exchange->unanswered > 0) return;
  ev_timer_stop(ev_default_loop(0), &exchange->deadline);
  exchange->context = nullptr;
  // Freed, not disconnected: a server that answers more than it was asked would still be read, and hiredis
  // ends the process at a reply that nobody waits for.
  if (reply != nullptr) redisAsyncFree(context);
}

void on_deadline(struct ev_loop*, ev_timer* timer, int) {
  auto* exchange = static_cast<redis_exchange*>(timer->data);
  redisAsyncFree(exchange->context);  // tells who waits
  exchange->context = nullptr;
}

}  // namespace

bool begin_redis_exchange(redis_exchange* exchange, redis_reply_function* take_reply) {
  if (exchange->context != nullptr) return false;
  struct ev_loop* loop = ev_default_loop(0);
  redisAsyncContext* context = redisAsyncConnect(addresses::kRedis, addresses::kRedisPort);
  if (context == nullptr) return false;
  if (context->err != 0 || redisLibevAttach(loop, context) != REDIS_OK) {
    redisAsyncFree(context);
    return false;
  }
  fcntl(context->c.fd, F_SETFD, FD_CLOEXEC);
  context->data = exchange;
  exchange->context = context;
  exchange->unanswered = 0;
  exchange->take_reply = take_reply;
  ev_timer_init(&exchange->deadline, on_deadline, kTimeout_s, 0.);
  ev_set_priority(&exchange->deadline, EV_MINPRI);  // after a reply that a late loop finds beside it
  exchange->deadline.data = exchange;
  ev_now_update(loop);
  ev_timer_start(loop, &exchange->deadline);
  return true;
}

void add_redis_command(redis_exchange* exchange, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  if (redisvAsyncCommand(exchange->context, on_reply, nullptr, format, arguments) == REDIS_OK) {
    ++exchange->unanswered;
  }
  va_end(arguments);
}
