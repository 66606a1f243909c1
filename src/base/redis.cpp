#include "base/redis.h"

#include <fcntl.h>
#include <sys/time.h>

#include <cstdarg>

#include "base/paths.h"
#include "base/text.h"

namespace {

constexpr timeval kTimeout{0, 50'000};

}  // namespace

redis_connection redis_connect() {
  redis_connection connection(redisConnectWithTimeout(addresses::kRedis, addresses::kRedisPort, kTimeout));
  if (!connection || connection->err != 0 || redisSetTimeout(connection.get(), kTimeout) != REDIS_OK)
    return nullptr;
  fcntl(connection->fd, F_SETFD, FD_CLOEXEC);
  return connection;
}

redis_reply redis_command(const redis_connection& connection, const char* format, ...) {
  if (!connection) return nullptr;
  va_list arguments;
  va_start(arguments, format);
  redis_reply reply(static_cast<redisReply*>(redisvCommand(connection.get(), format, arguments)));
  va_end(arguments);
  return reply;
}

bool redis_get_text(const char* key, char* text, size_t size) {
  const redis_connection connection = redis_connect();
  const redis_reply reply = redis_command(connection, "GET %s", key);
  if (!reply || reply->type != REDIS_REPLY_STRING) return false;
  copy_text(text, size, {reply->str, reply->len});
  return true;
}
