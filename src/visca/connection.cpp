#include "visca/connection.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>

#include "base/clock.h"
#include "base/tcp.h"
#include "base/trace.h"

constinit std::atomic<uint32_t> global_zoom_position = 0;
constinit std::atomic<uint32_t> global_focus_position = 0;

namespace {

constexpr double kCommandTimeout_s = 0.25;
constexpr int64_t kCommandTimeout_ns = 250 * kNanosecondsPerMillisecond;
constexpr size_t kReadSize = 4096;

constexpr uint8_t kFocusReport = 0x16;
constexpr uint8_t kZoomReport = 0x69;
constexpr size_t kReportLength = 11;
constexpr size_t kVersionLength = 9;  // at least, with the terminator
constexpr size_t kReplyLength = 3;

mutex pool_lock;
visca_connection* free_connections GUARDED_BY(pool_lock) = nullptr;

visca_connection* take_connection() {
  const mutex_lock lock(pool_lock);
  visca_connection* connection = free_connections;
  if (connection == nullptr) return new (std::nothrow) visca_connection;
  free_connections = connection->next_free;
  return connection;
}

void recycle_connection(visca_connection* connection) {
  const mutex_lock lock(pool_lock);
  connection->next_free = free_connections;
  free_connections = connection;
}

void stop_watchers(visca_connection* connection) {
  ev_io_stop(connection->loop, &connection->connect_watcher);
  ev_io_stop(connection->loop, &connection->read_watcher);
  ev_timer_stop(connection->loop, &connection->connect_timer);
}

// `connected` stays as it is: it falls with the next send, or when the thread builds the next link.
void close_socket(visca_connection* connection) {
  ev_io_stop(connection->loop, &connection->read_watcher);
  const mutex_lock lock(connection->send_lock);
  const int fd = connection->fd;
  connection->fd = -1;
  if (fd >= 0) close(fd);
}

// One write under send_lock; a failure shuts the link down.
int send_bytes(visca_connection* connection, const uint8_t* bytes, size_t length) {
  const mutex_lock lock(connection->send_lock);
  // Looked at again under the lock: the record may have been recycled for a link that is still connecting.
  if (connection->connected == 0) return -1;
  const int fd = connection->fd;
  // A short write would leave half a packet on the stream: it counts as a failure too. A closed socket is
  // EBADF.
  const ssize_t count = send(fd, bytes, length, MSG_NOSIGNAL | MSG_DONTWAIT);
  if (count == static_cast<ssize_t>(length)) return 0;
  if (count >= 0) errno = EMSGSIZE;
  trace(kTraceVisca, "send failure '%s'", strerror(errno));
  connection->connected = 0;
  connection->send_failed = true;
  if (fd >= 0) shutdown(fd, SHUT_RDWR);
  return -1;
}

void on_connect_timeout(struct ev_loop*, ev_timer* timer, int) {
  auto* connection = static_cast<visca_connection*>(timer->data);
  stop_watchers(connection);
  trace(kTraceVisca, "connect timeout");
  close_socket(connection);
}

void on_connect_result(struct ev_loop* loop, ev_io* watcher, int) {
  auto* connection = static_cast<visca_connection*>(watcher->data);
  ev_io_stop(loop, &connection->connect_watcher);
  ev_timer_stop(loop, &connection->connect_timer);
  int error = 0;
  socklen_t length = sizeof error;
  if (getsockopt(connection->fd, SOL_SOCKET, SO_ERROR, &error, &length) != 0) {
    trace(kTraceVisca, "sockopt failure '%s'", strerror(errno));
  } else if (error != 0) {
    trace(kTraceVisca, "connect error '%s'", strerror(error));
  } else {
    trace(kTraceVisca, "connect");
    connection->connected = 1;
    return;
  }
  close_socket(connection);
}

void on_readable(struct ev_loop*, ev_io* watcher, int) {
  auto* connection = static_cast<visca_connection*>(watcher->data);
  // Before the connect has succeeded a read would swallow the error that says why it was refused.
  if (connection->connected == 0) return;
  uint8_t buffer[kReadSize];
  const ssize_t count = read(connection->fd, buffer, sizeof buffer);
  if (count == 0) {
    trace(kTraceVisca, "remote close");
    close_socket(connection);
  } else if (count > 0) {
    trace_data(kTraceVisca, "read", buffer, count);
    visca_connection_receive(connection, buffer, static_cast<size_t>(count));
  }
}

// One command less waits for its answer. Others only add to them.
void answer_pending(visca_camera* camera) {
  if (camera->sockets[0].state != 0) --camera->sockets[0].state;
}

// Moves a command that waits for its acknowledge to `socket`.
void assign_pending(visca_camera* camera, size_t socket) {
  camera->sockets[socket].sent_at_ns = camera->sockets[0].sent_at_ns.load();
  answer_pending(camera);
  if (socket != 0) camera->sockets[socket].state = 1;
}

void free_socket(visca_camera* camera, size_t socket) {
  if (socket == 0) return answer_pending(camera);
  camera->sockets[socket].state = 0;
}

void take_report(visca_camera* camera, std::span<const uint8_t> packet) {
  if (packet.size() < kReportLength) return;
  const uint16_t position = visca_read_position(packet.subspan<6, 4>());
  if (packet[3] == kFocusReport) {
    camera->focus_position = position;
    global_focus_position = position;
  } else if (packet[3] == kZoomReport) {
    camera->digital_zoom = static_cast<uint8_t>(packet[4] << 4 | packet[5]);
    camera->zoom_position = position;
    global_zoom_position = position;
  }
}

void take_acknowledge(visca_camera* camera, size_t socket) {
  assign_pending(camera, socket);
  if (camera->on_acknowledge != nullptr) camera->on_acknowledge(camera, static_cast<int>(socket));
  // The queue moves on here: the next command goes out as soon as the camera has accepted this one.
  visca_camera_complete_command(camera, kViscaAcknowledged);
}

void take_completion(visca_camera* camera, size_t socket, std::span<const uint8_t> packet) {
  if (packet.size() >= kVersionLength && packet[2] == 0x00 && packet[3] == 0x20) {
    camera->model_id = static_cast<uint16_t>(packet[4] << 8 | packet[5]);
    camera->rom_version = static_cast<uint16_t>(packet[6] << 8 | packet[7]);
  }
  free_socket(camera, socket);
  if (camera->on_completion != nullptr) camera->on_completion(camera, static_cast<int>(socket));
  visca_camera_complete_command(camera, kViscaCompleted);
}

void note_loss(visca_camera* camera) {
  camera->lost_ns = monotonic_ns();
  ++camera->lost_commands;
}

void take_error(visca_camera* camera, size_t socket, uint8_t code) {
  if (socket != 0) assign_pending(camera, socket);
  if (camera->on_error != nullptr) camera->on_error(camera, static_cast<int>(socket), code);
  free_socket(camera, socket);
  note_loss(camera);
  visca_camera_complete_command(camera, kViscaRefused);
}

// `position` is the terminator's place in the bytes of this read.
void take_packet(visca_connection* connection, std::span<const uint8_t> packet, size_t position) {
  if (packet.size() < kReplyLength) return;
  if (packet[1] == 0x38 && position == 2) trace(kTraceVisca, "rx network change");
  visca_camera* camera = connection->cameras[packet[0] >> 4 & 7];
  if (camera == nullptr) return;
  const size_t socket = packet[1] & 7;
  if (packet[1] == 0x07 && packet[2] == 0x04) return take_report(camera, packet);
  const int kind = packet[1] >> 4;
  if (kind == 0x4) take_acknowledge(camera, socket);
  if (kind == 0x5) take_completion(camera, socket, packet);
  if (kind == 0x6) take_error(camera, socket, packet[2]);
}

// Under the lock, so that the slot of a command that is being sent meanwhile stays.
void clear_interface(visca_camera* camera) {
  const mutex_lock lock(camera->lock);
  visca_socket_slot& pending = camera->sockets[0];
  if (pending.state == 0 || monotonic_ns() - pending.sent_at_ns <= kCommandTimeout_ns) return;
  trace(kTraceVisca, "if clear");
  const uint8_t packet[] = {static_cast<uint8_t>(0x80 | camera->address), 0x01, 0x00, 0x01, kViscaTerminator};
  send_bytes(camera->connection, packet, sizeof packet);
  pending.state = 0;
  note_loss(camera);
}

// The timer is not restarted at each send, which happens on other threads: it looks at when the outstanding
// command was sent and waits for the rest.
void on_command_timer(struct ev_loop* loop, ev_timer* timer, int) {
  auto* camera = static_cast<visca_camera*>(timer->data);
  timer->repeat = kCommandTimeout_s;
  const bool outstanding = camera->busy != 0;
  const int64_t since = camera->outstanding_since_ns;
  const int64_t waited = since == 0 ? 0 : monotonic_ns() - since;
  const int64_t left = outstanding ? kCommandTimeout_ns - waited : 0;
  if (left > 0) {
    timer->repeat = std::max(static_cast<double>(left) * 1e-9, 0.001);
  } else {
    clear_interface(camera);
    // Not one that a producer has sent since the look at `busy`.
    if (outstanding) visca_camera_complete_command(camera, kViscaTimedOut);
  }
  ev_timer_again(loop, timer);
}

// The socket of a new connection, non-blocking; -1 after tracing why.
int open_socket() {
  const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd < 0) return trace(kTraceVisca, "socket failure '%s'", strerror(errno)), -1;
  const int flags = fcntl(fd, F_GETFL);
  if (flags < 0) {
    trace(kTraceVisca, "fcntl failure '%s'", strerror(errno));
  } else if (fcntl(fd, F_SETFL, flags | O_NONBLOCK) < 0) {
    trace(kTraceVisca, "nb failure '%s'", strerror(errno));
  } else {
    set_tcp_options(fd);
    return fd;
  }
  close(fd);
  return -1;
}

