// A distance as the operator reads it. Any thread.
#pragma once

struct distance_text {
  char text[24] = "";
};

// `value` in feet or metres with its unit, with one decimal below 99.5: "4.9 ft", "100 m".
distance_text format_distance(double value, bool feet);
