// The unit's local Redis database. Any thread but the main loop, which has base/redis_exchange.h. A
// connection lives for one short exchange: connecting and all its commands together wait at most 0.05 s, so
// that a Redis that is frozen or slow delays nobody.
#pragma once

#include <hiredis/hiredis.h>

#include <cstddef>
#include <cstdint>
#include <memory>

struct redis_context_releaser {
  void operator()(redisContext* context) const { redisFree(context); }
};
struct redis_reply_releaser {
  void operator()(redisReply* reply) const { freeReplyObject(reply); }
};
using redis_reply = std::unique_ptr<redisReply, redis_reply_releaser>;

struct redis_connection {
  std::unique_ptr<redisContext, redis_context_releaser> context;  // null when Redis cannot be reached
  int64_t deadline_ns = 0;                                        // of the whole exchange
};

// A fresh connection to 127.0.0.1:6379.
redis_connection redis_connect();

// One command; null after an error or when the time is over. The connection then refuses every further
// command.
redis_reply redis_command(redis_connection& connection, const char* format, ...)
    __attribute__((format(printf, 2, 3)));

// "GET key" on a connection of its own: the text cut to size - 1 characters and terminated. False, with
// `text` untouched, when Redis cannot be reached or holds no text under the key.
bool redis_get_text(const char* key, char* text, size_t size);