bool set_remote(visca_connection* connection, const char* address, unsigned port) {
  connection->remote = {};
  connection->remote.sin_family = AF_INET;
  connection->remote.sin_port = htons(static_cast<uint16_t>(port));
  const int result = inet_pton(AF_INET, address, &connection->remote.sin_addr);
  if (result != 1) trace(kTraceVisca, "addr failure %d '%s'", result, strerror(errno));
  return result == 1;
}

void start_watchers(visca_connection* connection, int connect_timeout_ms) {
  ev_timer_init(&connection->connect_timer, on_connect_timeout, connect_timeout_ms * 0.001, 0.0);
  ev_io_init(&connection->connect_watcher, on_connect_result, connection->fd, EV_WRITE);
  ev_io_init(&connection->read_watcher, on_readable, connection->fd, EV_READ);
  connection->connect_timer.data = connection->connect_watcher.data = connection->read_watcher.data =
      connection;
  ev_timer_start(connection->loop, &connection->connect_timer);
  ev_io_start(connection->loop, &connection->connect_watcher);
  ev_io_start(connection->loop, &connection->read_watcher);
}

bool start_connect(visca_connection* connection, int connect_timeout_ms) {
  start_watchers(connection, connect_timeout_ms);
  if (connect(connection->fd, reinterpret_cast<const sockaddr*>(&connection->remote),
              sizeof connection->remote) == 0 ||
      errno == EINPROGRESS) {
    return true;
  }
  trace(kTraceVisca, "connect start failure '%s'", strerror(errno));
  stop_watchers(connection);
  return false;
}

}  // namespace

