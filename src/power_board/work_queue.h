// The service thread's work queue: a bounded ring, first in, first out. Guarded by queue_lock of the power
// board.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

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
  const void* request = nullptr;  // of a firmware update
};

class work_queue {
 public:
  // Writes and updates beyond this many waiting items are refused.
  static constexpr size_t kLimit = 256;

  bool empty() const { return count_ == 0; }

  // False when the queue is full for this kind: stop, refresh and signal_shutdown, which their senders queue
  // once at a time, always have a place.
  bool append(const work_item& item) {
    const bool limited = item.kind == work_kind::write || item.kind == work_kind::firmware_update;
    if (count_ >= (limited ? kLimit : items_.size())) return false;
    items_[(first_ + count_) % items_.size()] = item;
    ++count_;
    return true;
  }

  // The oldest item; the queue must not be empty.
  work_item take() {
    const work_item item = items_[first_];
    first_ = (first_ + 1) % items_.size();
    --count_;
    return item;
  }

 private:
  std::array<work_item, kLimit + 3> items_{};
  size_t first_ = 0;
  size_t count_ = 0;
};
