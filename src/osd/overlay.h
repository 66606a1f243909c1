// One tick of the overlay, without a clock or a lock: what there is to show goes in, the camera's queue gets
// what differs from what it was sent. Main loop; tests step it.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <ctime>

#include "osd/osd.h"

struct visca_camera;

inline constexpr size_t kOsdLineLength = 20;  // characters
inline constexpr size_t kOsdLineHalf = 10;    // what one command carries

// A line's characters and their terminating zero; zeros behind a shorter text.
using osd_text = std::array<char, kOsdLineLength + 1>;

inline constexpr size_t kOsdLineCount = 5;

struct overlay_inputs {
  std::array<int, kOsdItemCount> items{};
  bool is_recording = false;
  visca_camera* camera = nullptr;  // null while the link is down
  uint32_t link_number = 0;        // tells one link from the next
  tm now{};                        // local time
  osd_text title{}, flow_direction{}, operator_id{}, compass{}, zoom{};
  float laser_m = 0;
  bool in_feet = false;
};

// What the camera shows on a line, as far as it was sent.
struct painted_line {
  bool is_shown = false;
  osd_text text{};
  int position = -1;  // -1: never sent
  int color = -1;
};

struct overlay_state {
  bool is_initialised = false;  // the camera's titles have been cleared on this link
  uint32_t link_number = 0;
  std::array<painted_line, kOsdLineCount> lines{};
  int ticks = 0;  // of the current second of a take
  int delay_seconds = 0;
  bool is_delay_expired = false;
};

void step_overlay(overlay_state& state, const overlay_inputs& inputs);
