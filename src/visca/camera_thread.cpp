#include "visca/camera_thread.h"

#include "base/clock.h"
#include "base/paths.h"
#include "base/trace.h"

constinit visca_thread_record visca_thread_data;

namespace {

constexpr int kCameraAddress = 1;
constexpr int kConnectTimeout_ms = 5000;
constexpr int64_t kRetry_ms = 2000;
constexpr int64_t kReconnect_ms = 5000;
constexpr int64_t kPoll_ms = 100;  // the rhythm in which acknowledges are seen
constexpr double kCollectInterval_s = 0.1;

enum class link_end { lost, idle, update };

// Takes the link down. The pointers are cleared first, so that nobody finds a camera that is going.
void destroy_link(visca_thread_record* data, visca_connection* connection) {
  struct ev_loop* loop = connection->loop;
  data->camera = nullptr;
  data->connection = nullptr;
  visca_connection_destroy(connection);
  ev_loop_destroy(loop);
}

struct ev_loop* create_loop() {
  struct ev_loop* loop = ev_loop_new(EVBACKEND_POLL);
  if (loop == nullptr) {
    trace(kTraceVisca, "loop fail");
    return nullptr;
  }
  ev_set_io_collect_interval(loop, kCollectInterval_s);
  return loop;
}

// One attempt; null when the connect could not even be started.
visca_connection* build_link(visca_thread_record* data) {
  struct ev_loop* loop = create_loop();
  if (loop == nullptr) return nullptr;
  visca_connection* connection =
      visca_connection_create(loop, addresses::kCamera, addresses::kCameraPort, kConnectTimeout_ms);
  if (connection == nullptr) {
    trace(kTraceVisca, "create fail");
    ev_loop_destroy(loop);
    return nullptr;
  }
  ++data->link_number;
  data->connection = connection;
  visca_camera* camera = visca_connection_add_camera(connection, kCameraAddress, 0);
  camera->on_acknowledge = visca_acknowledge_callback;
  camera->on_completion = visca_completion_callback;
  data->camera = camera;
  return connection;
}

link_end run_link(visca_thread_record* data, visca_connection* connection) {
  for (;;) {
    if (visca_connection_poll(connection) == 0) return link_end::idle;
    sleep_ms(kPoll_ms);
    if (data->update_requested != 0) return link_end::update;
    if (connection->fd < 0) return link_end::lost;
  }
}

void wait_for_resume(visca_thread_record* data) {
  const mutex_lock lock(data->resume_lock);
  while (!data->resumed) data->resume.wait(data->resume_lock);
  data->resumed = false;
}

// Says that there is no link any more, and parks until the update has ended.
void park(visca_thread_record* data) {
  {
    const mutex_lock lock(data->resume_lock);
    data->resumed = false;
  }
  {
    const mutex_lock lock(data->suspend_lock);
    data->released = true;
    data->suspend_done.signal();
  }
  trace(kTraceVisca, "wait begin");
  wait_for_resume(data);
  data->suspended = 0;
  trace(kTraceVisca, "wait end");
}

// Lets the link, if there is one, go to the update.
void suspend(visca_thread_record* data, visca_connection* connection) {
  data->suspended = 1;
  data->update_requested = 0;
  trace(kTraceVisca, "suspending for update");
  if (connection != nullptr) destroy_link(data, connection);
  park(data);
}

}  // namespace

bool visca_link_is_up(const visca_thread_record* data) {
  const visca_connection* connection = data->connection;
  return visca_connection_is_connected(connection) != 0 && connection->fd >= 0 && !connection->send_failed;
}

void* visca_thread_procedure(void* argument) {
  auto* data = static_cast<visca_thread_record*>(argument);
  trace(kTraceVisca, "thread start");
  data->connection = nullptr;
  data->camera = nullptr;
  visca_init_update(data);
  for (;;) {
    visca_connection* connection = build_link(data);
    if (connection == nullptr) {
      sleep_ms(kRetry_ms);
      if (data->update_requested != 0) suspend(data, nullptr);
      continue;
    }
    switch (run_link(data, connection)) {
      case link_end::idle:
        trace(kTraceVisca, "event 0");
        destroy_link(data, connection);
        sleep_ms(kRetry_ms);
        break;
      case link_end::update:
        suspend(data, connection);
        break;
      case link_end::lost:
        sleep_ms(kReconnect_ms);
        destroy_link(data, connection);
        break;
    }
  }
}

void visca_acknowledge_callback(visca_camera* camera, int socket) {
  trace(kTraceVisca, "visca command %d acknowledged", socket);
  // One step an acknowledge: focus reports on, zoom reports on, version asked. A step that finds the queue
  // full is tried again at the next.
  if (camera->focus_position == kViscaNotReported) {
    if (visca_camera_continuous_focus_position_on(camera) == 0) {
      camera->focus_position = global_focus_position.load();
    }
  } else if (camera->zoom_position == kViscaNotReported) {
    if (visca_camera_continuous_zoom_position_on(camera) == 0)
      camera->zoom_position = global_zoom_position.load();
  } else if (camera->version_state == kViscaNotReported) {
    if (visca_camera_version_inq(camera) == 0) camera->version_state = 0;
  }
}

void visca_completion_callback(visca_camera*, int socket) {
  trace(kTraceVisca, "visca command %d completed", socket);
}
