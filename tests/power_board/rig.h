// A power board record on the simulated bus: what was traced, what went over the wire, and the refresh
// timer's tick by hand.
#pragma once

#include "base/application.h"
#include "base/trace.h"
#include "power_board/events.h"
#include "power_board/link.h"
#include "power_board/work.h"
#include "sim/board/bus.h"
#include "sim/board/control.h"
#include "tests/kit.h"

using texts = std::vector<std::string>;

inline texts violations;  // of the bus

// What f says on standard error, without line numbers.
inline std::string said_by(const std::function<void()>& f) {
  testing::internal::CaptureStderr();
  f();
  return std::regex_replace(testing::internal::GetCapturedStderr(), std::regex("line [0-9]+"), "line N");
}

class rig : public testing::Test {
 protected:
  char name_[5] = "orbd";
  orb_application application_;
  // Never freed: a board that ran has an update thread for the rest of the process.
  static inline auto& kept_ = *new std::vector<orb_power_board*>;
  orb_power_board& board_ = *kept_.emplace_back(new orb_power_board);
  uint32_t trace_mask_ = 1U << kTracePowerBoard | 1U << kTraceRefresh;
  std::ifstream trace_;

  void SetUp() override {
    reset_board();
    set_wire_time(false);
    violations.clear();
    set_violation_handler([](const char* text) { violations.emplace_back(text); });
    set_trace_mask(trace_mask_);
    init_trace();
    application_.program_name = name_;
    application_.loop = ev_loop_new(0);
    orb_power_board_init(&board_, &application_, 1);
    trace_.open(paths::kTrace);
    traced();
  }

  void TearDown() override {
    orb_power_board_destroy(&board_);
    EXPECT_EQ(violations, texts{});
    EXPECT_EQ(open_bus_handles(), 0);
    ev_loop_destroy(application_.loop);
  }

  void start() {
    ASSERT_EQ(orb_power_board_start_service(&board_), 0);
    ASSERT_TRUE(await([&] { return board_.service_state == kServiceRunning; }));
  }

  int write(uint8_t number, std::initializer_list<uint8_t> data) {
    return orb_power_board_issue_write(&board_, number, data.begin(), static_cast<uint32_t>(data.size()));
  }

  void tick() { ev_invoke(application_.loop, &board_.refresh_timer, EV_TIMER); }

  // Returns when the service has done all that was queued before.
  void settle() {
    const auto markers = [] { return with_board([](auto& b) { return b.counts.unknown_writes; }); };
    const auto before = markers();
    ASSERT_EQ(write(127, {}), 0);
    ASSERT_TRUE(await([&] { return markers() > before; }));
  }

  static unsigned long reads() {
    return with_board([](auto& b) { return b.counts.reads; });
  }

  unsigned long refresh(int ticks = 1) {
    const auto before = reads();
    for (; ticks > 0; --ticks) tick(), settle();
    return reads() - before;
  }

  power_board_readings readings() {
    power_board_readings copy;
    orb_power_board_load_registers(&board_, &copy);
    return copy;
  }

  // The writes on the wire, without markers, as lines of "register data".
  static std::string written() {
    const std::string log = with_board([](auto& b) { return board_command(b, "log"); });
    return std::regex_replace(log, std::regex("0\\.000 (127\n)?"), "");
  }

  // The lines traced since the last call, with their tag and without their time.
  texts traced() {
    texts result;
    trace_.clear();  // its end has moved
    for (std::string line; std::getline(trace_, line);) result.push_back(line.substr(0, line.rfind(" [")));
    return result;
  }
};
