// Lives of the seats: what clients ask, what they are answered, and what is left. The setting and the tokens.

#include "seats/seats.h"

#include <sys/random.h>

#include "seats/seat_table.h"
#include "store/settings.h"
#include "tests/kit.h"

bool is_booting = false;

// In the C library's place: the kernel's generator, which has nothing yet while it boots.
ssize_t getrandom(void* buffer, size_t size, unsigned flags) {
  if (is_booting && (flags & GRND_NONBLOCK) == 0) sleep(60);
  return is_booting ? -1 : syscall(SYS_getrandom, buffer, size, flags);
}

namespace {

token_draws draws() {
  static std::minstd_rand chance;
  token_draws numbers;
  for (auto& number : numbers) number = static_cast<uint32_t>(chance());
  return numbers;
}

constexpr std::string_view kRoles = ".cCoO";  // as in seat_role: free, and small while not confirmed

// The seats from the highest on with their seconds, "w" when the controller's time runs out, and what is to
// be had.
std::string picture(const seat_table& table) {
  std::string text;
  for (auto seat = table.seats.rbegin(); seat != table.seats.rend(); ++seat) {
    if (seat->countdown_s != 0)
      text += kRoles[static_cast<size_t>(seat->role)] + std::to_string(seat->countdown_s) + " ";
    EXPECT_EQ(seat->countdown_s == 0, seat->role == seat_role::free);
  }
  const available_seats available = count_available(table);
  return text + (is_controller_running_out(table) ? "w " : "") + std::to_string(available.controller) + "/" +
         std::to_string(available.observer);
}

// The words of a life: "c" and "o" request a seat; "lock N", "refresh N", … are said with the token of the
// Nth request that was granted; "wait S" lets seconds pass, "limit N" lowers the observers.
std::string lived(const std::string& life) {
  const std::map<std::string, std::string> actions = {{"lead", "make_controller"},
                                                      {"watch", "make_observer"}};
  seat_table table;
  std::vector<std::string> tokens;
  std::string answers;
  std::istringstream words(life);
  for (std::string word; words >> word;) {
    int number = 0;
    if (word.size() > 1) words >> number;
    if (word == "c" || word == "o") {
      const std::string token = grant_seat(table, word == "c" ? "controller" : "observer", draws());
      EXPECT_TRUE(token.empty() || token.size() == kTokenLength);
      if (!token.empty()) tokens.push_back(token);
      answers += token.empty() ? "-" : "+";
    } else if (word == "wait") {
      for (; number > 0; --number) answers.append(static_cast<size_t>(count_down_seats(table)), '!');
    } else if (word == "limit") {
      table.observer_limit = number;
      while (seat* excess = excess_observer(table)) free_seat(*excess);
    } else {
      const std::string action = actions.contains(word) ? actions.at(word) : word;
      const seat_change change = change_seat(table, action.c_str(), tokens.at(static_cast<size_t>(number)));
      EXPECT_EQ(change.is_controller_kept, change.role == std::string("controller"));
      answers += *change.role == '\0' ? '-' : *change.role;
      if (change.is_controller_lost) answers += '!';
    }
  }
  return answers + " " + picture(table);
}

// A second controller, a seat that nobody frees, a client thrown out in favour of one that came later.
TEST(seat_table, lives_as_the_rules_say) {
  const std::string three =
      "o lock 0 wait 3 o lock 1 wait 1 o lock 2 refresh 0 o ";  // and an unconfirmed one
  const std::pair<std::string, const char*> rows[] = {
      {"c o o o o o o c", "++++++-- c2 o2 o2 o2 o2 o2 0/0"},
      {"c lock 0 c o lock 1 wait 9 refresh 0", "+c-+oc C30 O21 0/4"},
      {"c wait 1 refresh 0 release 0", "+-- c1 0/5"},
      {"c wait 2 o lock 0 lock 1", "++-o O30 1/4"},  // another has its seat
      {"c lock 0 wait 24", "+c C6 0/5"},
      {"c c lock 0 lock 1 wait 25 refresh 0", "++ccc C30 C5 w 0/5"},  // the lowest seat counts
      {"c c lock 0 lock 1 wait 25 refresh 1", "++ccc C5 C30 0/5"},
      {"c c o lock 0 lock 1 lock 2 wait 30 lock 0", "+++cco!!- 1/5"},
      {"c o lock 0 lock 1 release 0 release 1 lock 0 refresh 1", "++co-!--- 1/5"},
      {"o lead 0 lock 0 lead 0", "+-oc C30 0/5"},
      {"c o lock 1 wait 1 lead 1", "++oo c1 O30 0/4"},
      {"c wait 1 lead 0 wait 20", "+c c10 0/5"},  // given time, and not confirmed
      {"c c lock 0 lock 1 wait 9 lead 0 lead 1", "++cc-c C21 C30 0/5"},
      {"c watch 0 lock 0 wait 9 watch 0", "+-co! O30 1/4"},
      {"limit 1 c o lock 0 wait 1 watch 0", "++cc C30 o1 0/0"},
      {three + "limit 2", "+o+o+oo+ O30 O30 1/0"},
      {three + "limit 1 refresh 1 refresh 2", "+o+o+oo+-o O30 1/0"}};
  for (const auto& [life, expected] : rows) EXPECT_EQ(lived(life), expected) << life;
}

// Tokens that can be guessed, or a stored number beyond the seats.
TEST(seats, start_from_their_setting_with_new_tokens) {
  orb_init_nv();
  std::set<std::string> tokens;
  for (const auto& [stored, limit] : {std::pair(0, 0), {5, 5}, {6, 5}, {-1, 5}}) {
    orb_write_nv(kSettingViewerSeats, &stored, sizeof stored);
    init_seats();
    EXPECT_EQ(observer_seats(), limit) << stored;
    EXPECT_EQ(update_seat("", "").available.observer, limit);
    srand(1);  // as others in the process may
    tokens.insert(request_seat("controller").text);
  }
  EXPECT_EQ(tokens.size(), 4U);
  is_booting = true;
  EXPECT_STREQ(request_seat("observer").text, "") << "no token that could be told";
  is_booting = false;
  EXPECT_EQ(update_seat("", "").available.observer, 5);
  set_observer_seats(3);
  init_seats();
  EXPECT_EQ(observer_seats(), 3);
}

}  // namespace
