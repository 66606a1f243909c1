// The words of the control socket: one line in, one or more lines out.
#pragma once

#include <string>
#include <string_view>

#include "sim/camera/bench_camera.h"

namespace sim_camera {

// Carries out one line ("silent on") and returns the reply, every line of it ended; "help" lists the
// commands. A line that is not understood gets one line that starts with "error" and changes nothing.
std::string control_execute(bench_camera& camera, std::string_view line);

}  // namespace sim_camera
