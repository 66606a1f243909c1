// The board's registers that the daemon writes, and the values for them.
#pragma once

#include <cstddef>
#include <cstdint>

inline constexpr uint8_t kPowerRegister = 0;  // power enable mask
inline constexpr uint8_t kLedRegister = 1;    // LED enable mask, LED pwm
inline constexpr uint8_t kSpeedRegister = 3;  // motor pwm, signed; duration, low and high byte
inline constexpr uint8_t kMotorRegister = 6;  // motor command

inline constexpr size_t kLedDataSize = 2;

// Bits of the power enable mask.
inline constexpr uint8_t kPowerCut = 0x01;     // asks the board to cut the power
inline constexpr uint8_t kPowerAlways = 0x02;  // set in every write
inline constexpr uint8_t kPowerCamera = 0x04;
inline constexpr uint8_t kPowerLaser = 0x08;

// LED modes: masks of the LED drive lines.
inline constexpr uint8_t kLedOff = 0x00;
inline constexpr uint8_t kLedLow = 0x09;
inline constexpr uint8_t kLedMedium = 0x12;
inline constexpr uint8_t kLedHigh = 0x24;
inline constexpr uint8_t kLedStrip = 0xC0;
inline constexpr uint8_t kLedAll = 0xFF;  // high beam

// Motor commands.
inline constexpr uint8_t kMotorRunTilt = 1;
inline constexpr uint8_t kMotorRunDrive = 2;  // pan or mast
inline constexpr uint8_t kMotorStop = 0xFF;
