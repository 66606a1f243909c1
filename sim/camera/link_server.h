// The TCP side of the camera block: carries bytes between the controller and the model.
#pragma once

#include <netinet/in.h>
#include <poll.h>

#include <vector>

#include "sim/camera/bench_camera.h"
#include "sim/camera/descriptor.h"

namespace sim_camera {

struct link_server {
  sockaddr_in address{};
  descriptor listener;
  std::vector<descriptor> clients;  // oldest first; only the last one is heard and answered
};

// Listens. Result: false when the address cannot be had (said on standard error).
bool link_open(link_server& server, const char* address, int port);

// Adds what the server waits for.
void link_watch(const link_server& server, std::vector<pollfd>& watched);

// Handles readiness of one descriptor, if it is one of the server's: accepts, or feeds the model.
void link_ready(link_server& server, bench_camera& camera, int fd);

// Sends what the model has to say by now, and follows what the bench has asked for (drop, refuse to connect).
void link_settle(link_server& server, bench_camera& camera);

}  // namespace sim_camera
