// The drives: the tilt drive, and the second drive that is either the telescoping mast ("height") or a pan
// drive. The mast is homed to its retracted end stop and moved to presets by state machines that run once a
// refresh (0.1 s) in the service thread. Counts fall as the mast extends; 222.5 counts are a millimetre. Any
// thread.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

#include "power_board/registers.h"

struct orb_power_board;
struct power_board_readings;

// homing_state
inline constexpr int kHomingIdle = 0;  // not homed
inline constexpr int kHomingStart = 1;
inline constexpr int kHomingDrive = 2;
inline constexpr int kHomingSettle = 3;
inline constexpr int kHomed = 4;  // or no mast

// move_state
inline constexpr int kMoveStart = 0;
inline constexpr int kMoveOutFast = 1;
inline constexpr int kMoveOutSlow = 2;
inline constexpr int kMoveInFast = 3;
inline constexpr int kMoveInSlow = 4;
inline constexpr int kMoveCheck = 5;
inline constexpr int kMoveIdle = 6;

inline constexpr int kPresetHome = 6;  // inches: the retracted height

// What has been asked for and waits for the next refresh.
struct motor_requests {
  bool end = false;     // of the homing or move that runs, for good; what comes after it starts afresh
  bool cancel = false;  // of the move, waiting or running
  bool home = false;
  bool move = false;  // to the target
};

// All that the machines know. Plain, so that it can be copied, compared and stepped through by a test.
// Guarded by motor_lock of the power board, which is held for a request and for a step, never for a write or
// a trace.
struct motor_state {
  int motor_type_seen = -1;
  int motor_type = -1;        // confirmed
  int motor_type_stable = 0;  // refreshes that the report has been unchanged
  motor_requests requests{};
  int homing_state = kHomingIdle;
  int move_state = kMoveIdle;  // idle unless homed
  int home_count = 0;          // at the retracted end stop
  int upper_limit = 0;         // samples outside the limits are ignored by the moves
  int lower_limit = 0;
  int position = 0;  // last accepted count
  int previous_count = 0;
  int target = 0;
  int direction = 0;  // -1 in, +1 out
  int slow_point = 0;
  int fast_point = 0;
  int stable_count = 0;
  int resample_count = 0;
  int sample_count = 0;  // of a homing's drive since it was told to run without a gap
  int keepalive_count = 0;
  int timeout_count = 0;
  int no_movement_count = 0;
};

// What the machines look at in one refresh.
struct motor_sample {
  int reported_type = 0;
  int encoder = 0;  // counts
  float amps = 0;
  bool overcurrent = false;
  bool extended = false;     // the board scales pwm: 60 of ours are 100 of its own
  bool jog_waiting = false;  // its writes would follow this refresh's
  bool late = false;         // the drive may have stopped by itself since it was last told to run
  bool due = false;          // or would, before the next refresh
  bool disturbed = false;    // somebody else has written a motor register since the last refresh
};

struct motor_write {
  uint8_t number = 0;
  std::array<uint8_t, 3> data{};
  uint8_t length = 0;
};

inline constexpr size_t kMotorLineSize = 64;

struct motor_line {
  int level = 0;
  std::array<char, kMotorLineSize> text{};
};

// The register writes that one refresh asks for, and the lines it traces, in order. What is too much is left
// out.
class motor_output {
 public:
  void add(const motor_write& write) {
    if (write_count_ < writes_.size()) writes_[write_count_++] = write;
  }
  void add(int level, const char* text);
  std::span<const motor_write> writes() const { return {writes_.data(), write_count_}; }
  std::span<const motor_line> lines() const { return {lines_.data(), line_count_}; }

 private:
  std::array<motor_write, 8> writes_{};  // a refresh asks for four at most
  std::array<motor_line, 12> lines_{};
  size_t write_count_ = 0;
  size_t line_count_ = 0;
};

// What the times of the refreshes say of a drive, in ns: `now`, the refresh before, and the last run command.
struct motor_timing {
  bool late = false;
  bool due = false;
};
motor_timing judge_motor_times(int64_t now, int64_t before, int64_t run);

// Register 3 for a run at `pwm` (-100 to 100) for `duration` of the board's units.
motor_write motor_speed_write(int pwm, int duration);

// `pwm` as the board takes it.
inline int scaled_pwm(int pwm, bool extended) { return extended ? pwm * 60 / 100 : pwm; }

// --- machines and requests; pure ---

// One refresh of motor-type check, homing and move.
void step_motors(motor_state& motors, const motor_sample& sample, motor_output& output);

// Ends what runs, with its line ("homing REASON", "move out REASON ...") and a stop, which is written in any
// case. What waits goes on to wait.
void end_motors(motor_state& motors, const char* reason, motor_output& output);

// Whether a homing or a move waits or runs; one that has been withdrawn does not.
bool is_homing(const motor_state& motors);
bool is_moving(const motor_state& motors);
bool is_homed(const motor_state& motors);  // or has no mast

// Homes the mast at the next refresh; what runs then gives way. False without a mast.
bool request_home(motor_state& motors);

// A preset's distance from the retracted height, in steps of 2 inches.
inline double preset_steps(int preset) { return (preset - kPresetHome) * 0.5; }

// Moves a homed and idle mast to `preset` inches, which is not the retracted height. The target, or nothing
// when that is too near.
std::optional<int> request_move(motor_state& motors, int preset);

// A stop: the move's cancel. False when it must not be written: a homing is not broken off, a move writes its
// own.
bool request_stop(motor_state& motors);

// Whether drive `command` may jog. A move is cancelled instead, and an unhomed mast, if it `may_home`, homed.
bool request_jog(motor_state& motors, int command, bool may_home);

// Ends homing and move for good, running or waiting. False when there is none.
bool withdraw_requests(motor_state& motors);

// --- operations; none waits ---

// A jog: runs drive `command` (1 tilt, 2 pan or mast) at `pwm` (limited to -100 to 100, negative is in) for
// `duration` (its low 16 bits). -1 during over-current, and for the mast until it is homed, which the jog
// then asks for, unless refreshing is suspended.
int orb_power_board_start_motor(orb_power_board* board, int command, int pwm, int duration);

// Ends a homing and a move for good, running or only asked for, with a stop.
void withdraw_motor_requests(orb_power_board* board);

// Stops whatever runs; a move is cancelled. -1 when a homing is asked for that a stop must not break off.
int orb_power_board_stop_motor(orb_power_board* board);

// Homes the mast at the next refresh. -1 without a mast, and while refreshing is suspended.
int orb_power_board_home_height(orb_power_board* board);

// Whether the mast stands on its extension (shown heights then are 24 inches more).
void orb_power_board_set_height_extension(orb_power_board* board, int value);

// Moves a homed and idle mast to `preset` inches (6: homes it again); otherwise the preset is only stored. -1
// while refreshing is suspended.
int orb_power_board_set_height_preset(orb_power_board* board, int preset);

// The height as a text: "HOMING", "SETTING", a height such as "12.0 in" or "30.5 cm" (setting 20), empty
// without a mast.
void orb_power_board_load_height(orb_power_board* board, char* text, size_t size);

// The pwm of a tilt jog: 100 at 1x, 20 from 30x.
int tilt_jog_pwm(float zoom_ratio);

// The drives' step of a refresh: the machines look at the readings, and what they ask for is written. Service
// thread.
void run_motors(orb_power_board* board, const power_board_readings& readings);

// Ends homing and move, for `reason`, and stops the drives whatever they do. Service thread.
void stop_motors(orb_power_board* board, const char* reason);
