// The image settings for the controller's worker. Any thread.
#pragma once

void load_image_settings();  // from the settings store

// The values as they stand in the settings store: 0 off and up.
int image_invert();
int image_stabilizer();
int image_sensitivity();
int image_ir_filter();
int image_defog();
