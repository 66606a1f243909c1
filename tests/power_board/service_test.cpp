// The service thread, its queue and its timer.
#include <algorithm>
#include <thread>

#include "base/value_file.h"
#include "power_board/lighting.h"
#include "power_board/rig.h"

namespace {

class service : public rig {
 protected:
  // Lets the last good readings be of a board with this power-enable byte.
  void read_power_enable(int value) {
    with_board([&](auto& b) { return b.power_enable = static_cast<uint8_t>(value); });
    refreshes_of_tick();
  }
};

TEST_F(service, at_most_256_entries_wait_and_leave_in_their_order) {
  for (int i = 0; i < 256; ++i) ASSERT_EQ(write(0x10, {static_cast<uint8_t>(i)}), 0);
  testing::internal::CaptureStderr();
  EXPECT_EQ(write(0, {2}), -1);
  EXPECT_EQ(orb_power_board_trigger_firmware_update(&board_, nullptr), -1);
  EXPECT_EQ(orb_power_board_enable_laser_power(&board_), -1);
  EXPECT_EQ(without_line_numbers(testing::internal::GetCapturedStderr()),
            "orbd: calloc() failed at line N: Cannot allocate memory\n");
  orb_power_board_signal_shutdown(&board_);  // always has a place
  start();
  testing::internal::CaptureStderr();
  EXPECT_EQ(orb_power_board_start_service(&board_), -1);
  EXPECT_EQ(without_line_numbers(testing::internal::GetCapturedStderr()),
            "orbd: orb_power_board_start_service() failed at line N: Operation already in progress\n");
  orb_power_board_stop_service(&board_);  // after the work that waits
  const auto log = with_board([](auto& b) { return b.log; });
  ASSERT_EQ(log.size(), 256U);
  for (size_t i = 0; i < 255; ++i) EXPECT_EQ(log[i].data[0], i + 1);
  EXPECT_EQ(written().back(), "0:01");
  EXPECT_EQ(board_.service_state, 0);
  EXPECT_EQ(write(0, {2}), -1);
  orb_power_board_signal_shutdown(&board_);
  orb_power_board_stop_service(&board_);
  orb_power_board_destroy(&board_);
  start();
  settle();
  EXPECT_EQ(with_board([](auto& b) { return b.counts.writes; }), 258U);  // the marker, and nothing refused
}

TEST_F(service, each_trigger_yields_one_refresh) {
  orb_power_board_suspend_refresh(&board_);
  start();
  EXPECT_EQ(refreshes_of_tick(), 0U);
  for (int i = 0; i < 3; ++i) {
    orb_power_board_trigger_refresh(&board_);
    EXPECT_EQ(refreshes_of_tick(), 1U);
    EXPECT_EQ(refreshes_of_tick(), 0U);
  }
  orb_power_board_resume_refresh(&board_);
  for (int i = 0; i < 3; ++i) EXPECT_EQ(refreshes_of_tick(), 1U);
  orb_power_board_suspend_refresh(&board_);
  EXPECT_EQ(refreshes_of_tick(), 1U);
  EXPECT_EQ(refreshes_of_tick(), 0U);
  orb_power_board_resume_refresh(&board_);
  traced();
  orb_power_board_trigger_refresh(&board_);
  EXPECT_EQ(traced(), texts{});  // only while suspended
}

TEST_F(service, the_shutdown_signal_asks_once_after_50_ms) {
  start();
  read_power_enable(0x0E);
  const int64_t begin = monotonic_ns();
  orb_power_board_signal_shutdown(&board_);
  orb_power_board_signal_shutdown(&board_);
  for (int i = 0; i < 3; ++i) tick();  // while the thread sleeps, one refresh waits, not three
  EXPECT_EQ(reads(), 1U);
  settle();
  EXPECT_GE(monotonic_ns() - begin, 50'000'000);
  EXPECT_EQ(written(), texts{"0:0f"});
  EXPECT_EQ(reads(), 2U);
  orb_power_board_signal_shutdown(&board_);  // the first one is done with
  settle();
  EXPECT_EQ(written().size(), 2U);
}

TEST_F(service, supplies_keep_the_other_bits_as_last_read) {
  start();
  for (const auto& [now, expected] : {std::pair{0x00, texts{"0:06", "0:02", "0:0a", "0:02"}},
                                      std::pair{0xFC, texts{"0:fe", "0:fa", "0:fe", "0:f6"}}}) {
    read_power_enable(now);
    with_board([](auto& b) { b.log.clear(); });
    EXPECT_EQ(orb_power_board_enable_camera_power(&board_), 0);
    EXPECT_EQ(orb_power_board_disable_camera_power(&board_), 0);
    EXPECT_EQ(orb_power_board_enable_laser_power(&board_), 0);
    EXPECT_EQ(orb_power_board_disable_laser_power(&board_), 0);
    settle();
    EXPECT_EQ(written(), expected);
  }
}

TEST_F(service, led_intensity_goes_to_the_board_and_to_its_file) {
  orb_set_api_led_intensity(7);  // without a board
  EXPECT_EQ(read_value_file("/tmp/intensity"), 7);
  power_board_instance = &board_;
  start();
  orb_set_api_led_intensity(300);
  EXPECT_EQ(read_value_file("/tmp/intensity"), 300);
  reset_lighting();
  EXPECT_EQ(read_value_file("/tmp/intensity"), 25);
  EXPECT_EQ(orb_power_board_enable_led_power(&board_, 0xC0, 99), 0);
  settle();
  EXPECT_EQ(written(), (texts{"1:002c", "1:0019", "1:c063"}));
  power_board_instance = nullptr;
}

TEST_F(service, an_update_takes_the_bus_and_gives_it_back) {
  start();
  firmware_update_status status;
  orb_power_board_load_firmware_update_status(&board_, &status);
  EXPECT_EQ((texts{status.progress, status.state, status.result}),
            (texts{"0 of 0", "not active", "not active"}));
  traced();
  EXPECT_EQ(orb_power_board_trigger_firmware_update(&board_, &board_), 0);
  ASSERT_TRUE(wait_until([&] { return traced() == texts{"PWRB: update"}; }));
  ASSERT_TRUE(wait_until([&] { return board_.write_suspended == 0; }));
  EXPECT_EQ(refreshes_of_tick(), 1U);

  board_.write_suspended = 1;  // as while an update runs
  traced();
  EXPECT_EQ(write(9, {0xAB}), 0);
  EXPECT_EQ(orb_power_board_trigger_firmware_update(&board_, nullptr), 0);
  tick();
  ASSERT_TRUE(wait_until([&] { return !board_.refresh_queued; }));
  const texts lines = traced();
  ASSERT_EQ(lines.size(), 4U);
  EXPECT_EQ((texts{lines[0], lines[1], lines[3]}),
            (texts{"PBRF: write dropped 9", "PBRF: write:", "PWRB: update dropped"}));
  board_.write_suspended = 0;
  EXPECT_EQ(refreshes_of_tick(), 1U);
  EXPECT_EQ(written(), texts{});
}

TEST_F(service, an_idle_board_is_selected_within_a_millisecond) {
  set_wire_time(true);
  set_real_time(true);
  start();
  std::vector<double> latencies_s;
  for (int i = 0; i < 50; ++i) {
    sleep_ms(2);
    const double issued = with_board([](auto& b) { return b.time_s; });
    settle();
    latencies_s.push_back(with_board([](auto& b) { return b.log.back().time_s; }) - issued);
  }
  std::nth_element(latencies_s.begin(), latencies_s.begin() + 25, latencies_s.end());
  // The log has the end of the transaction, at least one byte (80 us) and two pauses after the select.
  EXPECT_LT(latencies_s[25], 0.001 + 0.0001);
}

TEST_F(service, the_refresh_comes_every_100_ms) {
  start();
  std::vector<int64_t> gaps;
  unsigned long seen = 0;
  for (int64_t last = monotonic_ns(), begin = last; monotonic_ns() - begin < 2'150'000'000;) {
    ev_run(application_.loop, EVRUN_NOWAIT);
    sleep_ns(500'000);
    const unsigned long before = std::exchange(seen, reads());
    const int64_t now = monotonic_ns();
    if (before != seen) gaps.push_back(now - std::exchange(last, now));
  }
  ASSERT_GE(gaps.size(), 10U);  // 21, unless the machine is busy
  std::nth_element(gaps.begin(), gaps.begin() + static_cast<long>(gaps.size() / 2), gaps.end());
  EXPECT_NEAR(static_cast<double>(gaps[gaps.size() / 2]), 100e6, 5e6);
}

TEST_F(service, any_thread_may_call) {
  start();
  std::vector<std::thread> threads;
  for (uint8_t t = 0; t < 4; ++t) {
    threads.emplace_back([this, t] {
      for (uint8_t i = 0; i < 60; ++i) {
        EXPECT_EQ(write(static_cast<uint8_t>(0x20 + t), {i}), 0);
        power_board_readings readings;
        orb_power_board_load_registers(&board_, &readings);
        orb_power_board_suspend_refresh(&board_);
        orb_power_board_trigger_refresh(&board_);
        orb_power_board_resume_refresh(&board_);
        orb_power_board_set_zero_buffer(&board_, i % 2);
        orb_power_board_set_read_command(&board_, orb_power_board_get_read_command(&board_));
        orb_power_board_get_board_type(&board_);
      }
    });
  }
  for (int i = 0; i < 100; ++i) tick(), sleep_ns(100'000);
  for (std::thread& thread : threads) thread.join();
  orb_power_board_stop_service(&board_);
  std::array<int, 4> next{};
  for (const register_write& one : with_board([](auto& b) { return b.log; })) {
    EXPECT_EQ(one.data[0], next.at(one.reg - 0x20U)++);
  }
  EXPECT_EQ(next, (std::array{60, 60, 60, 60}));
}

}  // namespace
