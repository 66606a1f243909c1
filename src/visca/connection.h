// The TCP link to the camera block, and the replies that come over it. Runs on the camera thread's libev
// loop; other threads only send (through the camera's queue) and ask whether the link is up. Connections are
// recycled, never freed: a producer may still hold a camera record of a link that has gone.
#pragma once

#include <ev.h>
#include <netinet/in.h>

#include <array>
#include <atomic>

#include "base/mutex.h"
#include "visca/camera.h"
#include "visca/reply.h"

struct visca_connection {
  std::atomic<int> fd = -1;  // changed by the camera thread, under send_lock
  struct ev_loop* loop = nullptr;
  ev_timer connect_timer{};  // one shot
  ev_io connect_watcher{};   // write readiness, once: the result of the connect
  ev_io read_watcher{};
  sockaddr_in remote{};
  std::atomic<uint32_t> connected = 0;
  std::atomic<bool> send_failed = false;  // a producer has shut the socket down; the camera thread closes it
  mutex send_lock;                        // no write may meet the descriptor's close and reuse
  visca_reply_parser parser;
  std::array<visca_camera*, 8> cameras{};  // by camera address; each null or in `records`
  std::array<visca_camera, 8> records;
  visca_connection* next_free = nullptr;
};

// The last positions reported by any camera; they outlive the link.
extern std::atomic<uint32_t> global_zoom_position;
extern std::atomic<uint32_t> global_focus_position;

// Starts a non-blocking connect to the dotted address and port. Null when it could not be started (traced).
visca_connection* visca_connection_create(struct ev_loop* loop, const char* address, unsigned port,
                                          int connect_timeout_ms);

void visca_connection_destroy(visca_connection* connection);

// Sends `length` bytes. 0, or -1 when the link is down or the send fails; a failure shuts the link down. Any
// thread.
int visca_connection_send_command(visca_connection* connection, const uint8_t* bytes, size_t length);

// 1 once the connect has succeeded; 0 for a null connection. Any thread.
uint32_t visca_connection_is_connected(const visca_connection* connection);

// The camera record for `address` (0 to 7), with its queue empty and its 0.25 s command timer running.
visca_camera* visca_connection_add_camera(visca_connection* connection, int address, uint64_t user);
void visca_connection_remove_camera(visca_connection* connection, int address);
visca_camera* visca_connection_get_camera(const visca_connection* connection, int address);

// Runs the loop once without waiting and closes a socket that a failed send has shut down. Returns what
// ev_run returns: 0 when no watcher is active.
int visca_connection_poll(visca_connection* connection);

// Takes the bytes of one read.
void visca_connection_receive(visca_connection* connection, const uint8_t* bytes, size_t count);
