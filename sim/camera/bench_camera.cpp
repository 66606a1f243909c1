#include "sim/camera/bench_camera.h"

namespace sim_camera {

picture_state picture_of(const bench_camera& camera) {
  picture_state state;
  state.power = camera.block.power;
  state.magnification = lens_magnification(camera.block.lens);
  state.light_percent = camera.light_percent;
  state.upside_down = camera.block.settings.modes[kFlip] == "on";
  state.infrared = camera.block.settings.modes[kIcr] == "on";
  state.titles = camera.block.titles;
  state.silent = camera.picture_silent;
  state.drops = camera.picture_drops;
  return state;
}

}  // namespace sim_camera
