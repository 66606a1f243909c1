// The compass point as it was last computed, for everybody who shows it. Any thread.
#pragma once

#include <cstddef>

// "N" to "NW", "XX" without a calibration; at most 7 characters.
void set_supervisor_direction(const char* text);

// Copies it, cut to size - 1 characters; "??" before the first.
void orb_load_supervisor_direction(char* text, size_t size);