visca_connection* visca_connection_create(struct ev_loop* loop, const char* address, unsigned port,
                                          int connect_timeout_ms) {
  trace(kTraceVisca, "create");
  visca_connection* connection = take_connection();
  if (connection == nullptr) {
    trace(kTraceVisca, "alloc failure '%s'", strerror(errno));
    return nullptr;
  }
  connection->loop = loop;
  connection->parser = {};
  {
    const mutex_lock lock(connection->send_lock);  // a producer may still hold a record of the link before
    connection->connected = 0;
    connection->send_failed = false;
    connection->fd = open_socket();
  }
  if (connection->fd >= 0 && set_remote(connection, address, port) &&
      start_connect(connection, connect_timeout_ms)) {
    return connection;
  }
  close_socket(connection);
  recycle_connection(connection);
  return nullptr;
}

void visca_connection_destroy(visca_connection* connection) {
  trace(kTraceVisca, "destroy");
  stop_watchers(connection);
  for (int address = 0; address < static_cast<int>(connection->cameras.size()); ++address) {
    visca_connection_remove_camera(connection, address);
  }
  close_socket(connection);
  {
    const mutex_lock lock(connection->send_lock);
    connection->connected = 0;
  }
  recycle_connection(connection);
}

int visca_connection_send_command(visca_connection* connection, const uint8_t* bytes, size_t length) {
  if (connection->connected == 0) return -1;
  trace_data(kTraceVisca, "sending", bytes, static_cast<long>(length));
  return send_bytes(connection, bytes, length);
}

uint32_t visca_connection_is_connected(const visca_connection* connection) {
  return connection == nullptr ? 0 : connection->connected.load();
}

visca_camera* visca_connection_add_camera(visca_connection* connection, int address, uint64_t user) {
  visca_camera* camera = &connection->records[static_cast<size_t>(address)];
  {
    const mutex_lock lock(camera->lock);  // a producer may still hold the record of a link that has gone
    camera->connection = connection;
    camera->address = static_cast<uint8_t>(address);
    camera->user = user;
  }
  visca_camera_reset(camera);
  connection->cameras[static_cast<size_t>(address)] = camera;
  ev_timer_init(&camera->command_timer, on_command_timer, 0.0, kCommandTimeout_s);
  camera->command_timer.data = camera;
  ev_timer_again(connection->loop, &camera->command_timer);
  return camera;
}

void visca_connection_remove_camera(visca_connection* connection, int address) {
  visca_camera*& camera = connection->cameras[static_cast<size_t>(address)];
  if (camera != nullptr) ev_timer_stop(connection->loop, &camera->command_timer);
  camera = nullptr;
}

visca_camera* visca_connection_get_camera(const visca_connection* connection, int address) {
  return connection->cameras[static_cast<size_t>(address)];
}

int visca_connection_poll(visca_connection* connection) {
  const int active = ev_run(connection->loop, EVRUN_NOWAIT) ? 1 : 0;
  if (connection->send_failed && connection->fd >= 0) close_socket(connection);
  return active;
}

void visca_connection_receive(visca_connection* connection, const uint8_t* bytes, size_t count) {
  visca_reply_parser& parser = connection->parser;
  for (size_t i = 0; i < count; ++i) {
    const visca_reply_step step = visca_parse_reply_byte(&parser, bytes[i]);
    if (step == visca_reply_step::complete) take_packet(connection, {parser.packet.data(), parser.count}, i);
    if (step == visca_reply_step::overrun) trace(kTraceVisca, "overrun");
  }
}
