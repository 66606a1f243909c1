// The service thread, its queue and its timer.

#include "app/command_pipe.h"
#include "power_board/lighting.h"
#include "power_board/rig.h"
#include "sim/board/format.h"

namespace {

using service = rig;

// A queue without an end, or an order that is given away.
TEST_F(service, at_most_256_entries_wait_and_leave_in_their_order) {
  std::string expected;
  for (int i = 0; i < 256; ++i) {
    ASSERT_EQ(write(16, {static_cast<uint8_t>(i)}), 0);
    if (i > 1) expected += format_text("16 %02x\n", i);  // the board keeps 256 of 258
  }
  EXPECT_EQ(orb_power_board_trigger_firmware_update(&board_, nullptr), 0);
  EXPECT_EQ(said_by([&] { EXPECT_EQ(orb_power_board_enable_laser_power(&board_), -1); }),
            "orbd: calloc() failed at line N: Cannot allocate memory\n");
  orb_power_board_signal_shutdown(&board_);  // always has a place
  start();
  orb_power_board_stop_service(&board_);  // after the work that waits
  EXPECT_EQ(written(), expected + "0 01\n6 ff\n");
  EXPECT_EQ(write(0, {2}), -1);
  start();
  settle();
  EXPECT_EQ(with_board([](auto& b) { return b.counts.writes; }), 259U);  // the marker, and nothing refused
}

// A suspended refresh that goes on, or one that does not come back.
TEST_F(service, each_trigger_yields_one_refresh) {
  orb_power_board_trigger_refresh(&board_);
  EXPECT_EQ(traced(), texts{});  // only while suspended
  orb_power_board_suspend_refresh(&board_);
  start();
  std::vector<unsigned long> refreshes;
  for (const auto action :
       {orb_power_board_suspend_refresh, orb_power_board_trigger_refresh, orb_power_board_trigger_refresh,
        orb_power_board_resume_refresh, orb_power_board_suspend_refresh}) {
    action(&board_);
    for (int i = 0; i < 2; ++i) refreshes.push_back(refresh());
  }
  EXPECT_EQ(refreshes, (std::vector<unsigned long>{0, 0, 1, 0, 1, 0, 1, 1, 1, 0}));
}

// The board cuts the power: once, with all else left as it is.
TEST_F(service, the_shutdown_signal_asks_once_after_50_ms) {
  start();
  with_board([](auto& b) { b.power_enable = 0xF8; });
  refresh();
  EXPECT_EQ(orb_power_board_enable_camera_power(&board_), 0);
  const int64_t begin = monotonic_ns();
  orb_power_board_signal_shutdown(&board_);
  orb_power_board_signal_shutdown(&board_);
  settle();
  EXPECT_GE(monotonic_ns() - begin, 50'000'000);
  orb_power_board_signal_shutdown(&board_);  // the first one is done with
  settle();
  EXPECT_EQ(written(), "0 fe\n0 f9\n0 f9\n");  // the other bits as last read
}

// A beam that ends restores what was before it, by whatever way that was set.
TEST_F(service, lights_are_kept_as_last_given_by_whomever) {
  power_board_instance = &board_;
  with_board([](auto& b) { b.led_enable = 0xFF, b.led_pwm = 100; });  // the beam of a run that was killed
  start();
  refresh();
  const auto beam = [] { set_high_beam(true), set_high_beam(false); };
  beam();
  for (const char* line : {"low\n", "pwm 80\n"}) obey_command_line(&board_, line);
  EXPECT_EQ(write(kLedRegister, {0x12, 7}), 0);
  orb_set_api_led_intensity(300);
  beam();
  EXPECT_EQ(read_value_file("/tmp/intensity"), 300);
  reset_lighting();
  settle();
  EXPECT_EQ(written(),
            "1 ff 64\n1 00 19\n1 09 19\n1 09 50\n1 12 07\n1 12 2c\n"
            "1 ff 64\n1 12 2c\n1 00 19\n");
  power_board_instance = nullptr;
}

// A lamp of full power left on, or off, for ever.
TEST_F(service, a_beam_goes_out_whatever_queue_and_bus_do) {
  // Without the drives' stops.
  const auto lit = [] { return std::regex_replace(written(), std::regex("6 ff\n"), ""); };
  const auto is_idle = [this] {
    const mutex_lock lock(board_.queue_lock);
    return board_.queue.empty();
  };
  power_board_instance = &board_;
  write_value_file("/tmp/intensity", 50);
  set_led_mode("low");
  set_high_beam(true);
  for (int i = 2; i < 256; ++i) ASSERT_EQ(write(16, {0}), 0);
  EXPECT_NE(said_by([] { set_high_beam(false); }), "") << "the queue is full";
  start();
  EXPECT_TRUE(await([&] { return tick(), is_idle() && lit().ends_with("1 09 32\n"); }));
  const auto lose = [this](void (*end_beam)()) {
    set_high_beam(true);
    settle();
    fail_next(bus_call::spi_transfer, MRAA_ERROR_UNSPECIFIED, kAnyPin, 1000);
    for (const auto act : {end_beam, +[] {}}) {  // and the second try
      act(), tick();
      ASSERT_TRUE(await([this] {
        const mutex_lock lock(board_.queue_lock);
        return board_.leds.is_lost();
      }));
    }
  };
  constexpr std::string_view kOnce = "1 ff 64\n1 24 32\n";
  lose([] { set_led_mode("high"); });
  fail_next(bus_call::none);
  for (int i = 0; i < 2; ++i) tick(), settle();
  EXPECT_TRUE(lit().ends_with(kOnce)) << lit();
  lose(close_high_beam);
  set_high_beam(true);
  fail_next(bus_call::none);
  orb_power_board_stop_service(&board_);
  EXPECT_TRUE(lit().ends_with(kOnce)) << "at the end of the daemon";
  power_board_instance = nullptr;
}

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

// Nothing may drive that was asked for before an update.
TEST_F(service, an_update_takes_the_bus_and_gives_it_back) {
  start();
  refresh(5);  // the mast is known: a stop
  EXPECT_EQ(orb_power_board_home_height(&board_), 0);
  refresh();
  static std::atomic<int> completed = 0;
  constexpr completion_function kComplete = [] { ++completed; };
  EXPECT_NE(orb_power_board_trigger_firmware_update(&board_, kComplete), 0);
  ASSERT_TRUE(await([&] { return board_.write_suspended == 0 && completed == 1; }));
  board_.write_suspended = 1;  // as while an update runs
  EXPECT_EQ(write(9, {0xAB}), 0);
  orb_power_board_trigger_firmware_update(&board_, kComplete);
  tick();
  ASSERT_TRUE(await([&] { return !board_.refresh_queued; }));
  EXPECT_EQ(traced().back(), "PWRB: update dropped");
  EXPECT_EQ(completed, 2);
  board_.write_suspended = 0;
  EXPECT_EQ(refresh(10), 10U);  // nothing drives that ran before it
  EXPECT_EQ(written(), "6 ff\n3 c4 e8 03\n6 02\n6 ff\n");
}

// A drive that runs on when the daemon has ended.
TEST_F(service, its_end_stops_what_a_waiting_refresh_starts) {
  for (const bool dead_bus : {false, true}) {
    start();
    refresh(5);
    orb_power_board_signal_shutdown(&board_);  // 50 ms
    EXPECT_EQ(orb_power_board_home_height(&board_), 0);
    tick();
    if (dead_bus) fail_writes(kMotorRegister, 13);  // the run, its stop, the last one and its next
    orb_power_board_stop_service(&board_);
    EXPECT_TRUE(written().ends_with(dead_bus ? "\n3 c4 e8 03\n6 ff\n" : "\n3 c4 e8 03\n6 02\n6 ff\n"));
  }
}

// A drive at the speed of something else.
TEST_F(service, no_run_without_its_speed_and_no_drive_that_somebody_else_has_told) {
  start();
  refresh(5);
  std::string before = written();
  const auto wrote = [&] {
    settle();
    const std::string all = written();
    return all.substr(std::exchange(before, all).size());
  };
  const auto jog = [&](int pwm) { EXPECT_EQ(orb_power_board_start_motor(&board_, 1, pwm, 500), 0); };
  jog(100);
  EXPECT_EQ(wrote(), "3 3c f4 01\n6 01\n");
  fail_writes(kSpeedRegister, 3);
  jog(-100);
  EXPECT_EQ(wrote(), "6 ff\n");
  jog(-100);
  EXPECT_EQ(wrote(), "3 c4 f4 01\n6 01\n");
  fail_writes(kSpeedRegister, 3);
  orb_power_board_signal_shutdown(&board_);  // 50 ms, in which the rest is queued
  jog(100);
  tick();
  jog(100);  // counts on the speed of the first
  EXPECT_EQ(wrote(), "0 03\n6 ff\n6 ff\n");
  refresh(1);
  for (const bool again : {false, true}) {
    fail_writes(kSpeedRegister, again ? 2 : 3);
    EXPECT_EQ(orb_power_board_home_height(&board_), 0);
    refresh(10);
    EXPECT_EQ(wrote(), again ? "3 c4 e8 03\n6 02\n6 02\n" : "6 ff\n");
  }
  sleep_ms(310);
  refresh(1);
  EXPECT_EQ(wrote(), "3 c4 e8 03\n6 02\n") << "it may have stopped by itself";
  fail_writes(kMotorRegister, 5);
  EXPECT_EQ(write(kMotorRegister, {kMotorStop}), 0);  // raw; fails, and the retry once more
  refresh(30);
  EXPECT_EQ(wrote(), "6 ff\n6 ff\n") << "the owed one, and the homing's end";
  const mutex_lock lock(board_.motor_lock);
  EXPECT_EQ(board_.motors.homing_state, kHomingIdle);
}

// All times of the drives count refreshes.
TEST_F(service, the_refresh_comes_every_100_ms) {
  start();
  const int64_t begin = monotonic_ns();
  while (reads() < 10 && monotonic_ns() - begin < 2'000'000'000) ev_run(application_.loop, EVRUN_ONCE);
  EXPECT_NEAR(static_cast<double>(monotonic_ns() - begin), 1.1e9, 0.25e9);
}

// A thread that looks for work now and then makes each stop wait.
TEST_F(service, an_idle_board_is_selected_within_a_millisecond) {
  set_wire_time(true);
  set_real_time(true);
  start();
  std::multiset<double> latencies_s;
  for (int i = 0; i < 50; ++i) {
    sleep_ms(2);
    const double issued = with_board([](auto& b) { return b.time_s; });
    settle();
    latencies_s.insert(with_board([](auto& b) { return b.log.back().time_s; }) - issued);
  }
  // The log has the end of the transaction, at least one byte (80 us) and two pauses after the select.
  EXPECT_LT(*std::next(latencies_s.begin(), 25), 0.001 + 0.0001);
}

}  // namespace
