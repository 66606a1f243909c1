// An exchange with the unit's local Redis database that nobody waits for: a fresh connection, a few commands,
// and their replies when they come, all within 0.05 s. Main loop.
#pragma once

#include <ev.h>
#include <hiredis/async.h>

// Gets the reply of each command in turn; null when Redis has not answered in time, or not in its language.
using redis_reply_function = void(const redisReply* reply);

// One user's; it has one exchange under way at most, so that a frozen Redis piles up nothing.
struct redis_exchange {
  redisAsyncContext* context = nullptr;  // null: none is under way
  int unanswered = 0;                    // commands
  redis_reply_function* take_reply = nullptr;
  ev_timer deadline{};
};

// Connects to 127.0.0.1:6379. False, and nothing is sent, when Redis refuses the connection or the exchange
// before is still under way.
bool begin_redis_exchange(redis_exchange* exchange, redis_reply_function* take_reply = nullptr);

// Sends a command, in the turn of the loop that has begun the exchange: it ends with the last reply.
void add_redis_command(redis_exchange* exchange, const char* format, ...)
    __attribute__((format(printf, 2, 3)));
