// Whole lives of the seats against their rules as a table.

#include "seats/seat_table.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <set>

namespace {

std::minstd_rand chance;

int draw() { return static_cast<int>(chance()); }
int below(int limit) { return draw() % limit; }

constexpr std::string_view kRoles = ".cCoO";  // as in seat_role: free, and small while not confirmed

// What an action makes of a seat in a role; all others change nothing.
constexpr std::string_view kOutcomes =
    "lock c: C; lock C: C; lock o: O; lock O: O; refresh C: C; refresh O: O; release C: .; release O: .; "
    "make_controller O, no c or C: C; make_controller c, the first: c; make_controller C, the first: C; "
    "make_controller O, another: O; make_observer O: O; "
    "make_observer C, observers fit: O; make_observer C, observers full: C; ";

std::set<size_t> used;  // of the rows

struct reference {
  struct place {
    char role = '.';
    int end = 0;
    std::string token;
    bool in(std::string_view roles) const { return roles.find(role) != roles.npos; }
  };
  std::array<place, kSeats> places;
  int limit = 5, now = 0, lost = 0;
  long count(std::string_view roles) const {
    return std::ranges::count_if(places, [&](const place& p) { return p.in(roles); });
  }
  void request(bool controller, const std::string& token) {
    const auto p = std::ranges::find(places.rbegin(), places.rend(), '.', &place::role);
    const bool granted = p != places.rend() && (controller ? count("C") == 0 : count("oO") < limit);
    EXPECT_EQ(token.size(), granted ? 16U : 0U);
    if (granted) *p = {controller ? 'c' : 'o', now + 2, token};
  }
  std::string row(const std::string& action, const place& p) const {
    std::string plain = action + ' ' + p.role;
    if (plain == "make_observer C") return plain + ", observers " + (count("oO") < limit ? "fit" : "full");
    if (action != "make_controller") return plain;
    const auto first = std::ranges::find_if(places, [](const place& q) { return q.in("cC"); });
    return plain + (first == places.end() ? ", no c or C" : first == &p ? ", the first" : ", another");
  }
  // The role that is answered.
  std::string update(const std::string& action, const std::string& token) {
    const auto p = std::ranges::find(places, token, &place::token);
    if (p == places.end()) return "";
    const size_t outcome = kOutcomes.find(row(action, *p) + ": ");
    if (outcome == kOutcomes.npos) return "";
    used.insert(outcome);
    const char role = kOutcomes[kOutcomes.find(": ", outcome) + 2];
    if (p->role == 'C' && role != 'C') ++lost;
    p->role = role, p->end = now + 30;
    return p->in("cC") ? "controller" : p->in("O") ? "observer" : "";
  }
  void tick() {
    ++now;
    for (place& p : places) {
      if (p.role == '.' || p.end > now) continue;
      if (p.role == 'C') ++lost;
      p.role = '.';
    }
  }
  void purge() {
    while (count("oO") > limit) {
      place* next = nullptr;
      for (place& p : places) {
        if (!p.in("oO") || (next != nullptr && next->in("o") && p.in("O"))) continue;
        if (next == nullptr || p.role != next->role || p.end <= next->end) next = &p;
      }
      next->role = '.';
    }
  }
  bool fits(const seat_table& table) const {
    for (size_t i = 0; i < kSeats; ++i) {
      const place& p = places[i];
      if (table.seats[i].countdown_s != (p.role == '.' ? 0 : p.end - now)) return false;
      if (p.role != kRoles[static_cast<size_t>(table.seats[i].role)]) return false;
    }
    const auto first = std::ranges::find(places, 'C', &place::role);
    if (is_controller_running_out(table) != (first != places.end() && first->end - now < 6)) return false;
    const auto [controller, observer] = count_available(table);
    return controller == (count("cC") == 0 ? 1 : 0) && observer == std::max(0L, limit - count("oO"));
  }
};

// One random step of both; returns how many controllers the table lost.
int step(seat_table& table, reference& rules, std::array<std::string, 8>& tokens) {
  constexpr const char* kActions[] = {"lock",         "lock", "refresh", "release", "make_controller",
                                      "make_observer"};
  const int dice = below(20);
  std::string& token = tokens[static_cast<size_t>(below(8))];
  int lost = 0;
  if (dice < 5) {
    const bool controller = below(2) == 0;
    token = grant_seat(table, controller ? "controller" : "observer", draw);
    rules.request(controller, token);
  } else if (dice < 15) {
    const char* action = kActions[below(6)];
    const seat_change change = change_seat(table, action, token);
    EXPECT_EQ(change.role, rules.update(action, token));
    EXPECT_EQ(change.is_controller_kept, change.role == std::string("controller"));
    lost = change.is_controller_lost ? 1 : 0;
  } else if (dice < 19) {
    for (int seconds = below(8) == 0 ? below(32) : 1; seconds > 0; --seconds) {
      lost += count_down_seats(table);
      rules.tick();
    }
  } else {
    table.observer_limit = rules.limit = below(6);
    while (seat* excess = excess_observer(table)) free_seat(*excess);
    rules.purge();
  }
  return lost;
}

TEST(seat_table, lives_as_the_rules_say) {
  for (unsigned seed = 1; seed <= 100'000; ++seed) {
    chance.seed(seed);
    seat_table table;
    reference rules;
    std::array<std::string, 8> tokens;  // held, freed and refused ones
    int lost = 0;
    for (int i = 0; i < 25; ++i) {
      lost += step(table, rules, tokens);
      ASSERT_TRUE(rules.fits(table) && !HasFailure()) << "seed " << seed << " step " << i;
      ASSERT_EQ(lost, rules.lost) << "seed " << seed << " step " << i;
    }
  }
  EXPECT_EQ(static_cast<long>(used.size()), std::ranges::count(kOutcomes, ';'));
}

}  // namespace
