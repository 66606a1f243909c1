// What a busy or broken machine runs out of, while one of these lives.
#pragma once

#include <pthread.h>
#include "tests/kit.h"

// No file can be opened, but for descriptors below `limit` that are free.
class no_more_files {
 public:
  explicit no_more_files(rlim_t limit = 1) {
    getrlimit(RLIMIT_NOFILE, &before_);
    const rlimit none{limit, before_.rlim_max};
    setrlimit(RLIMIT_NOFILE, &none);
  }
  no_more_files(const no_more_files&) = delete;
  ~no_more_files() { setrlimit(RLIMIT_NOFILE, &before_); }

 private:
  rlimit before_{};
};

// No thread can be started: its stack would be too large.
class no_more_threads {
 public:
  no_more_threads() {
    pthread_getattr_default_np(&before_);
    pthread_attr_t vast = before_;
    pthread_attr_setstacksize(&vast, size_t{1} << 46);
    pthread_setattr_default_np(&vast);
  }
  no_more_threads(const no_more_threads&) = delete;
  ~no_more_threads() { pthread_setattr_default_np(&before_); }

 private:
  pthread_attr_t before_{};
};
