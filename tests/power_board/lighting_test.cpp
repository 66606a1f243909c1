// The high beam and its end by itself.

#include "power_board/lighting.h"

#include <ev.h>
#include <gtest/gtest.h>

#include <thread>

#include "base/clock.h"
#include "base/paths.h"
#include "base/value_file.h"

namespace {

TEST(high_beam, ends_by_itself_whenever_it_is_lit_and_restores_what_was_before) {
  struct ev_loop* loop = ev_loop_new(0);
  const auto expect_end = [loop](int64_t start) {
    EXPECT_STREQ(load_lighting().mode, "all");
    while (load_lighting().high_beam_seconds != 0) ev_run(loop, EVRUN_ONCE);
    EXPECT_NEAR(static_cast<double>(monotonic_ns() - start) * 1e-9, 1, 0.5);
    EXPECT_STREQ(load_lighting().mode, "low");
  };
  init_lighting();
  write_value_file(paths::kIntensity, 33);
  EXPECT_EQ(set_led_mode("low"), 0);
  set_high_beam_time(1);
  set_high_beam(true);  // before there is a loop
  start_high_beam_timer(loop);
  expect_end(monotonic_ns());
  ev_run(loop, EVRUN_NOWAIT);
  std::thread([] { set_high_beam(true); }).join();
  expect_end(monotonic_ns());
  set_high_beam(true);  // the timer runs
  ev_run(loop, EVRUN_NOWAIT);
  stop_high_beam_timer();
  ev_loop_destroy(loop);
  for (const bool on : {false, true}) set_high_beam(on);  // when there is no loop any more
  close_high_beam();
  EXPECT_STREQ(load_lighting().mode, "low");
  set_high_beam(true);
  EXPECT_STREQ(load_lighting().mode, "low");
}

}  // namespace
