#include "seats/seats.h"

#include "base/paths.h"
#include "base/trace.h"
#include "camera/defaults_worker.h"
#include "camera/lens_loops.h"
#include "camera/modes.h"
#include "power_board/intensity_loop.h"
#include "power_board/lighting.h"
#include "power_board/power_board.h"
#include "recorder/recorder.h"

void restore_controller_defaults() {
  trace(kTraceApi, "controller defaults");
  orb_stop_recorder();  // also of a take that has not begun yet
  orb_stop_zoom_loop();
  orb_stop_focus_loop();
  orb_stop_intensity_loop();
  orb_set_controller_defaults();
  orb_reset_lens_speeds();
  keep_focus_mode(camera_mode::automatic);
  keep_exposure_mode(camera_mode::automatic);
  reset_lighting();
  if (orb_power_board* board = power_board_now()) {
    orb_power_board_set_laser_mode(board, 0);
    orb_power_board_clear_laser_reading(board);
  }
}
