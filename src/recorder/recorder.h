// What the seats ask of the recorder. Any thread; none of them waits.
#pragma once

// The controller has given a sign of life: a running take may go on.
void orb_service_recorder_watchdog();

// 1 while a take runs, else 0.
int orb_get_recorder_recording();

// Ends the running take. 0, or -1 when none runs.
int orb_stop_recorder();
