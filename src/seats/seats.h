// The seats of the tablets: one of them controls the unit, up to a limit of others watch. A seat must be
// confirmed within 2 s and refreshed every 30 s or it falls free; when the controller's ends, the unit goes
// back to the controller's defaults. Seats advise: no route asks whose they are. Any thread; the defaults run
// under the seats' lock, so nothing in them waits.
#pragma once

#include <string_view>

#include "seats/seat_table.h"

struct ev_loop;

// All seats free, the observers' limit from setting 6. HTTP thread, at its start.
void init_seats();

// Arms the tick (first after 1.0 s, then every 1.0 s). Start-up.
void start_seat_tick(struct ev_loop* loop);

// One second of all seats. Main loop; tests call it.
void tick_seats();

// Asks for the seat of a "controller" or an "observer": its token, or "" when there is none, or when the
// kernel has no random numbers yet.
struct seat_token {
  char text[kTokenLength + 1] = "";
};
seat_token request_seat(std::string_view role);

// An action with the seat of that token (seat_table.h has the actions and the role), and what is then left.
struct seat_answer {
  const char* role = "";
  available_seats available;
};
seat_answer update_seat(std::string_view action, std::string_view token);

// What follows when the controller's seat is given up or times out: a take is stopped, and modes, speeds,
// lights, laser and camera go back to their defaults. Nothing in it waits. Any thread.
void restore_controller_defaults();

int observer_seats();

// 0 to 5. Saves the limit as setting 6 and frees the observer seats that are above it.
void set_observer_seats(int limit);

// For the status object: the controller has fewer than 6 s left.
bool controller_seat_warning();
