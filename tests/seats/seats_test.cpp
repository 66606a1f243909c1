// The unit's seats: the setting, the tokens, and the tick beside the clients.

#include "seats/seats.h"

#include <gtest/gtest.h>

#include <set>
#include <string>
#include <thread>

#include "store/settings.h"

namespace {

TEST(seats, start_from_their_setting_with_new_tokens) {
  orb_init_nv();
  std::set<std::string> tokens;
  for (const auto& [stored, limit] : {std::pair(0, 0), {5, 5}, {6, 5}, {-1, 5}}) {
    orb_write_nv(kSettingViewerSeats, &stored, sizeof stored);
    init_seats();
    EXPECT_EQ(observer_seats(), limit) << stored;
    EXPECT_EQ(update_seat("", "").available.observer, limit);
    tokens.insert(request_seat("controller").text);
  }
  EXPECT_EQ(tokens.size(), 4U);
  set_observer_seats(3);
  init_seats();
  EXPECT_EQ(observer_seats(), 3);
}

// For ThreadSanitizer: the lock order through the defaults, on both threads.
TEST(seats, are_kept_on_two_threads) {
  orb_init_nv();
  init_seats();
  std::thread main_loop([] {
    for (int i = 0; i < 2000; ++i) tick_seats();
  });
  int granted = 0;
  for (int i = 0; i < 300; ++i) {
    const seat_token token = request_seat("controller");
    granted += *token.text != 0;
    update_seat("lock", token.text);
    if (i % 3 != 0) update_seat("release", token.text);
    if (i % 100 == 0) set_observer_seats(i / 100);
  }
  main_loop.join();
  EXPECT_GT(granted, 0);
}

}  // namespace
