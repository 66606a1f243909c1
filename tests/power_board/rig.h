// A power board record on the simulated bus: what was traced, what went over the wire, and the refresh
// timer's tick by hand.
#pragma once

#include <gtest/gtest.h>

#include <fstream>
#include <functional>
#include <regex>
#include <string>
#include <vector>

#include "app/application.h"
#include "app/trace.h"
#include "base/clock.h"
#include "base/paths.h"
#include "power_board/internal.h"
#include "sim/board/bus.h"

using texts = std::vector<std::string>;

inline texts& violations() {
  static auto& seen = *new texts;
  return seen;
}

// Polls for at most 10 s.
inline bool wait_until(const std::function<bool()>& reached) {
  for (int i = 0; i < 50'000; ++i) {
    if (reached()) return true;
    sleep_ns(200'000);
  }
  return false;
}

inline bool wait_for_state(const orb_power_board& board, int state) {
  return wait_until([&] { return board.service_state == state; });
}

class rig : public testing::Test {
 protected:
  static constexpr uint8_t kMarker = 0x7F;

  char name_[5] = "orbd";
  orb_application application_;
  orb_power_board& board_ = new_board();

  void SetUp() override {
    reset_board();
    set_wire_time(false);
    violations().clear();
    set_violation_handler([](const char* text) { violations().emplace_back(text); });
    set_trace_mask(1U << kTracePowerBoard | 1U << kTraceRefresh);
    init_trace();
    application_.program_name = name_;
    application_.loop = ev_loop_new(0);
    orb_power_board_init(&board_, &application_, 1);
  }

  void TearDown() override {
    orb_power_board_destroy(&board_);
    EXPECT_EQ(violations(), texts{});
    EXPECT_EQ(open_bus_handles(), 0);
    ev_loop_destroy(application_.loop);
  }

  void start() {
    ASSERT_EQ(orb_power_board_start_service(&board_), 0);
    ASSERT_TRUE(wait_for_state(board_, kServiceRunning));
  }

  int write(uint8_t number, const std::vector<uint8_t>& data) {
    return orb_power_board_issue_write(&board_, number, data.data(), static_cast<uint32_t>(data.size()));
  }

  void tick() { ev_invoke(application_.loop, &board_.refresh_timer, EV_TIMER); }

  // Returns when the service has done all that was queued before.
  void settle() {
    const auto markers = [] { return with_board([](auto& b) { return b.counts.unknown_writes; }); };
    const auto before = markers();
    ASSERT_EQ(write(kMarker, {}), 0);
    ASSERT_TRUE(wait_until([&] { return markers() > before; }));
  }

  static unsigned long reads() {
    return with_board([](auto& b) { return b.counts.reads; });
  }

  // Ticks once, and returns how many refreshes came of it.
  unsigned long refreshes_of_tick() {
    const auto before = reads();
    tick();
    settle();
    return reads() - before;
  }

  // The writes on the wire, without markers, as "register:data".
  static texts written() {
    texts result;
    for (const register_write& one : with_board([](auto& b) { return b.log; })) {
      if (one.reg == kMarker) continue;
      std::string text = std::to_string(one.reg) + ":";
      for (size_t i = 0; i < one.size; ++i) {
        text += {"0123456789abcdef"[one.data[i] >> 4], "0123456789abcdef"[one.data[i] & 15]};
      }
      result.push_back(text);
    }
    return result;
  }

  // The lines traced since the last call, with their tag and without their time.
  texts traced() {
    texts result;
    std::ifstream file(paths::kTrace);
    std::string line;
    for (size_t at = 0; std::getline(file, line); ++at) {
      if (at >= traced_ && !line.starts_with("start mask"))
        result.push_back(line.substr(0, line.rfind(" [")));
      traced_ = std::max(traced_, at + 1);
    }
    return result;
  }

 private:
  size_t traced_ = 0;

  // Never freed: a board that ran has an update thread for the rest of the process.
  static orb_power_board& new_board() {
    static auto& kept = *new std::vector<orb_power_board*>;
    return *kept.emplace_back(new orb_power_board);
  }
};

inline std::string without_line_numbers(const std::string& text) {
  return std::regex_replace(text, std::regex("at line [0-9]+"), "at line N");
}
