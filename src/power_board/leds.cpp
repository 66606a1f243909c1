// The LEDs' register: what was last given, and what brings the board in line with it when a write is lost.

#include "power_board/internal.h"

namespace {

// A raw write of another length gives no setting.
bool is_led_write(const work_item& item) {
  return item.kind == work_kind::write && item.number == kLedRegister && item.length == 2;
}

work_item led_write(const led_setting& leds) {
  const uint8_t data[] = {leds.mask, leds.pwm};
  return write_item(kLedRegister, data);
}

}  // namespace

void note_leds(led_register* leds, const work_item& item) {
  if (!is_led_write(item)) return;
  leds->given = {item.data[0], item.data[1]};
  ++leds->waiting;
  leds->lost = false;
}

void note_led_write(orb_power_board* board, const work_item& item, bool sent) {
  if (!is_led_write(item)) return;
  const mutex_lock lock(board->queue_lock);
  led_register& leds = board->leds;
  if (--leds.waiting == 0 && !sent) leds.lost = true;
}

void queue_lost_leds(orb_power_board* board) {
  const mutex_lock lock(board->queue_lock);
  led_register& leds = board->leds;
  if (!leds.lost || !leds.given || board->write_suspended != 0) return;
  const work_item item = led_write(*leds.given);
  if (!board->queue.append(item)) return;
  note_leds(&leds, item);
  board->queue_ready.signal();
}

bool write_lost_leds(orb_power_board* board) {
  std::optional<led_setting> given;
  {
    const mutex_lock lock(board->queue_lock);
    if (board->leds.lost) given = board->leds.given;
  }
  if (!given) return true;
  if (!write_register(board, led_write(*given))) return false;
  const mutex_lock lock(board->queue_lock);
  board->leds.lost = false;
  return true;
}

int orb_power_board_enable_led_power(orb_power_board* board, uint8_t mask, uint8_t pwm) {
  if (queue_work(board, led_write({mask, pwm}))) return 0;
  {
    const mutex_lock lock(board->queue_lock);
    board->leds.given = {mask, pwm};
    board->leds.lost = true;
  }
  report_refused_write(board, __LINE__);
  return -1;
}

std::optional<led_setting> given_leds(orb_power_board* board) {
  const mutex_lock lock(board->queue_lock);
  return board->leds.given;
}

led_setting current_leds(orb_power_board* board) {
  if (const std::optional<led_setting> given = given_leds(board)) return *given;
  const mutex_lock lock(board->readings_lock);
  return {board->readings.led_enable, board->readings.led_pwm};
}
