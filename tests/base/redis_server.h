// A real Redis for the rest of the test; it ends with the box.
#pragma once

#include "base/redis.h"
#include "tests/kit.h"

// One command on a connection of its own.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-security"
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
template <typename... Arguments>
redis_reply ask_redis(const char* format, Arguments... arguments) {
  redis_connection connection = redis_connect();
  return redis_command(connection, format, arguments...);
}
#pragma GCC diagnostic pop

inline void start_redis() {
  ASSERT_EQ(
      system("redis-server --bind 127.0.0.1 --save '' --daemonize yes --pidfile /run/redis.pid >/dev/null"),
      0);
  await([] { return ask_redis("PING"); });
}

inline void signal_redis(const std::string& name) {
  ASSERT_EQ(system(("kill -" + name + " $(cat /run/redis.pid)").c_str()), 0);
}
