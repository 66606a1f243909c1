#include "camera/zoom_values.h"

#include <cstdio>

#include "visca/camera_thread.h"

namespace {

struct zoom_point {
  float magnification;
  int position;
};

// Falling. Up to 30 (position 16384) the zoom is optical, beyond it digital.
constexpr zoom_point kZoomCurve[] = {
    {360, 31424}, {330, 31232}, {300, 31104}, {270, 30912}, {240, 30720}, {210, 30400}, {180, 30016},
    {150, 29440}, {120, 28672}, {90, 27264},  {60, 24576},  {30, 16384},  {29, 16348},  {28, 16310},
    {27, 16266},  {26, 16215},  {25, 16158},  {24, 16092},  {23, 16016},  {22, 15929},  {21, 15828},
    {20, 15712},  {19, 15580},  {18, 15430},  {17, 15260},  {16, 15069},  {15, 14858},  {14, 14624},
    {13, 14368},  {12, 14089},  {11, 13783},  {10, 13446},  {9, 13069},   {8, 12641},   {7, 12141},
    {6, 11539},   {5, 10781},   {4, 9768},    {3, 8291},    {2, 5793},    {1, 0},
};

constexpr float kWholeSteps = 10;  // from here on the curve's own steps are shown, below it is interpolated

float magnification_at(int position) {
  const zoom_point* previous = &kZoomCurve[0];
  if (position >= previous->position) return previous->magnification;
  for (const zoom_point& point : kZoomCurve) {
    if (position >= point.position) {
      if (point.magnification >= kWholeSteps) return point.magnification;
      return point.magnification + (previous->magnification - point.magnification) *
                                       static_cast<float>(position - point.position) /
                                       static_cast<float>(previous->position - point.position);
    }
    previous = &point;
  }
  return 0;
}

void format_magnification(float magnification, char* text, size_t size) {
  if (magnification == 0) {
    snprintf(text, size, "?");
  } else {
    snprintf(text, size, magnification >= 9.95F ? "%.0fx" : "%.1fx", static_cast<double>(magnification));
  }
}

}  // namespace

void orb_load_camera_zoom_values(int* position, float* magnification, char* text, int size) {
  const visca_camera* camera = visca_thread_data.camera;
  const int reported = camera == nullptr ? -1 : static_cast<int>(camera->zoom_position.load());
  if (position != nullptr) *position = reported;
  if (magnification == nullptr && text == nullptr) return;
  const float value = magnification_at(reported);
  if (magnification != nullptr) *magnification = value;
  if (text != nullptr && size > 0) format_magnification(value, text, static_cast<size_t>(size));
}
