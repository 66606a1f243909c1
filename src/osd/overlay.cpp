// One painter serves all lines; what differs is a row of kLines. A line is begun only when the camera has
// nothing outstanding and nothing waiting, and counts as sent when the queue has taken all its commands: so
// at most one line is under way, what is sent is the latest text, and a motion's stop waits for the rest of
// one line, not for a backlog. The link's number tells a link that was lost and built between two ticks: the
// titles are then cleared and painted again. A line is sent again whole when text, place or colour change,
// and turned on only when it is not shown.
#include "osd/overlay.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "base/text.h"
#include "base/trace.h"
#include "store/units.h"
#include "visca/camera.h"

namespace {

constexpr int kTicksPerSecond = 10;

constexpr char kNoText = '\x01';  // no text begins so

// Columns of the picture: a full line stands in the middle.
constexpr int kFirstColumn = 6;

// Places of the status line's parts; the magnification ends with the line.
constexpr size_t kCompassPlace = 0;
constexpr size_t kLaserPlace = 6;

osd_text date_time_text(const overlay_inputs& in) {
  char text[80];
  snprintf(text, sizeof text, "ORB  %02d/%02d/%02d  %02d:%02d", in.now.tm_mon + 1, in.now.tm_mday,
           in.now.tm_year % 100, in.now.tm_hour, in.now.tm_min);
  osd_text line{};
  copy_text(line.data(), line.size(), text);
  return line;
}

// As far as the line goes.
void place(osd_text& line, size_t at, const char* text) {
  memcpy(&line[at], text, std::min(strlen(text), kOsdLineLength - at));
}

osd_text status_text(const overlay_inputs& in) {
  osd_text line{};
  std::fill_n(line.begin(), kOsdLineLength, ' ');
  if (in.items[kOsdCompass] != 0) place(line, kCompassPlace, in.compass.data());
  if (in.items[kOsdLaser] != 0) {
    const double distance = in_units(double{in.laser_m}, in.in_feet);
    place(line, kLaserPlace, format_distance(distance, in.in_feet).text);
  }
  if (in.items[kOsdZoom] != 0) place(line, kOsdLineLength - strlen(in.zoom.data()), in.zoom.data());
  return line;
}

template <osd_text overlay_inputs::*Text>
osd_text caption_text(const overlay_inputs& in) {
  return in.*Text;
}

constexpr unsigned bit(osd_item item) { return 1U << item; }

struct line_row {
  int number;                  // the camera's
  const char* name;            // in the log
  unsigned items;              // shown when any of these is on
  bool is_caption;             // centred, and hidden in a take when the dwell is over
  bool takes_color_with_text;  // a new colour waits for the next minute: on purpose
  osd_text (*text)(const overlay_inputs& in);
};

constexpr line_row kLines[kOsdLineCount] = {
    {0, "top", bit(kOsdDateTime), false, true, date_time_text},
    {1, "title", bit(kOsdTitle), true, false, caption_text<&overlay_inputs::title>},
    {2, "flow direction", bit(kOsdFlowDirection), true, false, caption_text<&overlay_inputs::flow_direction>},
    {3, "operator", bit(kOsdOperatorId), true, false, caption_text<&overlay_inputs::operator_id>},
    {10, "bottom", bit(kOsdZoom) | bit(kOsdCompass) | bit(kOsdLaser), false, false, status_text},
};

bool is_wanted(const line_row& row, const overlay_inputs& in, bool captions_hidden) {
  if (row.is_caption && captions_hidden) return false;
  for (int item = 0; item < kOsdItemCount; ++item) {
    if ((row.items >> item & 1U) != 0 && in.items[static_cast<size_t>(item)] != 0) return true;
  }
  return false;
}

int position_of(const line_row& row, const osd_text& text) {
  const int length = row.is_caption ? static_cast<int>(strlen(text.data())) : int{kOsdLineLength};
  return kFirstColumn + (int{kOsdLineLength} - length) / 2;
}

void hide_line(visca_camera* camera, const line_row& row, painted_line& sent) {
  if (!sent.is_shown) return;
  trace(kTraceOverlay, "%s line off", row.name);
  if (visca_camera_title_turn_line_off(camera, row.number) == 0) sent.is_shown = false;
}

void show_line(visca_camera* camera, const line_row& row, const painted_line& wanted, painted_line& sent) {
  const bool is_placed = sent.position == wanted.position && sent.color == wanted.color;
  if (sent.is_shown && sent.text == wanted.text && (is_placed || row.takes_color_with_text)) return;
  trace(kTraceOverlay, "%s text set", row.name);
  const char* text = wanted.text.data();
  bool is_queued =
      visca_camera_title_set_2(camera, row.number, text) == 0 &&
      visca_camera_title_set_3(camera, row.number, text + std::min(strlen(text), kOsdLineHalf)) == 0;
  if (is_queued && !is_placed) {
    trace(kTraceOverlay, "%s line set", row.name);
    is_queued = visca_camera_title_set_1(camera, row.number, wanted.position,
                                         static_cast<unsigned>(wanted.color), 0) == 0;
  }
  if (is_queued && !sent.is_shown) {
    trace(kTraceOverlay, "%s line on", row.name);
    is_queued = visca_camera_title_turn_line_on(camera, row.number) == 0;
  }
  if (is_queued) {
    sent = wanted;
  } else {
    sent.text = {kNoText};  // the camera has a part of it: the line is sent whole next time
  }
}

void count_delay(overlay_state& state, const overlay_inputs& in) {
  if (!in.is_recording) {
    if (state.is_delay_expired) trace(kTraceOverlay, "delay reset");
    state.ticks = state.delay_seconds = 0;
    state.is_delay_expired = false;
    return;
  }
  if (++state.ticks == kTicksPerSecond) {
    state.ticks = 0;
    if (state.delay_seconds < kOsdLongestDwell_s)
      trace(kTraceOverlay, "delay second %d", ++state.delay_seconds);
  }
  const int dwell = in.items[kOsdDwell];
  if (state.is_delay_expired || dwell <= 0 || dwell >= kOsdLongestDwell_s || dwell > state.delay_seconds)
    return;
  trace(kTraceOverlay, "delay timeout");
  state.is_delay_expired = true;
}

void begin_link(overlay_state& state, const overlay_inputs& in) {
  trace(kTraceOverlay, "clear all");
  if (visca_camera_title_clear_all(in.camera) != 0) return;
  state.lines = {};
  state.link_number = in.link_number;
  state.is_initialised = true;
}

}  // namespace

void step_overlay(overlay_state& state, const overlay_inputs& inputs) {
  count_delay(state, inputs);
  if (inputs.camera == nullptr || inputs.link_number != state.link_number) state.is_initialised = false;
  if (inputs.camera == nullptr) return;
  if (!state.is_initialised && visca_camera_is_idle(inputs.camera)) begin_link(state, inputs);
  if (!state.is_initialised) return;
  const int color = osd_color_code(inputs.items[kOsdColor]);
  for (size_t i = 0; i < kOsdLineCount && visca_camera_is_idle(inputs.camera); ++i) {
    const line_row& row = kLines[i];
    if (is_wanted(row, inputs, state.is_delay_expired)) {
      const osd_text text = row.text(inputs);
      show_line(inputs.camera, row, {true, text, position_of(row, text), color}, state.lines[i]);
    } else {
      hide_line(inputs.camera, row, state.lines[i]);
    }
  }
}
