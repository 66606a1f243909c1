#include "power_board/work.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

namespace {

// The memory of the register that the item writes; null for what has none. Of the LEDs' register a write of
// another length gives no setting.
written_register* memory_of(orb_power_board* board, const work_item& item) REQUIRES(board->queue_lock) {
  if (item.kind != work_kind::write) return nullptr;
  if (item.number == kSpeedRegister) return &board->speed;
  if (item.number == kLedRegister && item.length == kLedDataSize) return &board->leds;
  return nullptr;
}

void note_queued(orb_power_board* board, const work_item& item) REQUIRES(board->queue_lock) {
  if (written_register* memory = memory_of(board, item)) memory->queue(item);
}

bool is_same(std::span<const uint8_t> data, const work_item& write) {
  return std::ranges::equal(data, std::span(write.data).first(write.length));
}

// Whether the speed register holds this speed: by what was last queued for it, or else by its reading.
bool has_speed(orb_power_board* board, const work_item& wanted) REQUIRES(board->queue_lock) {
  if (const work_item* last = board->speed.written()) {
    return board->speed.is_known() && is_same(std::span(last->data).first(last->length), wanted);
  }
  const power_board_readings readings = current_readings(board);
  return is_same(motor_speed_write(readings.motor_pwm, readings.motor_duration).data, wanted);
}

}  // namespace

work_item write_item(uint8_t number, std::span<const uint8_t> data) {
  work_item item{.kind = work_kind::write, .number = number, .length = static_cast<uint8_t>(data.size())};
  std::copy(data.begin(), data.end(), item.data.begin());
  return item;
}

work_item stop_item() {
  static constexpr uint8_t kData[] = {kMotorStop};
  return write_item(kMotorRegister, kData);
}

bool append_work(orb_power_board* board, std::span<const work_item> items) {
  if (board->stopping || (items.size() > 1 && !board->queue.has_room(items.size()))) return false;
  for (const work_item& item : items) {
    if (!board->queue.append(item)) return false;
    note_queued(board, item);
  }
  board->queue_ready.signal();
  return true;
}

void note_write(orb_power_board* board, const work_item& item) {
  const mutex_lock lock(board->queue_lock);
  note_queued(board, item);
}

void note_performed(orb_power_board* board, const work_item& item, bool sent) {
  const mutex_lock lock(board->queue_lock);
  if (written_register* memory = memory_of(board, item)) memory->perform(sent);
}

bool queue_work(orb_power_board* board, const work_item& item) {
  const mutex_lock lock(board->queue_lock);
  return append_work(board, {&item, 1});
}

bool queue_jog(orb_power_board* board, const work_item& speed, const work_item& run) {
  const work_item items[] = {speed, run};
  const mutex_lock lock(board->queue_lock);
  return append_work(board, std::span(items).subspan(has_speed(board, speed) ? 1 : 0));
}

int setter_result(orb_power_board* board, bool taken, int line) {
  if (taken) return 0;
  const mutex_lock lock(board->queue_lock);
  if (board->stopping) return -1;
  fprintf(stderr, "%s: calloc() failed at line %d: %s\n", board->program_name.data(), line, strerror(ENOMEM));
  return -1;
}
