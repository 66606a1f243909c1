// The running simulated camera: the model with what the bench adds to it. One thread, that of the command
// loop.
#pragma once

#include <cstdint>

#include "sim/camera/block_model.h"
#include "sim/camera/picture_state.h"

namespace sim_camera {

struct bench_camera {
  block_model block;
  int light_percent = 70;  // for the picture only
  bool picture_silent = false;
  int picture_drops = 0;
  bool refuse_connect = false;  // the listening socket is closed
  bool drop_requested = false;  // the link server closes its clients and clears this
  int64_t now_ms = 0;           // since the start of the program, set before anything is called
};

picture_state picture_of(const bench_camera& camera);

}  // namespace sim_camera
