// The unit's identity, as the local Redis database holds it. Every operation copies its text with truncation,
// always terminated, over a Redis connection of its own, and gives "unknown" when Redis cannot be reached or
// holds nothing. Any thread; waits at most 0.1 s.
#pragma once

#include <cstddef>

void orb_load_supervisor_model_name(char* text, size_t size);
void orb_load_supervisor_serial_number(char* text, size_t size);
void orb_load_supervisor_battery_type(char* text, size_t size);
