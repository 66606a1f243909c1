// The service thread's work queue: a bounded ring, first in, first out, in which a motor stop always has a
// place. Guarded by queue_lock of the power board.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "base/thread.h"
#include "power_board/registers.h"

enum class work_kind : uint32_t {
  stop = 1,
  refresh = 2,
  write = 3,            // of a register
  firmware_update = 4,  // hand the bus over to the update thread
  signal_shutdown = 5,  // ask the board to cut the power
};

inline constexpr size_t kWriteDataSize = 16;

struct work_item {
  work_kind kind = work_kind::refresh;
  uint8_t number = 0;  // of the register
  uint8_t length = 0;  // of the data, 0 to 16
  std::array<uint8_t, kWriteDataSize> data{};
  completion_function completed = nullptr;  // of a firmware update
};

// A stop of all motors.
inline bool is_motor_stop(const work_item& item) {
  return item.kind == work_kind::write && item.number == kMotorRegister && item.length != 0 &&
         item.data[0] == kMotorStop;
}

// A write to the motor registers, speed and command, and a run command: anything there but a stop.
inline bool is_motor_write(const work_item& item) {
  return item.kind == work_kind::write && (item.number == kSpeedRegister || item.number == kMotorRegister);
}
inline bool is_motor_run(const work_item& item) {
  return is_motor_write(item) && item.number == kMotorRegister && item.length != 0 && !is_motor_stop(item);
}

class work_queue {
 public:
  // Writes and updates beyond this many waiting items are refused.
  static constexpr size_t kLimit = 256;

  bool empty() const { return count_ == 0; }

  // Whether `count` ordinary items can be appended.
  bool has_room(size_t count) const { return count_ + count <= kLimit; }

  // False when the queue is full for this kind. Stop, refresh and signal_shutdown, which their senders queue
  // once at a time, always have a place. So has a motor stop: beyond the limit nothing that runs a motor is
  // appended, so a stop right behind another is the same stop.
  bool append(const work_item& item) {
    if (is_motor_stop(item)) {
      if (!has_room(1) && is_motor_stop(last())) return true;
    } else if (is_limited(item) && !has_room(1)) {
      return false;
    }
    if (count_ == items_.size()) return false;
    items_[(first_ + count_) % items_.size()] = item;
    ++count_;
    return true;
  }

  // Whether a write to the motor registers waits.
  bool has_motor_work() const {
    for (size_t i = 0; i < count_; ++i) {
      if (is_motor_write(items_[(first_ + i) % items_.size()])) return true;
    }
    return false;
  }

  // The oldest item; the queue must not be empty.
  work_item take() {
    const work_item item = items_[first_];
    first_ = (first_ + 1) % items_.size();
    --count_;
    return item;
  }

 private:
  static constexpr size_t kUnlimited = 3;           // stop, refresh, signal_shutdown
  static constexpr size_t kStops = kUnlimited + 1;  // one before, between and behind them

  static bool is_limited(const work_item& item) {
    return item.kind == work_kind::write || item.kind == work_kind::firmware_update;
  }

  const work_item& last() const { return items_[(first_ + count_ - 1) % items_.size()]; }

  std::array<work_item, kLimit + kUnlimited + kStops> items_{};
  size_t first_ = 0;
  size_t count_ = 0;
};
