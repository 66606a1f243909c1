// Image settings, kept in the settings store and applied again when the camera powers up. Any thread; nothing
// here waits for the camera.
#pragma once

struct visca_camera;

// The setting as its word, cut to size - 1 characters and terminated.
void orb_load_camera_invert_image(char* text, unsigned size);      // "off", "on"
void orb_load_camera_image_stabilizer(char* text, unsigned size);  // "off", "on"
void orb_load_camera_sensitivity(char* text, unsigned size);       // "normal", "high"
void orb_load_camera_ir_filter(char* text, unsigned size);         // "off", "on", "auto"
void orb_load_camera_defog(char* text, unsigned size);             // "off", "low", "mid", "high"

// Queue the setting's command, keep it and store it; nothing when it is the current one. 0, or -1 for another
// word or without a camera record (nothing is kept then). The IR filter
// (camera/defaults_worker.h) needs no camera record.
int orb_set_camera_invert_image(const char* text);
int orb_set_camera_image_stabilizer(const char* text);
int orb_set_camera_sensitivity(const char* text);
int orb_set_camera_defog(const char* text);

// --- for the worker that applies them ---

void load_image_settings();  // from the settings store

// The values as they stand in the settings store: 0 is off or normal.
int image_invert();
int image_stabilizer();
int image_sensitivity();
int image_ir_filter();
int image_defog();

// Queue the command of the value as it is now: 0, or -1 when the queue refuses it.
int send_image_invert(visca_camera* camera);
int send_image_stabilizer(visca_camera* camera);
int send_image_sensitivity(visca_camera* camera);
int send_image_defog(visca_camera* camera);

// Keeps the IR filter's word and stores it: 1, or 0 when it is the current one, -1 for another word.
int keep_ir_filter(const char* text);
