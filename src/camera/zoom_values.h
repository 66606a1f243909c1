// What the reported zoom position magnifies. Any thread.
#pragma once

// The reported zoom position (-1 without a camera record), its magnification (0: not known) and that as a
// text ("2.5x", "12x", "?") of at most `size` bytes. Each result may be null.
void orb_load_camera_zoom_values(int* position, float* magnification, char* text, int size);
