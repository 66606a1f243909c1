// The title overlay: date, title, flow direction, operator and a status line, written into the camera's own
// titles so that every picture that is streamed or recorded carries them. A tick every 0.1 s on the main loop
// compares what should be shown with what was sent and queues the difference.
#pragma once

#include <iterator>

struct ev_loop;

// What is shown: 0 off, else on, but for the colour (an index of kOsdColors) and the dwell: the seconds after
// which a take hides title, flow direction and operator (0 and 999: never). All but the laser's are settings.
enum osd_item : int {
  kOsdZoom = 0,
  kOsdFlowDirection = 1,
  kOsdDateTime = 2,
  kOsdCompass = 3,
  kOsdTitle = 4,
  kOsdOperatorId = 5,
  kOsdLaser = 6,  // not stored: on while there is a reading to show
  kOsdColor = 7,
  kOsdDwell = 8,
  kOsdItemCount = 9,
};

// By the camera's colour code; another code counts as the first.
inline constexpr const char* kOsdColors[] = {"wht", "yel", "vio", "red", "cyn", "grn", "blu"};

constexpr int osd_color_code(int color) {
  return color >= 0 && color < static_cast<int>(std::size(kOsdColors)) ? color : 0;
}

inline constexpr int kOsdLongestDwell_s = 999;

// Loads the items; nothing has been sent yet. Main thread, once, before the recorder is there.
void orb_init_osd();

// Arms the tick (first after 0.1 s). Main thread.
void start_osd_tick(struct ev_loop* loop);

// An item that does not exist is ignored, and reads 0. A set waits for the disk when the item is a setting
// (the laser's is not). Any thread.
void orb_set_osd_item(int item, int value);
int orb_get_osd_item(int item);

// The reading that the laser's item shows, in metres. Any thread.
void orb_set_osd_laser_reading(float metres);

// 1 when a take begins, 0 when it ends. Any thread.
void orb_update_osd_recorder_activity(int active);
