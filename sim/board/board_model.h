// The power board's microcontroller as a plain object: registers that are written, readings that are set from
// outside, and the status frames made of both. It owns no thread and reads no clock; whoever holds it passes
// the time in. The bus of bus.h puts one of these behind libmraa's functions.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <span>
#include <string_view>

#include "sim/board/drive.h"
#include "sim/board/motor.h"

inline constexpr uint8_t kReadAdvanced = 0x88;
inline constexpr uint8_t kReadBasic = 0x00;
inline constexpr size_t kAdvancedFrameSize = 141;
inline constexpr size_t kBasicFrameSize = 64;
inline constexpr size_t kMaxWriteData = 16;
inline constexpr size_t kMaxLoggedWrites = 256;

inline constexpr uint8_t kBoardPowerCut = 0x01;  // bits of register 0
inline constexpr uint8_t kBoardPowerMain = 0x02;
inline constexpr uint8_t kBoardPowerCamera = 0x04;
inline constexpr uint8_t kBoardPowerLaser = 0x08;

inline constexpr uint8_t kBoardExtended = 0x01;  // bits of the status byte
inline constexpr uint8_t kBoardShutdown = 0x02;
inline constexpr uint8_t kBoardTiltOvercurrent = 0x04;
inline constexpr uint8_t kBoardDriveOvercurrent = 0x08;

inline constexpr double kMastHome = 100000;  // counts of the retracted mast
inline constexpr double kBoardMotorTypePan = 2;

// What the board measures and counts. All are doubles, so that one table (board_readings_table) serves the
// frames and the control commands; a value that does not fit its frame field is clamped to it.
struct board_readings {
  double vin_volts = 20.0;  // V, A; of the battery without load, and of the board alone
  double vin_amps = 0.8;
  double camera_volts = 12.0;  // the frame shows 0 V and 0 A while the camera supply is off
  double camera_amps = 0.4;
  double motor_volts = 12.0;
  double motor_amps = 0;
  double pressure = 1013;     // hPa
  double humidity = 40.0;     // %
  double temperature = 25.0;  // degrees Celsius, as the next one
  double imu_temperature = 30.0;
  double gyro_x = 0, gyro_y = 0, gyro_z = 0;            // degrees per second
  double accel_x = 1.0, accel_y = 0, accel_z = 0;       // g; the head is level
  double mag_x = 220.0, mag_y = -40.0, mag_z = -410.0;  // raw counts
  double encoder_0 = 0, encoder_1 = kMastHome;          // counts
  double encoder_speed_0 = 0, encoder_speed_1 = 0;      // counts per second
  double laser_distance = 1.5;                          // m, true; the frame shows 0 while the supply is off
  double laser_quality = 100;
  double laser_error = 0;
  double laser_serial = 1234567;
  double laser_software = 0x0102;
  double laser_hardware = 0x0201;
  double laser_samples = 0;  // 0..255, counts while the laser supply is on
  double imu_samples = 0;    // 0..255
  double motor_type = 1;     // 1 height mast, 2 pan drive, other none
  double board_revision = 3;
  double build_number = 42;
  double status_period = 100;
  double local_time = 0;  // ms
  double board_time = 0;  // s, as the following ones; the times are counted by board_advance
  double up_time = 0;
  double motor_time = 0;
  double camera_time = 0;
  double laser_time = 0;
  double led_time = 0;
  double over_temperature_events = 0;
  double under_temperature_events = 0;
  double over_voltage_events = 0;
  double under_voltage_events = 0;
  double power_on_events = 1;
};

enum class wire_type : uint8_t { u8, u16, i16, u32, i32 };

// Where one reading stands in the frames: value = field x scale, little-endian.
struct board_reading_field {
  std::string_view name;  // for the control commands
  double board_readings::*member;
  int at;        // first byte in the advanced frame
  int basic_at;  // first byte in the basic frame, -1: not there
  wire_type type;
  double scale;
};

std::span<const board_reading_field> board_readings_table();

// Smallest and largest value that the field can carry.
double field_minimum(const board_reading_field& field);
double field_maximum(const board_reading_field& field);

// Name as in the table; null if there is none.
const board_reading_field* find_reading(std::string_view name);

