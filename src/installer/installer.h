// The update installer: it finds update files on the USB stick, tells their versions, runs one update at a
// time and tells how far it is. The unit's software is installed by the deploy script of the system image;
// the firmware of power board and camera is handed to their subsystems. Any thread; nothing here waits for an
// update.
#pragma once

#include <cstddef>

// Starts the worker that runs the deploy script, once: 0, or the error number of its thread.
int orb_start_installer();

// 1 when an update is on the stick, else 0. Its path is copied into `path`, cut to size - 1 and terminated;
// `path` may be null.
int orb_get_installer_software_update_available(char* path, size_t size);
int orb_get_installer_firmware_update_available(char* path, size_t size);
int orb_get_installer_camera_update_available(char* path, size_t size);

// Whether any is; traced. Waits for the stick.
bool is_update_on_stick();

// The version of that update; empty when there is none.
void orb_load_installer_software_update_version(char* version, size_t size);
void orb_load_installer_firmware_update_version(char* version, size_t size);
void orb_load_installer_camera_update_version(char* version, size_t size);

// Starts an update: not 0, or 0 when one runs already or none is on the stick. A software update ends with
// the reboot of the unit, so none can be started after it.
int orb_trigger_software_update();
int orb_trigger_firmware_update();
int orb_trigger_camera_update();

// What is being updated ("none", "software", "firmware", "camera") and how far it is: "LINE of 11", and the
// last two words of progress. Each text is cut to its size.
void orb_load_installer_status(char* target, size_t target_size, char* step, size_t step_size,
                               char* description_1, size_t description_1_size, char* description_2,
                               size_t description_2_size);
