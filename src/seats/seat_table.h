// The rules of the seats, on a plain record: no lock, no clock, no device. What a change of the table asks of
// the rest of the unit is in the results. Several clients can ask for the controller's seat at once, and
// whoever confirms takes it: only a request is refused while there is a controller.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

inline constexpr size_t kSeats = 6;
inline constexpr int kMaximumObservers = 5;
inline constexpr int kConfirmTime_s = 2;  // for a seat that was just granted
inline constexpr int kHoldTime_s = 30;    // renewed by every confirmation and refresh
inline constexpr size_t kTokenLength = 16;

enum class seat_role {
  free,
  controller_requested,  // granted, not yet confirmed
  controller,
  observer_requested,  // granted, not yet confirmed
  observer,
};

struct seat {
  std::array<char, kTokenLength + 1> token{};  // stays when the seat falls free, until it is granted again
  int countdown_s = 0;                         // until the seat falls free; 0 while it is free
  seat_role role = seat_role::free;
};

struct seat_table {
  int observer_limit = kMaximumObservers;  // 0 to 5
  std::array<seat, kSeats> seats;
};

// The random numbers that a token is made of.
using token_draws = std::array<uint32_t, 2 * kTokenLength>;

// Grants "controller" (refused while there is a controller) or "observer" (refused at the limit): takes the
// free seat with the highest index and gives it a token of letters and digits. Returns the token, or "" when
// the seat is refused or the role is another word.
const char* grant_seat(seat_table& table, std::string_view role, const token_draws& draws);

struct seat_change {
  const char* role = "";  // "controller", "observer", or "" when nothing is held now or nothing changed
  bool is_controller_lost = false;  // the controller's defaults are due
  bool is_controller_kept = false;  // the recorder may go on
};

// What a client does with its seat: "lock" (confirm), "refresh", "release", "make_controller" or
// "make_observer". An unknown token or action, and an action that does not suit the seat, change nothing.
seat_change change_seat(seat_table& table, std::string_view action, std::string_view token);

// One second of all seats: those whose time is up fall free. Returns how many controllers were lost.
int count_down_seats(seat_table& table);

// The seat that must fall free next because there are more observers than the limit allows, or null when they
// fit: unconfirmed ones first, then by the least time left, then by the higher index.
seat* excess_observer(seat_table& table);

void free_seat(seat& seat);

// The seats that can be had: the controller's (0 or 1; an unconfirmed one is taken), and the observers'.
struct available_seats {
  int controller = 0;
  int observer = 0;
};
available_seats count_available(const seat_table& table);

// Whether the first controller has fewer than 6 s left.
bool is_controller_running_out(const seat_table& table);
