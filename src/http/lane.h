// Lanes: threads that answer requests which wait for a disk, a stick or the network, so that nobody else
// waits with them. A lane answers in the order of asking; what has to stay in that order shares one.
#pragma once

#include "base/mutex.h"
#include "http/server.h"

struct http_lane {
  const char* thread_name;
  mutex lock{};
  condition asked{};
  bool is_running GUARDED_BY(lock) = false;
  http_connection* first GUARDED_BY(lock) = nullptr;  // linked by next_held
  http_connection* last GUARDED_BY(lock) = nullptr;
};

// Has the lane call `handler` with the request, whose connection then closes as if a handler had returned.
// Without a thread it is called here; when too many wait the answer is "BUSY". Returns what the handler that
// asks has to return. HTTP thread.
int answer_in_lane(http_lane* lane, http_connection* connection, http_handler handler);
