// The main loop's record: the libev default loop and the signals that end it. Main thread.
#pragma once

#include <ev.h>

struct orb_power_board;

struct orb_application {
  char* program_name = nullptr;  // heap copy of the invocation name; first word of fatal messages
  struct ev_loop* loop = nullptr;
  ev_signal hangup{};  // SIGHUP, SIGINT and SIGTERM end the loop
  ev_signal interrupt{};
  ev_signal terminate{};
  ev_signal user_1{};  // SIGUSR1 and SIGUSR2 are caught and do nothing
  ev_signal user_2{};
  orb_power_board* power_board = nullptr;
};

// Makes the default loop and starts the signal watchers. Returns 0, or -1 with a message on standard error.
int orb_application_init(orb_application* application, const char* program_name);

// Stops the watchers, destroys the loop and frees the name.
void orb_application_destroy(orb_application* application);

// Runs the loop until a signal ends it; returns what ev_run returns.
int orb_application_run(orb_application* application);

void orb_application_set_power_board(orb_application* application, orb_power_board* board);
orb_power_board* orb_application_get_power_board(const orb_application* application);
