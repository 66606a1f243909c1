#include "power_board/leds.h"

#include "power_board/link.h"
#include "power_board/work.h"

namespace {

work_item led_write(const led_setting& leds) {
  const uint8_t data[] = {leds.mask, leds.pwm};
  return write_item(kLedRegister, data);
}

std::optional<work_item> lost_write(orb_power_board* board) REQUIRES(board->queue_lock) {
  if (!board->leds.is_lost()) return std::nullopt;
  return *board->leds.written();
}

}  // namespace

void queue_lost_leds(orb_power_board* board) {
  const mutex_lock lock(board->queue_lock);
  const std::optional<work_item> lost = lost_write(board);
  if (lost && board->write_suspended == 0) append_work(board, {&*lost, 1});
}

bool write_lost_leds(orb_power_board* board) {
  std::optional<work_item> lost;
  {
    const mutex_lock lock(board->queue_lock);
    lost = lost_write(board);
    if (lost) board->leds.queue(*lost);
  }
  return !lost || write_register(board, *lost);
}

int orb_power_board_enable_led_power(orb_power_board* board, uint8_t mask, uint8_t pwm) {
  const work_item write = led_write({mask, pwm});
  {
    const mutex_lock lock(board->queue_lock);
    if (append_work(board, {&write, 1})) return 0;
    board->leds.refuse(write);
  }
  return setter_result(board, false, __LINE__);
}

std::optional<led_setting> given_leds(orb_power_board* board) {
  const mutex_lock lock(board->queue_lock);
  const work_item* last = board->leds.written();
  if (last == nullptr) return std::nullopt;
  return led_setting{last->data[0], last->data[1]};
}

led_setting current_leds(orb_power_board* board) {
  if (const std::optional<led_setting> given = given_leds(board)) return *given;
  const power_board_readings readings = current_readings(board);
  return {readings.led_enable, readings.led_pwm};
}
