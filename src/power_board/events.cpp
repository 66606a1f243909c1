// What each refresh derives from the readings: the board's requests and warnings, and the averages.

#include "app/trace.h"
#include "base/text.h"
#include "power_board/internal.h"
#include "supervisor/supervisor.h"

namespace {

constexpr int kHold = 30;  // refreshes for the drives, averaging periods for pressure and humidity
constexpr int kAverageSamples = 50;

constexpr uint32_t kHighPressure = 1200;  // averages are whole numbers
constexpr uint32_t kNormalPressure = 1100;
// As they stand: the humidity that they are compared with is in percent, not in hundredths.
constexpr float kHighHumidity = 9500.0F;
constexpr float kNormalHumidity = 9000.0F;

constexpr float kBatteryScale = 0.015625F;  // one sixty-fourth

void detect_shutdown_request(orb_power_board* board, uint8_t status) {
  const bool requested = (status & (kStatusShutdownRequest | kStatusNoShutdown)) == kStatusShutdownRequest;
  if (!requested || board->shutdown_requested != 0) return;
  board->shutdown_requested = 1;
  trace(kTracePowerBoard, "shutdown request");
  orb_trigger_supervisor_shutdown(kShutdownBoard);
}

void detect_overcurrent(orb_power_board* board, uint8_t status) {
  const bool now = (status & (kStatusTiltOvercurrent | kStatusDriveOvercurrent)) != 0;
  if (now == (board->overcurrent != 0)) return;
  board->overcurrent = now ? 1 : 0;
  trace(kTracePowerBoard, now ? "overcurrent" : "no overcurrent");
}

// Loads the hold while `active` and counts it down afterwards, tracing the event's begin and end.
void hold_event(std::atomic<int>& hold, bool active, const char* begin, const char* end) {
  if (active) {
    if (hold == 0) trace(kTracePowerBoard, "%s", begin);
    hold = kHold;
  } else if (hold != 0 && --hold == 0) {
    trace(kTracePowerBoard, "%s", end);
  }
}

// The rising and the falling thresholds differ by one step of the table, and the comparisons are strict or
// not, on purpose.
int next_battery_level(int level, float volts, const battery_threshold_table& t) {
  switch (level) {
    case 1:
      return volts > t[2] ? 2 : 1;
    case 2:
      return volts < t[3] ? 1 : volts > t[1] ? 3 : 2;
    case 3:
      return volts < t[2] ? 2 : volts > t[0] ? 4 : 3;
    case 4:
      return volts < t[1] ? 3 : 4;
    default:
      return volts >= t[0] ? 4 : volts >= t[1] ? 3 : volts >= t[2] ? 2 : 1;
  }
}

}  // namespace

void detect_events(orb_power_board* board, const power_board_readings& readings) {
  const uint8_t status = readings.status;
  if ((status & kStatusExtended) == 0) return;
  detect_shutdown_request(board, status);
  detect_overcurrent(board, status);
  hold_event(board->tilt_overcurrent_hold, (status & kStatusTiltOvercurrent) != 0, "tilt overcurrent begin",
             "tilt overcurrent end");
  hold_event(board->drive_overcurrent_hold, (status & kStatusDriveOvercurrent) != 0,
             "pan/height overcurrent start", "pan/height overcurrent end");
}

void average_battery(orb_power_board* board, const power_board_readings& readings) {
  battery_average& battery = board->battery;
  const float volts = readings.monitor_vin_volts;
  battery.sum = battery.sum + volts - battery.samples[battery.index];
  battery.samples[battery.index] = volts;
  battery.index = (battery.index + 1) % battery.samples.size();
  if (battery.warm_up > 0) {
    --battery.warm_up;
    return;
  }
  battery.volts = battery.sum * kBatteryScale;
  board->battery_level = next_battery_level(board->battery_level, battery.volts, *board->battery_thresholds);
}

void average_pressure(orb_power_board* board, const power_board_readings& readings) {
  pressure_average& pressure = board->pressure;
  if (pressure.start_delay > 0) {
    --pressure.start_delay;
    return;
  }
  pressure.sum += readings.bme280_pressure;
  if (++pressure.count < kAverageSamples) return;
  const uint32_t average = pressure.sum / pressure.count;
  pressure.sum = 0;
  pressure.count = 0;
  if (average > kHighPressure || average < kNormalPressure) {
    hold_event(board->high_pressure_hold, average > kHighPressure, "high pressure begin",
               "high pressure end");
  }
}

void average_humidity(orb_power_board* board, const power_board_readings& readings) {
  humidity_average& humidity = board->humidity;
  if (humidity.start_delay > 0) {
    --humidity.start_delay;
    return;
  }
  humidity.sum += readings.bme280_humidity;
  if (++humidity.count < kAverageSamples) return;
  const float average = humidity.sum / static_cast<float>(humidity.count);
  humidity.sum = 0;
  humidity.count = 0;
  if (average > kHighHumidity || average < kNormalHumidity) {
    hold_event(board->high_humidity_hold, average > kHighHumidity, "high rh begin", "high rh end");
  }
}

void orb_power_board_load_battery_level(const orb_power_board* board, char* text, size_t size) {
  static constexpr const char* kLevels[] = {"?", "25%", "50%", "75%", "100%"};
  copy_text(text, size, kLevels[board->battery_level]);
}
