#include "sim/camera/lens.h"

#include <algorithm>
#include <cmath>

namespace sim_camera {
namespace {

constexpr double kSecondsAcross[] = {24, 18, 13.5, 10, 7.5, 5.5, 4, 3};  // for a whole range, by speed

// What one range is: digital zoom beyond the optical end moves at the optical rate.
constexpr double kRange[kAxes] = {kOpticalEnd, kDigitalEnd, kFocusNear - kFocusFar};

struct curve_point {
  double position;
  double magnification;
};

constexpr curve_point kZoomCurve[] = {
    {0, 1},       {5793, 2},    {8291, 3},    {9768, 4},    {10781, 5},   {11539, 6},   {12141, 7},
    {12641, 8},   {13069, 9},   {13446, 10},  {13783, 11},  {14089, 12},  {14368, 13},  {14624, 14},
    {14858, 15},  {15069, 16},  {15260, 17},  {15430, 18},  {15580, 19},  {15712, 20},  {15828, 21},
    {15929, 22},  {16016, 23},  {16092, 24},  {16158, 25},  {16215, 26},  {16266, 27},  {16310, 28},
    {16348, 29},  {16384, 30},  {24576, 60},  {27264, 90},  {28672, 120}, {29440, 150}, {30016, 180},
    {30400, 210}, {30720, 240}, {30912, 270}, {31104, 300}, {31232, 330}, {31424, 360},
};

double low_end(axis_id id) { return id == kFocus ? kFocusFar : 0; }

double high_end(const lens_state& l, axis_id id) {
  if (id == kFocus) return l.near_limit;
  if (id == kDigital) return kDigitalEnd;
  return l.digital_on && l.combined ? kCombinedEnd : kOpticalEnd;
}

double rate_of(axis_id id, int speed) {
  return kRange[id] / (1000 * kSecondsAcross[std::clamp(speed, 0, kTopSpeed)]);
}

void step_axis(axis& a) {
  const double before = a.position;
  const double distance = a.target - a.position;
  if (std::fabs(distance) <= a.rate) {
    a.position = a.target;
    a.rate = 0;
  } else if (a.rate > 0) {
    a.position += std::copysign(a.rate, distance);
  }
  a.moved = a.position != before;
}

double magnification_at(double position) {
  const auto* above = std::upper_bound(std::begin(kZoomCurve), std::end(kZoomCurve), position,
                                       [](double p, const curve_point& c) { return p < c.position; });
  if (above == std::begin(kZoomCurve)) return 1;
  const curve_point& below = *(above - 1);
  if (above == std::end(kZoomCurve)) return below.magnification;
  const double part = (position - below.position) / (above->position - below.position);
  return below.magnification + part * (above->magnification - below.magnification);
}

}  // namespace

bool axis_busy(const axis& a) { return a.rate > 0; }

void lens_drive(lens_state& l, axis_id id, int direction, int speed) {
  axis& a = l.axes[id];
  a.target = direction > 0 ? high_end(l, id) : low_end(id);
  a.rate = a.target == a.position ? 0 : rate_of(id, speed);
}

void lens_move_to(lens_state& l, axis_id id, int position) {
  axis& a = l.axes[id];
  a.target = std::clamp<double>(position, low_end(id), high_end(l, id));
  a.rate = a.target == a.position ? 0 : rate_of(id, kTopSpeed);
}

void lens_stop(lens_state& l, axis_id id) {
  l.axes[id].target = l.axes[id].position;
  l.axes[id].rate = 0;
}

void lens_place(lens_state& l, axis_id id, int position) {
  axis& a = l.axes[id];
  a.position = std::clamp<double>(position, low_end(id), high_end(l, id));
  lens_stop(l, id);
}

void lens_step(lens_state& l) {
  step_axis(l.axes[kZoom]);
  step_axis(l.axes[kDigital]);
  if (l.auto_focus && lens_position(l, kFocus) != lens_auto_focus_position(l)) {
    lens_move_to(l, kFocus, lens_auto_focus_position(l));
  }
  step_axis(l.axes[kFocus]);
}

void lens_set_digital(lens_state& l, bool on) {
  l.digital_on = on;
  if (on) return;
  lens_place(l, kDigital, 0);
  axis& zoom = l.axes[kZoom];
  zoom.target = std::min<double>(zoom.target, kOpticalEnd);
  if (zoom.position > kOpticalEnd) lens_place(l, kZoom, kOpticalEnd);
}

void lens_set_combined(lens_state& l, bool combined) {
  if (l.combined == combined) return;
  const int zoom = lens_position(l, kZoom);
  const int digital = lens_position(l, kDigital);
  l.combined = combined;
  // The picture stays as it is where the new mode can show it.
  lens_place(l, kZoom, combined && zoom == kOpticalEnd ? zoom + digital : zoom);
  lens_place(l, kDigital, combined ? 0 : zoom - kOpticalEnd);
}

int lens_position(const lens_state& l, axis_id id) {
  return static_cast<int>(std::lround(l.axes[id].position));
}

int lens_auto_focus_position(const lens_state& l) {
  // A scene at a fixed distance: focus follows the optical zoom from 0x3000 at the wide end to 0xB000 at 30x.
  return 0x3000 + 2 * std::min(lens_position(l, kZoom), kOpticalEnd);
}

int lens_digital_value(const lens_state& l) {
  const int counts = l.combined ? lens_position(l, kZoom) - kOpticalEnd : lens_position(l, kDigital);
  return std::max(counts, 0) / kDigitalStep;
}

double lens_magnification(const lens_state& l) {
  const double zoom = magnification_at(l.axes[kZoom].position);
  if (l.combined || l.axes[kDigital].position <= 0) return zoom;
  return zoom * magnification_at(kOpticalEnd + l.axes[kDigital].position) / magnification_at(kOpticalEnd);
}

}  // namespace sim_camera
