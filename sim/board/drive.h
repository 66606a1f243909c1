// A drive of the simulated power board that really travels: position and speed with inertia, end stops that
// cut the current, and the faults that a test can give it. Counts fall on the way out, as on the mast.
#pragma once

#include <cstdint>

enum class encoder_fault { none, frozen, slipping, noisy };

struct board_drive {
  double position = 0;  // counts, true
  double speed = 0;     // counts a second, true
  double low_stop = -1e9;
  double high_stop = 1e9;
  double full_speed = 9000;  // counts a second at full pwm; a weak battery makes it less
  double inertia_s = 0.15;   // time constant of the speed
  bool jammed = false;       // stands still, draws much current and trips the over-current bit
  encoder_fault fault = encoder_fault::none;

  // What the board measures.
  double count = 0;
  double amps = 0;
  bool overcurrent = false;

  uint32_t noise = 1;  // state of the noise's generator
};

// The mast: retracted at `home` counts, 48.5 inches of travel.
board_drive make_mast(double home);

// Lets `seconds` pass while the drive is powered at `pwm` (0: not powered; the board's scale, 60 is full
// speed).
void drive_advance(board_drive& drive, double pwm, double seconds);

// The encoder's reading, with its noise.
double drive_count(board_drive& drive);
