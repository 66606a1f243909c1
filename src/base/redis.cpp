#include "base/redis.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/time.h>

#include <cstdarg>

#include "base/clock.h"
#include "base/paths.h"
#include "base/text.h"

namespace {

constexpr timeval kTimeout{0, 50'000};
constexpr int64_t kTimeout_ns = 50 * kNanosecondsPerMillisecond;

// Waits for bytes until the deadline.
bool await_bytes(const redis_connection& connection) {
  const int64_t left_ns = connection.deadline_ns - monotonic_ns();
  if (left_ns <= 0) return false;
  pollfd readable{connection.context->fd, POLLIN, 0};
  return poll(&readable, 1, static_cast<int>(left_ns / kNanosecondsPerMillisecond) + 1) > 0;
}

bool send_command(redisContext* context) {
  int sent = 0;
  while (sent == 0) {
    if (redisBufferWrite(context, &sent) != REDIS_OK) return false;
  }
  return true;
}

redis_reply receive_reply(redis_connection& connection) {
  void* reply = nullptr;
  while (redisGetReplyFromReader(connection.context.get(), &reply) == REDIS_OK && reply == nullptr) {
    if (!await_bytes(connection) || redisBufferRead(connection.context.get()) != REDIS_OK) break;
  }
  return redis_reply(static_cast<redisReply*>(reply));
}

}  // namespace

redis_connection redis_connect() {
  redis_connection connection;
  connection.deadline_ns = monotonic_ns() + kTimeout_ns;
  connection.context.reset(redisConnectWithTimeout(addresses::kRedis, addresses::kRedisPort, kTimeout));
  redisContext* context = connection.context.get();
  const bool is_good =
      context != nullptr && context->err == 0 && redisSetTimeout(context, kTimeout) == REDIS_OK;
  if (!is_good) connection.context.reset();
  if (is_good) fcntl(context->fd, F_SETFD, FD_CLOEXEC);
  return connection;
}

redis_reply redis_command(redis_connection& connection, const char* format, ...) {
  redisContext* context = connection.context.get();
  if (context == nullptr) return nullptr;
  va_list arguments;
  va_start(arguments, format);
  const bool appended = redisvAppendCommand(context, format, arguments) == REDIS_OK;
  va_end(arguments);
  redis_reply reply;
  if (appended && send_command(context)) reply = receive_reply(connection);
  if (!reply) connection.context.reset();  // what may still come would answer the wrong command
  return reply;
}

bool redis_get_text(const char* key, char* text, size_t size) {
  redis_connection connection = redis_connect();
  const redis_reply reply = redis_command(connection, "GET %s", key);
  if (!reply || reply->type != REDIS_REPLY_STRING) return false;
  copy_text(text, size, {reply->str, reply->len});
  return true;
}
