// The operator's units of length. Any thread.
#pragma once

// Whether lengths are shown in feet and inches (setting 20 is 1), else in metres.
bool in_feet();

// A length in metres as a number of what is shown.
double in_units(double metres, bool feet);

struct distance_text {
  char text[24] = "";
};

// A distance, in feet or metres already, with its unit: one decimal below 99.5, "4.9 ft", "100 m".
distance_text format_distance(double value, bool feet);
