// The title overlay as Pango markup for one text element.
#pragma once

#include <string>

#include "sim/camera/titles.h"

namespace sim_camera {

// Eleven rows of monospaced text, each line at its column and in its colour. Lines that blink are left out
// while `blink_dark`. Empty when nothing is shown.
std::string title_markup(const title_memory& titles, bool blink_dark);

}  // namespace sim_camera
