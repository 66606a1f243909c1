// What the picture shows of the camera: a small record that the command loop writes and the picture thread
// reads.
#pragma once

#include <mutex>

#include "sim/camera/titles.h"

namespace sim_camera {

struct picture_state {
  bool power = true;
  double magnification = 1;  // 1 to 360
  int light_percent = 70;    // of what the lamps give
  bool upside_down = false;
  bool infrared = false;  // without its IR filter the camera sees no colours
  title_memory titles;
  bool silent = false;  // the encoder hangs: no pictures, and its connections stay open
  int drops = 0;        // how often its connections were to be closed

  bool operator==(const picture_state&) const = default;
};

class shared_picture {
 public:
  void publish(const picture_state& state) {
    const std::lock_guard guard(mutex_);
    state_ = state;
  }
  picture_state latest() {
    const std::lock_guard guard(mutex_);
    return state_;
  }

 private:
  std::mutex mutex_;
  picture_state state_;
};

}  // namespace sim_camera
