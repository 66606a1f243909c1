// The video of the simulated camera: an RTSP server whose picture shows zoom, light, titles and flip.
#pragma once

#include <string>

#include "sim/camera/picture_state.h"

namespace sim_camera {

// Starts the server on a thread of its own, which lives as long as the process; `shared` has to live as long.
// Result: false when the port cannot be had (said on standard error). The picture is made only while somebody
// watches.
bool picture_start(const std::string& address, int port, shared_picture& shared);

}  // namespace sim_camera
