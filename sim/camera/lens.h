// The lens of the simulated camera: zoom, digital zoom and focus as three axes that move at a rate. No clock:
// whoever owns the lens steps it millisecond by millisecond.
#pragma once

#include <array>

namespace sim_camera {

enum axis_id { kZoom, kDigital, kFocus, kAxes };

inline constexpr int kOpticalEnd = 16384;   // zoom position at 30x, the end of the optical range
inline constexpr int kCombinedEnd = 31424;  // zoom position at 360x, the end of the digital range
inline constexpr int kDigitalStep = 64;     // zoom counts to one step of the digital zoom value (0 to 0xEB)
inline constexpr int kDigitalEnd = kCombinedEnd - kOpticalEnd;
inline constexpr int kFocusFar = 0x1000;  // focus counts fall towards far
inline constexpr int kFocusNear = 0xF000;
inline constexpr int kFixedSpeed = 3;  // of the drive commands that carry no speed
inline constexpr int kTopSpeed = 7;    // also of direct moves and of the automatic focus

struct axis {
  double position = 0;  // counts
  double target = 0;    // counts
  double rate = 0;      // counts a millisecond; 0 at rest
  bool moved = false;   // whether the last step changed the position
};

struct lens_state {
  std::array<axis, kAxes> axes{axis{}, axis{}, axis{0x3000, 0x3000}};
  bool digital_on = true;
  bool combined = true;  // digital zoom continues the optical range; otherwise it is an axis of its own
  bool auto_focus = true;
  int near_limit = kFocusNear;  // the nearest focus position the drive reaches
};

// Drives an axis towards an end until it is stopped. `direction` is +1 (tele, near) or -1 (wide, far),
// `speed` 0 to 7.
void lens_drive(lens_state& l, axis_id id, int direction, int speed);

// Moves an axis to `position` (cut to what the axis can reach now) at the top speed.
void lens_move_to(lens_state& l, axis_id id, int position);
void lens_stop(lens_state& l, axis_id id);

// Puts an axis somewhere at once, as the bench does.
void lens_place(lens_state& l, axis_id id, int position);

// Lets one millisecond pass.
void lens_step(lens_state& l);

// Whether the axis is under way to a target.
bool axis_busy(const axis& a);

void lens_set_digital(lens_state& l, bool on);
void lens_set_combined(lens_state& l, bool combined);

int lens_position(const lens_state& l, axis_id id);

// Where the automatic focus puts the lens at the present zoom.
int lens_auto_focus_position(const lens_state& l);

// The digital zoom value that the zoom report carries: 0 to 0xEB.
int lens_digital_value(const lens_state& l);

// 1 to 360, interpolated between the points of the zoom curve.
double lens_magnification(const lens_state& l);

}  // namespace sim_camera
