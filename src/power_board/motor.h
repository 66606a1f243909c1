// The drives: the tilt drive, and the second drive that is either the telescoping mast ("height") or a pan
// drive. The mast is homed to its retracted end stop and moved to presets by state machines that run once a
// refresh (0.1 s) in the service thread. Counts fall as the mast extends; 222.5 counts are a millimetre.
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <span>

struct orb_power_board;
struct power_board_readings;

// Register 6.
inline constexpr uint8_t kMotorRunTilt = 1;
inline constexpr uint8_t kMotorRunDrive = 2;  // pan or mast
inline constexpr uint8_t kMotorStop = 0xFF;

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

// Atomic members are written or read by other threads too; the rest belongs to the service thread. A move's
// target is published by its state (release after the target, acquire before it is read).
struct motor_state {
  int motor_type_seen = -1;
  std::atomic<int> motor_type = -1;  // confirmed
  int motor_type_stable = 0;         // refreshes that the report has been unchanged
  std::atomic<int> homing_requested = 0;
  std::atomic<int> homing_state = kHomingIdle;
  std::atomic<int> move_state = kMoveIdle;
  std::atomic<int> move_cancel = 0;
  std::atomic<int> home_count = 0;  // at the retracted end stop
  int upper_limit = 0;              // samples outside the limits are ignored by the moves
  int lower_limit = 0;
  std::atomic<int> position = 0;  // last accepted count
  int previous_count = 0;
  std::atomic<int> target = 0;
  int direction = 0;  // -1 in, +1 out
  int slow_point = 0;
  int fast_point = 0;
  int stable_count = 0;
  int resample_count = 0;
  int keepalive_count = 0;
  int timeout_count = 0;
  int no_movement_count = 0;
  std::atomic<int> height_preset = kPresetHome;
  std::atomic<int> height_extension = 0;
};

// What the machines look at in one refresh.
struct motor_sample {
  int reported_type = 0;
  int encoder = 0;  // counts
  float amps = 0;
  bool overcurrent = false;
  bool extended = false;     // the board scales pwm: 60 of ours are 100 of its own
  bool jog_waiting = false;  // its writes would follow this refresh's
};

// The register writes that one refresh asks for, in order.
struct motor_write {
  uint8_t number = 0;
  std::array<uint8_t, 3> data{};
  uint8_t length = 0;
};
class motor_writes {
 public:
  void add(const motor_write& write) {
    if (count_ < writes_.size()) writes_[count_++] = write;
  }
  std::span<const motor_write> all() const { return {writes_.data(), count_}; }

 private:
  std::array<motor_write, 8> writes_{};  // a refresh asks for five at most
  size_t count_ = 0;
};

// Register 3 for a run at `pwm` (-100 to 100) for `duration` of the board's units.
motor_write motor_speed_write(int pwm, int duration);

// `pwm` as the board takes it, traced at `level` when it is scaled.
int adjust_pwm(int level, int pwm, bool extended);

// Whether a homing or a move has its drive running.
bool is_driving(const motor_state& motors);

// One refresh of motor-type check, homing and move. Pure but for the trace.
void step_motors(motor_state& motors, const motor_sample& sample, motor_writes& writes);

// --- operations; any thread, none waits ---

// A jog: runs drive `command` (1 tilt, 2 pan or mast) at `pwm` (limited to -100 to 100, negative is in) for
// `duration` (its low 16 bits). -1 during over-current, and for the mast until it is homed, which the jog
// then asks for.
int orb_power_board_start_motor(orb_power_board* board, int command, int pwm, int duration);

// Ends a homing and a move for good, running or only asked for: the next refresh takes them back.
void withdraw_motor_requests(orb_power_board* board);

// Stops whatever runs; a move is cancelled. -1 when a homing is asked for that a stop must not break off.
int orb_power_board_stop_motor(orb_power_board* board);

// Homes the mast at the next refresh. -1 without a mast.
int orb_power_board_home_height(orb_power_board* board);

// Whether the mast stands on its extension (shown heights then are 24 inches more).
void orb_power_board_set_height_extension(orb_power_board* board, int value);

// Moves a homed and idle mast to `preset` inches (6: homes it again); otherwise the preset is only stored.
void orb_power_board_set_height_preset(orb_power_board* board, int preset);

// The height as a text: "HOMING", "SETTING", a height such as "12.0 in" or "30.5 cm" (setting 20), empty
// without a mast.
void orb_power_board_load_height(orb_power_board* board, char* text, size_t size);

// The pwm of a tilt jog: 100 at 1x, 20 from 30x.
int tilt_jog_pwm(float zoom_ratio);
