#include "sim/board/drive.h"

#include <algorithm>
#include <cmath>

#include "sim/board/noise.h"

namespace {

constexpr double kMastTravel = 274097.75;  // counts: 24.25 times 50.8 mm at 222.5 counts a millimetre
constexpr double kStep_s = 0.005;

constexpr double kFullPwm = 60;

constexpr double kNoLoadAmps = 0.06;
constexpr double kFullAmps = 0.5;
constexpr double kJamAmps = 3.0;

constexpr double kSlip = 0.7;        // of the counts that a slipping encoder sees
constexpr double kNoiseCounts = 40;  // to either side

bool is_at_stop(const board_drive& drive, double pwm) {
  return (pwm > 0 && drive.position <= drive.low_stop) || (pwm < 0 && drive.position >= drive.high_stop);
}

void step(board_drive& drive, double pwm, double seconds) {
  const double wanted = is_at_stop(drive, pwm) || drive.jammed ? 0 : -pwm / kFullPwm * drive.full_speed;
  drive.speed += (wanted - drive.speed) * std::min(1.0, seconds / drive.inertia_s);
  if (drive.jammed) drive.speed = 0;
  const double from = drive.position;
  drive.position = std::clamp(drive.position + drive.speed * seconds, drive.low_stop, drive.high_stop);
  if (drive.position == drive.low_stop || drive.position == drive.high_stop) drive.speed = 0;
  const double moved = drive.position - from;
  if (drive.fault == encoder_fault::slipping) {
    drive.count += moved * kSlip;
  } else if (drive.fault != encoder_fault::frozen) {
    drive.count += moved;
  }
}

}  // namespace

board_drive make_mast(double home) {
  board_drive drive;
  drive.position = drive.count = drive.high_stop = home;
  drive.low_stop = home - kMastTravel;
  return drive;
}

void drive_advance(board_drive& drive, double pwm, double seconds) {
  const int steps = static_cast<int>(std::ceil(seconds / kStep_s));
  for (int i = 0; i < steps; ++i) step(drive, pwm, seconds / steps);
  const bool powered = pwm != 0 && !is_at_stop(drive, pwm);
  drive.overcurrent = powered && drive.jammed;
  drive.amps = !powered       ? 0
               : drive.jammed ? kJamAmps
                              : kNoLoadAmps + (kFullAmps - kNoLoadAmps) * std::fabs(pwm) / kFullPwm;
}

double drive_count(board_drive& drive) {
  return std::round(drive.count +
                    (drive.fault == encoder_fault::noisy ? kNoiseCounts * next_noise(drive.noise) : 0));
}
