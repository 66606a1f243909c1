// The thread that records and completes takes, one at a time.
#pragma once

#include <string>

void* recording_worker(void*);

// One look at a running take, every 0.1 s: the reason to stop it, or 0.
struct take_watch {
  std::string path;  // of the internal file
  int ticks = 0;     // since the stores were last looked at
};
int watch_take(take_watch& watch);
