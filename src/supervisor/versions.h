// What the devices say of themselves, as texts, each cut to size - 1 characters and terminated. Any thread.
#pragma once

#include <cstddef>

// Revision and build of the power board's firmware, "03.42"; "00.00" before its first good frame.
void orb_load_supervisor_firmware_version(char* text, size_t size);
// The version word that the camera reported, "0123", "0000" until it has; "" while there is no camera record.
void orb_load_supervisor_camera_version(char* text, size_t size);
// The average input voltage, "19.7 V"; "" until it is known.
void orb_load_supervisor_battery_voltage(char* text, size_t size);
