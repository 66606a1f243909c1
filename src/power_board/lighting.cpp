#include "power_board/lighting.h"

#include "base/mutex.h"
#include "base/paths.h"
#include "base/value_file.h"
#include "power_board/power_board.h"

namespace {

mutex lighting_lock;
uint8_t led_setting GUARDED_BY(lighting_lock) = kLedOff;  // LED mask last selected

void apply_intensity(int value) REQUIRES(lighting_lock) {
  orb_power_board* board = power_board_instance.load(std::memory_order_acquire);
  if (board != nullptr)
    orb_power_board_enable_led_power(board, led_setting, static_cast<uint8_t>(value & 0xFF));
  write_value_file(paths::kIntensity, value);
}

}  // namespace

void orb_set_api_led_intensity(int value) {
  const mutex_lock lock(lighting_lock);
  apply_intensity(value);
}

void reset_lighting() {
  const mutex_lock lock(lighting_lock);
  led_setting = kLedOff;
  apply_intensity(kStartIntensity);
}
