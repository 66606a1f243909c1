#include "app/redis_publisher.h"

#include <ev.h>

#include "base/application.h"
#include "base/redis_exchange.h"
#include "power_board/power_board.h"

namespace {

constexpr double kPeriod_s = 1.0;

ev_timer publish_timer;
redis_exchange publication;

}  // namespace

void start_redis_publisher(orb_application* application) {
  ev_timer_init(&publish_timer, on_redis_timeout, kPeriod_s, kPeriod_s);
  ev_timer_start(application->loop, &publish_timer);
}

void on_redis_timeout(struct ev_loop*, ev_timer*, int) {
  orb_power_board* board = power_board_now();
  if (board == nullptr) return;
  power_board_readings readings;
  orb_power_board_load_registers(board, &readings);
  if (!begin_redis_exchange(&publication)) return;
  add_redis_command(&publication, "SET avr-voltage %f", static_cast<double>(readings.monitor_vin_volts));
  add_redis_command(&publication, "SET avr-temperature %f", static_cast<double>(readings.bme280_temperature));
  add_redis_command(&publication, "SET orb-motor-type %s", motor_type_text(readings.motor_type));
}
