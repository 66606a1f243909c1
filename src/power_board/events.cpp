// What each refresh derives from the readings: the board's requests and warnings, and the averages.

#include "power_board/events.h"

#include <cstdio>
#include <optional>

#include "base/text.h"
#include "base/trace.h"
#include "power_board/power_board.h"
#include "store/logger.h"

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
  if (board->on_shutdown_request != nullptr) board->on_shutdown_request();
}

void detect_overcurrent(orb_power_board* board, uint8_t status) {
  const bool now = (status & (kStatusTiltOvercurrent | kStatusDriveOvercurrent)) != 0;
  if (now == (board->overcurrent != 0)) return;
  board->overcurrent = now ? 1 : 0;
  trace(kTracePowerBoard, now ? "overcurrent" : "no overcurrent");
}

struct warning {
  const char* begin;  // as they are traced
  const char* end;
  void (*report)();  // to the logger, at the begin; may be null
};

// Loads the hold while `active` and counts it down afterwards.
void hold_warning(std::atomic<int>& hold, bool active, const warning& warning) {
  if (active) {
    if (hold == 0) {
      trace(kTracePowerBoard, "%s", warning.begin);
      if (warning.report != nullptr) warning.report();
    }
    hold = kHold;
  } else if (hold != 0 && --hold == 0) {
    trace(kTracePowerBoard, "%s", warning.end);
  }
}

warning drive_warning(uint8_t motor_type) {
  return {"pan/height overcurrent start", "pan/height overcurrent end",
          motor_type == kMotorHeight ? orb_report_logger_height_motor_warning
          : motor_type == kMotorPan  ? orb_report_logger_pan_motor_warning
                                     : nullptr};
}

// Adds a sample; the average when its period is over.
template <typename number>
std::optional<number> next_average(period_average<number>& average, number sample) {
  if (average.start_delay > 0) {
    --average.start_delay;
    return std::nullopt;
  }
  average.sum += sample;
  if (++average.count < kAverageSamples) return std::nullopt;
  const number result = average.sum / static_cast<number>(average.count);
  average.sum = 0;
  average.count = 0;
  return result;
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
  hold_warning(board->tilt_overcurrent_hold, (status & kStatusTiltOvercurrent) != 0,
               {"tilt overcurrent begin", "tilt overcurrent end", orb_report_logger_tilt_motor_warning});
  hold_warning(board->drive_overcurrent_hold, (status & kStatusDriveOvercurrent) != 0,
               drive_warning(readings.motor_type));
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
  const std::optional<uint32_t> average = next_average(board->pressure, readings.bme280_pressure);
  if (!average) return;
  orb_report_logger_internal_pressure(*average);
  if (*average > kHighPressure || *average < kNormalPressure) {
    hold_warning(board->high_pressure_hold, *average > kHighPressure,
                 {"high pressure begin", "high pressure end", orb_report_logger_high_pressure_warning});
  }
}

void average_humidity(orb_power_board* board, const power_board_readings& readings) {
  const std::optional<float> average = next_average(board->humidity, readings.bme280_humidity);
  if (!average) return;
  orb_report_logger_internal_humidity(static_cast<double>(*average));
  if (*average > kHighHumidity || *average < kNormalHumidity) {
    hold_warning(board->high_humidity_hold, *average > kHighHumidity,
                 {"high rh begin", "high rh end", orb_report_logger_high_humidity_warning});
  }
}

void orb_power_board_load_battery_level(const orb_power_board* board, char* text, size_t size) {
  static constexpr const char* kLevels[] = {"?", "25%", "50%", "75%", "100%"};
  copy_text(text, size, kLevels[board->battery_level]);
}

void orb_power_board_load_battery_voltage(const orb_power_board* board, char* text, size_t size) {
  copy_text(text, size, "");
  if (board->battery_level != 0) {
    snprintf(text, size, "%.1f V", static_cast<double>(board->battery.volts.load()));
  }
}
