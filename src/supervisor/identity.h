// The unit's identity. Every operation copies its text with truncation, always terminated. Any thread.
#pragma once

#include <cstddef>

// From the local Redis database, over a connection of their own; "unknown" when it cannot be reached or holds
// nothing. Each waits at most 0.05 s: not on the main loop.
void orb_load_supervisor_model_name(char* text, size_t size);
void orb_load_supervisor_serial_number(char* text, size_t size);
void orb_load_supervisor_battery_type(char* text, size_t size);

// Revision and build of the power board's firmware, "03.42"; "00.00" before its first good frame.
void orb_load_supervisor_firmware_version(char* text, size_t size);
// The version word that the camera reported, "0123", "0000" until it has; "" while there is no camera record.
void orb_load_supervisor_camera_version(char* text, size_t size);
// The average input voltage, "19.7 V"; "" until it is known.
void orb_load_supervisor_battery_voltage(char* text, size_t size);

// What the release file says, as read at start; "" when it is missing.
void orb_load_supervisor_software_version(char* text, size_t size);

// "Dewalt" or "Indipro": kept in Redis and in the unit's configuration; the board's thresholds follow at the
// next start. -1 for any other text. HTTP server thread; waits at most 0.05 s for Redis, and for the file's
// flush.
int orb_set_supervisor_battery_type(const char* type);
