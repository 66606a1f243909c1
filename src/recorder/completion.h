// What makes a recorded file a finished take on the USB store, or takes back one that never began.
#pragma once

// Completes the take that a guid file names. `start_up`: an ffmpeg that was left may still write it. False
// when the take still waits. Recording worker.
bool complete_take(const char* guid_path, bool start_up);

// Takes back the take that the guid file names and that ffmpeg was never started for: guid, description, and
// its note waits for the next one. Recording worker.
void drop_take();
