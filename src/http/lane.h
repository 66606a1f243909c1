// Lanes: threads that answer requests which wait for a disk, a stick or the network, so that nobody else
// waits with them. A lane answers in the order of asking; what has to stay in that order shares one.
#pragma once

#include "base/mutex.h"
#include "http/server.h"

// As many requests, one a seat, may wait for one that hangs: of the 15 connections some are left for the
// other lane and for who waits for nothing.
inline constexpr int kLaneLimit = 6;
inline constexpr int64_t kLaneHangs_ns = 250'000'000;

struct http_lane {
  const char* thread_name;
  mutex lock{};
  condition asked{};
  bool is_running GUARDED_BY(lock) = false;
  int count GUARDED_BY(lock) = 0;                     // that wait or are being answered
  int64_t since_ns GUARDED_BY(lock) = 0;              // when the last one was begun
  http_connection* first GUARDED_BY(lock) = nullptr;  // linked by next_held
  http_connection* last GUARDED_BY(lock) = nullptr;
};

// Has the lane call `handler` with the request, whose connection then closes as if a handler had returned.
// Without a thread it is called here; when the lane hangs and is full the answer is "BUSY". Returns what the
// handler that asks has to return. HTTP thread.
int answer_in_lane(http_lane* lane, http_connection* connection, http_handler handler);
