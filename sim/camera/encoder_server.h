// The encoder's status pages over HTTP, on connections that stay open.
#pragma once

#include <poll.h>

#include <string>
#include <vector>

#include "sim/camera/bench_camera.h"
#include "sim/camera/descriptor.h"

namespace sim_camera {

struct encoder_client {
  descriptor socket;
  std::string received;  // of the next request
};

struct encoder_server {
  descriptor listener;
  std::vector<encoder_client> clients;
};

// Listens. Result: false when the address cannot be had (said on standard error).
bool encoder_open(encoder_server& server, const char* address, int port);

// Adds what the server waits for.
void encoder_watch(const encoder_server& server, std::vector<pollfd>& watched);

// Handles readiness of one descriptor, if it is one of the server's: accepts, or answers.
void encoder_ready(encoder_server& server, const encoder_state& state, int fd);

}  // namespace sim_camera
