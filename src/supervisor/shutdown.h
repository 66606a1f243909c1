// The unit's end: a take is ended, the camera switched off, then the unit.
#pragma once

// What a shutdown is asked for; any other number powers off, too.
inline constexpr int kShutdownTemperature = 1;  // also: nothing waits for a take's completion
inline constexpr int kShutdownReboot = 2;
inline constexpr int kShutdownBoard = 3;

// Start-up, once.
void start_shutdown_thread();

// Asks for a shutdown (1 temperature, 2 reboot, others power off); one that comes while one is served is
// served afterwards. Never waits. Any thread.
void orb_trigger_supervisor_shutdown(int reason);
