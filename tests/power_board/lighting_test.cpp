// The high beam and its end by itself, and the main loop's mailbox that its timer comes through.

#include "power_board/lighting.h"

#include <gtest/gtest.h>

#include "app/main_loop.h"
#include "base/application.h"
#include "base/clock.h"
#include "base/paths.h"
#include "base/value_file.h"

namespace {

TEST(high_beam, ends_by_itself_and_restores_what_was_before) {
  orb_application application;
  ASSERT_EQ(orb_application_init(&application, "orbd"), 0);
  init_lighting();
  write_value_file(paths::kIntensity, 33);
  EXPECT_EQ(set_led_mode("low"), 0);
  set_high_beam_time(1);
  const int64_t start = monotonic_ns();
  set_high_beam(true);
  EXPECT_STREQ(load_lighting().mode, "all");
  while (load_lighting().high_beam_seconds != 0) ev_run(application.loop, EVRUN_ONCE);
  EXPECT_NEAR(static_cast<double>(monotonic_ns() - start) * 1e-9, 1, 0.5);
  EXPECT_STREQ(load_lighting().mode, "low");
  orb_application_destroy(&application);
}

int calls = 0;

TEST(main_loop, takes_each_post_once_and_none_after_its_end) {
  constexpr main_loop_function kCount = [] { ++calls; };
  EXPECT_TRUE(post_to_main_loop(kCount));  // waits for the loop
  orb_application application;
  ASSERT_EQ(orb_application_init(&application, "orbd"), 0);
  EXPECT_TRUE(post_to_main_loop(kCount));  // waits already
  ev_run(application.loop, EVRUN_NOWAIT);
  EXPECT_EQ(calls, 1);
  EXPECT_TRUE(post_to_main_loop(kCount));
  orb_application_destroy(&application);
  EXPECT_EQ(calls, 1);
  EXPECT_FALSE(post_to_main_loop(kCount));
}

}  // namespace
