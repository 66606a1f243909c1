// A real Redis for the life of the object.
#pragma once

#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>

#include "base/clock.h"
#include "base/redis.h"

class redis_server {
 public:
  redis_server() : process_(fork()) {
    if (process_ == 0) {
      prctl(PR_SET_PDEATHSIG, SIGKILL);
      execlp("redis-server", "redis-server", "--bind", "127.0.0.1", "--save", "", "--logfile", "/dev/null",
             nullptr);
      _exit(1);
    }
    for (int i = 0; i < 1000 && !redis_command(redis_connect(), "PING"); ++i) sleep_ms(5);
    EXPECT_TRUE(redis_command(redis_connect(), "PING"));
  }
  redis_server(const redis_server&) = delete;
  redis_server& operator=(const redis_server&) = delete;
  ~redis_server() {
    kill(process_, SIGKILL);
    waitpid(process_, nullptr, 0);
  }

  void freeze() const {
    kill(process_, SIGSTOP);
    waitpid(process_, nullptr, WUNTRACED);
  }
  void thaw() const { kill(process_, SIGCONT); }

 private:
  const pid_t process_;
};
