// The unix socket on which the bench gives its orders: one line in, the reply out, closed.
#pragma once

#include <poll.h>

#include <string>
#include <vector>

#include "sim/camera/bench_camera.h"
#include "sim/camera/descriptor.h"

namespace sim_camera {

struct control_client {
  descriptor socket;
  std::string line;  // as far as it has come
};

struct control_server {
  descriptor listener;
  std::vector<control_client> clients;
};

// Listens on `path`, in the place of whatever socket is there. Result: false when that fails (said on
// standard error).
bool control_open(control_server& server, const std::string& path);

// Adds what the server waits for.
void control_watch(const control_server& server, std::vector<pollfd>& watched);

// Handles readiness of one descriptor, if it is one of the server's.
void control_ready(control_server& server, bench_camera& camera, int fd);

}  // namespace sim_camera
