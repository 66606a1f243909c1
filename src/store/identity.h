// The unit's identity. Every operation copies its text with truncation, always terminated. Any thread.
#pragma once

#include <cstddef>

#include "base/json.h"

// The version of this software, as the API tells it.
inline constexpr char kSoftwareVersion[] = "03.01";

// The unit's configuration, "/config/system.json"; null when it cannot be read. Waits for the disk.
json_owner unit_config();

// From the local Redis database, over a connection of their own; "unknown" when it cannot be reached or holds
// nothing. Each waits at most 0.05 s: not on the main loop.
void orb_load_supervisor_model_name(char* text, size_t size);
void orb_load_supervisor_serial_number(char* text, size_t size);
void orb_load_supervisor_battery_type(char* text, size_t size);

// What the release file says, as it was read last; "" when it is missing.
void load_release();  // start-up
void orb_load_supervisor_software_version(char* text, size_t size);

// "Dewalt" or "Indipro": kept in Redis and in the unit's configuration; the board's thresholds follow at the
// next start. -1 for any other text. One at a time; waits at most 0.05 s for Redis, and for the file's
// flush.
int orb_set_supervisor_battery_type(const char* type);
