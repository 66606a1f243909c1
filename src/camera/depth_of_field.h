// The depth of field that goes with a focus position. Any thread.
#pragma once

// Texts such as "2.2 m", in feet when setting 20 holds 1; the infinity sign below position 4096, "?" for -1.
struct depth_of_field {
  char far_limit[16] = "";
  char near_limit[16] = "";
};

// The distance to the focused object in feet, a fit of measurements of the first generation.
double focus_distance_ft(int focus_position);

depth_of_field load_depth_of_field(int focus_position);
