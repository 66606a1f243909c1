#include "seats/seat_table.h"

#include <algorithm>
#include <tuple>

namespace {

constexpr int kWarningTime_s = 6;

// Unconfirmed ones included.
bool is_controlling(const seat& seat) {
  return seat.role == seat_role::controller_requested || seat.role == seat_role::controller;
}

bool is_observing(const seat& seat) {
  return seat.role == seat_role::observer_requested || seat.role == seat_role::observer;
}

int count_observers(const seat_table& table) {
  return static_cast<int>(std::ranges::count_if(table.seats, is_observing));
}

bool has_role(const seat_table& table, seat_role role) {
  return std::ranges::find(table.seats, role, &seat::role) != table.seats.end();
}

// Two draws a character: which kind, and which of its kind.
void fill_token(seat& seat, const token_draws& draws) {
  constexpr struct {
    char first;
    uint32_t count;
  } kKinds[] = {{'0', 10}, {'A', 26}, {'a', 26}};
  seat.token = {};
  for (size_t i = 0; i < kTokenLength; ++i) {
    const auto& kind = kKinds[draws[2 * i] % 3];
    seat.token[i] = static_cast<char>(static_cast<uint32_t>(kind.first) + draws[2 * i + 1] % kind.count);
  }
}

const char* grant(seat_table& table, seat_role role, const token_draws& draws) {
  const auto found = std::find_if(table.seats.rbegin(), table.seats.rend(),
                                  [](const seat& seat) { return seat.role == seat_role::free; });
  if (found == table.seats.rend()) return "";
  fill_token(*found, draws);
  found->role = role;
  found->countdown_s = kConfirmTime_s;
  return found->token.data();
}

seat_change hold(seat& seat) {
  seat.countdown_s = kHoldTime_s;
  if (is_controlling(seat)) return {.role = "controller", .is_controller_kept = true};
  return {.role = "observer"};
}

seat_change hold_as(seat& seat, seat_role role) {
  seat.role = role;
  return hold(seat);
}

seat_change lock(seat_table&, seat& seat) {
  if (is_controlling(seat)) return hold_as(seat, seat_role::controller);
  if (is_observing(seat)) return hold_as(seat, seat_role::observer);
  return {};
}

seat_change refresh(seat_table&, seat& seat) {
  if (seat.role == seat_role::controller || seat.role == seat_role::observer) return hold(seat);
  return {};
}

seat_change release(seat_table&, seat& seat) {
  const bool controller = seat.role == seat_role::controller;
  if (controller || seat.role == seat_role::observer) free_seat(seat);
  return {.is_controller_lost = controller};
}

// An unconfirmed controller is given time, but stays unconfirmed.
seat_change make_controller(seat_table& table, seat& seat) {
  const auto first = std::ranges::find_if(table.seats, is_controlling);
  if (first == &seat) return hold(seat);
  if (seat.role != seat_role::observer) return {};
  return first == table.seats.end() ? hold_as(seat, seat_role::controller) : hold(seat);
}

seat_change make_observer(seat_table& table, seat& seat) {
  if (seat.role == seat_role::observer) return hold(seat);
  if (seat.role != seat_role::controller) return {};
  if (count_observers(table) >= table.observer_limit) return hold(seat);
  seat_change change = hold_as(seat, seat_role::observer);
  change.is_controller_lost = true;
  return change;
}

constexpr struct {
  std::string_view name;
  seat_change (*act)(seat_table&, seat&);
} kActions[] = {{"lock", lock},
                {"refresh", refresh},
                {"release", release},
                {"make_controller", make_controller},
                {"make_observer", make_observer}};

}  // namespace

const char* grant_seat(seat_table& table, std::string_view role, const token_draws& draws) {
  if (role == "controller" && !has_role(table, seat_role::controller)) {
    return grant(table, seat_role::controller_requested, draws);
  }
  if (role == "observer" && count_observers(table) < table.observer_limit) {
    return grant(table, seat_role::observer_requested, draws);
  }
  return "";
}

seat_change change_seat(seat_table& table, std::string_view action, std::string_view token) {
  const auto found =
      std::ranges::find(table.seats, token, [](const seat& seat) { return seat.token.data(); });
  if (found == table.seats.end()) return {};
  for (const auto& row : kActions) {
    if (row.name == action) return row.act(table, *found);
  }
  return {};
}

int count_down_seats(seat_table& table) {
  int lost = 0;
  for (seat& seat : table.seats) {
    if (seat.countdown_s == 0 || --seat.countdown_s > 0) continue;
    if (seat.role == seat_role::controller) ++lost;
    free_seat(seat);
  }
  return lost;
}

seat* excess_observer(seat_table& table) {
  if (count_observers(table) <= table.observer_limit) return nullptr;
  // The smallest in this order goes first; a free or controlling seat is the largest.
  const auto order = [&](const seat& seat) {
    return std::tuple(!is_observing(seat), seat.role != seat_role::observer_requested, seat.countdown_s,
                      &table.seats.back() - &seat);
  };
  return std::ranges::min_element(table.seats, {}, order);
}

void free_seat(seat& seat) {
  seat.countdown_s = 0;
  seat.role = seat_role::free;
}

available_seats count_available(const seat_table& table) {
  return {std::ranges::none_of(table.seats, is_controlling) ? 1 : 0,
          std::max(0, table.observer_limit - count_observers(table))};
}

bool is_controller_running_out(const seat_table& table) {
  const auto first = std::ranges::find(table.seats, seat_role::controller, &seat::role);
  return first != table.seats.end() && first->countdown_s < kWarningTime_s;
}