enum class frame_mode : uint8_t {
  good,
  noise,        // random bytes whose sum is never 0
  zeros,        // as if nothing were connected
  bad_checksum  // a good frame with its checksum off by one
};

struct register_write {
  double time_s;  // board_model::time_s at the end of the transaction
  uint8_t reg;
  uint8_t size;  // bytes used of `data`, 0..16
  std::array<uint8_t, kMaxWriteData> data;
};

struct board_counts {
  unsigned long reads = 0;
  unsigned long writes = 0;          // all of them, also the kinds counted below
  unsigned long unknown_writes = 0;  // to a register that the board has not
  unsigned long empty_writes = 0;    // only a command byte
  unsigned long unknown_reads = 0;   // with a read command that the board does not know
  unsigned long odd_lengths = 0;     // known register or read command, wrong length; only while not strict
};

struct board_model {
  board_readings readings;
  uint8_t status = kBoardExtended;
  uint8_t power_enable = kBoardPowerMain;  // register 0
  uint8_t led_enable = 0;                  // register 1: mask, 0..255
  uint8_t led_pwm = 0;
  board_motor motor;   // registers 3 and 6
  board_drive tilt;    // encoder 0
  double shown_0 = 0;  // the encoders as last shown: another reading was set from outside
  double shown_1 = kMastHome;
  bool motor_ran = false;                   // at the last step
  uint8_t tripped = 0;                      // over-current bits that the drives have set
  board_drive mast = make_mast(kMastHome);  // encoder 1; with motor type 2 it is a pan drive without stops
  bool turns_freely = false;                // whether it is that now
  frame_mode mode = frame_mode::good;
  // While set, the bus takes a write or read of the wrong length for a violation. A running unit,
  // whose diagnostic requests can send such things, starts with it off.
  bool strict = true;
  bool power_cut = false;  // bit 0 of register 0 was written; never cleared
  double power_cut_time_s = 0;
  double time_s = 0;  // all the time that passed
  board_counts counts;
  std::deque<register_write> log;  // the last kMaxLoggedWrites writes, oldest first
  uint32_t noise = 0x2545F491;     // state of the generator

  double laser_noise = 0;                                  // m to either side of the true distance
  double laser_invalid = 0;                                // share of the samples that read 0
  double laser_sample_noise = 0, laser_sample_chance = 0;  // drawn with each sample: -1 to 1, 0 to 1
  double battery_ohms = 0;   // inner resistance: with the load on it the input volts sag; 0: nothing is added
  double battery_drain = 0;  // V a minute
};

// Swaps bit 0 with bit 7, 1 with 6 and so on: the board's bytes as the controller's bus shows them, and back.
uint8_t mirror_bits(uint8_t byte);

// Data bytes that a write to the register carries, or -1 for a register that the board has not.
int register_length(uint8_t reg);

// Bytes of the frame that the read command asks for, or 0 for a command that the board does not know.
size_t frame_size(uint8_t read_command);

bool camera_powered(const board_model& board);
bool laser_powered(const board_model& board);
bool is_pan_drive(const board_model& board);

// The readings as the frame shows them: supplies that are off measure nothing, the laser errs, the battery
// sags.
board_readings shown_readings(const board_model& board);

// bit 0..7
void set_status_bit(board_model& board, int bit, bool on);

// Lets `seconds` (0 or more) pass: counts the times, moves the drives, takes laser samples, drains the
// battery.
void board_advance(board_model& board, double seconds);

// A whole register write, data not reversed; at most kMaxWriteData bytes are kept. A write of the wrong
// length is logged and changes no register.
void board_write(board_model& board, uint8_t reg, std::span<const uint8_t> data);

// The frame (not reversed, always good) that the read command asks for into the first frame_size() bytes of
// `frame`. Its bytes sum to 0 in 8 bits, except that a basic frame with status bit 0 clear comes from a board
// that has neither checksum nor revision nor build number: they are 0. Returns frame_size().
size_t build_frame(const board_model& board, uint8_t read_command,
                   std::span<uint8_t, kAdvancedFrameSize> frame);

// The answer to the read command as it appears on the wire, bits reversed and after `mode` has had its say;
// zeros behind the end of the frame and for an unknown command. Counts the read.
void board_answer(board_model& board, uint8_t read_command, std::span<uint8_t> wire);
