// The image settings for the controller's worker. Any thread.
#pragma once

struct visca_camera;

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
