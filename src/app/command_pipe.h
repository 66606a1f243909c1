// The command pipe "/var/run/orb/api.fifo": local scripts write one-line commands for camera, laser and LED
// power.
#pragma once

struct ev_loop;
struct ev_io;
struct orb_application;
struct orb_power_board;

// Makes the pipe afresh and watches it on the application's loop. Returns 0, or -1 with a message on standard
// error. Start-up.
int start_command_pipe(orb_application* application, orb_power_board* board);

// The pipe's read watcher: reads and obeys one line; further lines in the stream wait for the next readiness.
// The watcher's data is the power board. Main loop.
void fifo_callback(struct ev_loop* loop, struct ev_io* watcher, int events);

// Obeys one line: every command word that the line begins with, in the table's order; anything else is
// ignored.
void obey_command_line(orb_power_board* board, const char* line);
