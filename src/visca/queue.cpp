// The command ring of a camera: producers on any thread, retired by the camera thread.

#include <cstring>

#include "base/clock.h"
#include "base/trace.h"
#include "visca/camera.h"
#include "visca/connection.h"

namespace {

constexpr uint8_t kAddressFlag = 0x80;

int32_t next_index(int32_t index) { return index + 1 == kViscaRingSize ? 0 : index + 1; }

bool is_ring_empty(const visca_camera* camera) { return camera->extract_index == camera->insert_index; }

// Sends the head command; the caller has set `busy`. A failed send leaves it outstanding until the camera
// thread retires it.
void send_head(visca_camera* camera) REQUIRES(camera->lock) {
  const int32_t head = camera->extract_index;
  trace(kTraceVisca, "extract %d", head);
  const int64_t now = monotonic_ns();
  camera->sockets[0].sent_at_ns = now;
  ++camera->sockets[0].state;
  camera->outstanding_since_ns = now;
  const visca_command& command = camera->commands[static_cast<size_t>(head)];
  visca_connection_send_command(camera->connection, command.packet.data(), command.length);
}

// Sends the head command unless one is outstanding.
void send_if_idle(visca_camera* camera) REQUIRES(camera->lock) {
  uint32_t idle = 0;
  if (!is_ring_empty(camera) && camera->busy.compare_exchange_strong(idle, 1)) send_head(camera);
}

}  // namespace

int visca_camera_queue_command(visca_camera* camera, std::span<const uint8_t> payload) {
  const mutex_lock lock(camera->lock);
  if (visca_connection_is_connected(camera->connection) == 0) return -1;
  const int32_t insert = camera->insert_index;
  if (insert == camera->last_completed_index) return -1;
  trace(kTraceVisca, "insert %d", insert);
  visca_command& command = camera->commands[static_cast<size_t>(insert)];
  command.packet[0] = kAddressFlag | camera->address;
  memcpy(&command.packet[1], payload.data(), payload.size());
  command.packet[payload.size() + 1] = kViscaTerminator;
  command.length = payload.size() + 2;
  camera->insert_index = next_index(insert);
  send_if_idle(camera);
  return 0;
}

// Under the lock (D20): a late completion must not retire a command that a producer is about to write.
void visca_camera_complete_command(visca_camera* camera, int status) {
  const mutex_lock lock(camera->lock);
  if (camera->busy != 1) return;
  const int32_t head = camera->extract_index;
  trace(kTraceVisca, "complete %d %d", head, status);
  // The index moves on before `busy` is released, or a producer would send the retired command again.
  camera->extract_index = next_index(head);
  camera->last_completed_index = head;
  camera->outstanding_since_ns = 0;
  camera->busy = 0;
  send_if_idle(camera);
}

void visca_camera_reset(visca_camera* camera) {
  const mutex_lock lock(camera->lock);
  camera->insert_index = 1;
  camera->extract_index = 1;
  camera->last_completed_index = 0;
  camera->outstanding_since_ns = 0;
  camera->busy = 0;
  for (visca_socket_slot& slot : camera->sockets) slot.state = 0;
  camera->lost_commands = 0;
  camera->lost_ns = 0;
  camera->digital_zoom = 0;
  camera->zoom_position = kViscaNotReported;
  camera->focus_position = kViscaNotReported;
  camera->version_state = kViscaNotReported;
  camera->model_id = 0;
  camera->rom_version = 0;
  camera->on_acknowledge = nullptr;
  camera->on_completion = nullptr;
  camera->on_error = nullptr;
}

bool visca_camera_is_idle(const visca_camera* camera) { return camera->busy == 0 && is_ring_empty(camera); }
