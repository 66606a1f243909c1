#include "recorder/recorder.h"

void orb_service_recorder_watchdog() {}

int orb_get_recorder_recording() { return 0; }

int orb_stop_recorder() { return -1; }
