#include "http/lane.h"

#include "base/clock.h"
#include "base/thread.h"
#include "http/response.h"

namespace {

http_connection* await_request(http_lane* lane) {
  const mutex_lock lock(lane->lock);
  while (lane->first == nullptr) lane->asked.wait(lane->lock);
  http_connection* connection = lane->first;
  lane->first = connection->next_held;
  lane->since_ns = monotonic_ns();
  return connection;
}

void answer(http_connection* connection, http_handler handler) {
  const http_request& request = connection->request;
  handler(connection, request.content, static_cast<unsigned long>(request.content_length), nullptr);
}

void leave(http_lane* lane) {
  const mutex_lock lock(lane->lock);
  --lane->count;
}

void* serve_for_ever(void* argument) {
  auto* lane = static_cast<http_lane*>(argument);
  for (;;) {
    http_connection* connection = await_request(lane);
    answer(connection, connection->held_for);
    leave(lane);
    http_connection_return(connection);
  }
}

// A thread that could not be had is asked for again.
bool run(http_lane* lane) REQUIRES(lane->lock) {
  if (!lane->is_running)
    lane->is_running = start_detached_thread(lane->thread_name, serve_for_ever, lane) == 0;
  return lane->is_running;
}

bool is_hanging(const http_lane& lane) REQUIRES(lane.lock) {
  return lane.count >= kLaneLimit && monotonic_ns() - lane.since_ns > kLaneHangs_ns;
}

enum class offered { taken, refused, no_thread };

offered offer(http_lane* lane, http_connection* connection, http_handler handler) {
  const mutex_lock lock(lane->lock);
  if (!run(lane)) return offered::no_thread;
  if (is_hanging(*lane)) return offered::refused;
  ++lane->count;
  http_connection_hold(connection, handler);
  connection->next_held = nullptr;
  (lane->first == nullptr ? lane->first : lane->last->next_held) = connection;
  lane->last = connection;
  lane->asked.signal();
  return offered::taken;
}

}  // namespace

int answer_in_lane(http_lane* lane, http_connection* connection, http_handler handler) {
  switch (offer(lane, connection, handler)) {
    case offered::taken:
      return 1;
    case offered::refused:
      return send_job_status(connection, 1);
    default:
      return answer(connection, handler), 0;
  }
}
