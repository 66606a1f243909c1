#include "sim/board/board_model.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <limits>

#include "sim/board/noise.h"

namespace {

using r = board_readings;

constexpr board_reading_field kReadings[] = {
    {"vin", &r::vin_volts, 87, 8, wire_type::u16, 0.001},
    {"vin_amps", &r::vin_amps, 89, -1, wire_type::i16, 0.001},
    {"camera_volts", &r::camera_volts, 93, -1, wire_type::u16, 0.001},
    {"camera_amps", &r::camera_amps, 95, -1, wire_type::i16, 0.001},
    {"motor_volts", &r::motor_volts, 99, -1, wire_type::u16, 0.001},
    {"motor_amps", &r::motor_amps, 101, -1, wire_type::i16, 0.001},
    {"pressure", &r::pressure, 12, -1, wire_type::u32, 1},
    {"humidity", &r::humidity, 16, -1, wire_type::u16, 0.01},
    {"temp", &r::temperature, 18, 10, wire_type::i16, 0.01},
    {"imu_temp", &r::imu_temperature, 38, -1, wire_type::i16, 0.01},
    {"gyro_x", &r::gyro_x, 20, -1, wire_type::i16, 0.01},
    {"gyro_y", &r::gyro_y, 22, -1, wire_type::i16, 0.01},
    {"gyro_z", &r::gyro_z, 24, -1, wire_type::i16, 0.01},
    {"accel_x", &r::accel_x, 26, -1, wire_type::i16, 0.001},
    {"accel_y", &r::accel_y, 28, -1, wire_type::i16, 0.001},
    {"accel_z", &r::accel_z, 30, -1, wire_type::i16, 0.001},
    {"mag_x", &r::mag_x, 32, -1, wire_type::i16, 1},
    {"mag_y", &r::mag_y, 34, -1, wire_type::i16, 1},
    {"mag_z", &r::mag_z, 36, -1, wire_type::i16, 1},
    {"encoder_0", &r::encoder_0, 105, -1, wire_type::i32, 1},
    {"encoder_1", &r::encoder_1, 109, -1, wire_type::i32, 1},
    {"encoder_speed_0", &r::encoder_speed_0, 113, -1, wire_type::i16, 1},
    {"encoder_speed_1", &r::encoder_speed_1, 115, -1, wire_type::i16, 1},
    {"laser", &r::laser_distance, 117, -1, wire_type::u32, 0.001},
    {"laser_quality", &r::laser_quality, 121, -1, wire_type::u16, 1},
    {"laser_error", &r::laser_error, 123, -1, wire_type::u16, 1},
    {"laser_serial", &r::laser_serial, 133, -1, wire_type::u32, 1},
    {"laser_software", &r::laser_software, 137, -1, wire_type::u16, 1},
    {"laser_hardware", &r::laser_hardware, 139, -1, wire_type::u16, 1},
    {"laser_samples", &r::laser_samples, 125, -1, wire_type::u8, 1},
    {"imu_samples", &r::imu_samples, 40, -1, wire_type::u8, 1},
    {"motor_type", &r::motor_type, 126, -1, wire_type::u8, 1},
    {"board_revision", &r::board_revision, 129, 58, wire_type::u8, 1},
    {"build_number", &r::build_number, 131, 60, wire_type::u16, 1},
    {"status_period", &r::status_period, 41, -1, wire_type::u16, 1},
    {"local_time", &r::local_time, 8, -1, wire_type::u32, 1},
    {"board_time", &r::board_time, 43, -1, wire_type::u32, 1},
    {"up_time", &r::up_time, 47, -1, wire_type::u32, 1},
    {"motor_time", &r::motor_time, 51, -1, wire_type::u32, 1},
    {"camera_time", &r::camera_time, 55, -1, wire_type::u32, 1},
    {"laser_time", &r::laser_time, 59, -1, wire_type::u32, 1},
    {"led_time", &r::led_time, 63, -1, wire_type::u32, 1},
    {"over_temperature", &r::over_temperature_events, 67, -1, wire_type::u32, 1},
    {"under_temperature", &r::under_temperature_events, 71, -1, wire_type::u32, 1},
    {"over_voltage", &r::over_voltage_events, 75, -1, wire_type::u32, 1},
    {"under_voltage", &r::under_voltage_events, 79, -1, wire_type::u32, 1},
    {"power_on", &r::power_on_events, 83, -1, wire_type::u32, 1},
};

// The powers (V x A, in W) have no reading of their own.
constexpr board_reading_field kVinPower{"", nullptr, 91, -1, wire_type::i16, 0.001};
constexpr board_reading_field kCameraPower{"", nullptr, 97, -1, wire_type::i16, 0.001};
constexpr board_reading_field kMotorPower{"", nullptr, 103, -1, wire_type::i16, 0.001};

constexpr size_t kAdvancedChecksum = 127;  // a u16 of which the upper byte stays 0
constexpr size_t kBasicChecksum = 62;
constexpr int kBasicIdentity = 58;  // revision, build number and checksum: extended boards only

constexpr double kImuSamplesPerSecond = 50;
constexpr double kLaserSamplesPerSecond = 4;
constexpr double kTiltCountsPerRadian = 30'000;

constexpr double kLedAmps = 2.0;  // all lines at full intensity
constexpr double kLaserAmps = 0.15;

struct wire_range {
  size_t size;
  double minimum, maximum;
};

template <class T>
constexpr wire_range range_of() {
  return {sizeof(T), static_cast<double>(std::numeric_limits<T>::min()),
          static_cast<double>(std::numeric_limits<T>::max())};
}

wire_range range(wire_type type) {
  switch (type) {
    case wire_type::u8:
      return range_of<uint8_t>();
    case wire_type::u16:
      return range_of<uint16_t>();
    case wire_type::i16:
      return range_of<int16_t>();
    case wire_type::u32:
      return range_of<uint32_t>();
    case wire_type::i32:
      break;
  }
  return range_of<int32_t>();
}

void put(std::span<uint8_t> frame, int at, const board_reading_field& field, double value) {
  const wire_range limits = range(field.type);
  const double raw = std::clamp(std::round(value / field.scale), limits.minimum, limits.maximum);
  const auto bits = static_cast<uint32_t>(static_cast<int64_t>(raw));
  for (size_t i = 0; i < limits.size; ++i) {
    frame[static_cast<size_t>(at) + i] = static_cast<uint8_t>(bits >> (8 * i));
  }
}

void put_registers(const board_model& board, std::span<uint8_t> frame) {
  frame[0] = board.power_enable;
  frame[1] = board.led_enable;
  frame[2] = board.led_pwm;
  frame[7] = board.status;
}

double led_amps(const board_model& board) {
  return kLedAmps * std::popcount(board.led_enable) / 8 * board.led_pwm / 100;
}

}  // namespace

board_readings shown_readings(const board_model& board) {
  board_readings shown = board.readings;
  if (!camera_powered(board)) shown.camera_volts = shown.camera_amps = 0;
  shown.laser_distance = std::max(0.0, shown.laser_distance + board.laser_noise * board.laser_sample_noise);
  if (!laser_powered(board) || board.laser_sample_chance < board.laser_invalid) shown.laser_distance = 0;
  if (board.battery_ohms > 0) {
    shown.vin_amps +=
        shown.camera_amps + shown.motor_amps + led_amps(board) + (laser_powered(board) ? kLaserAmps : 0);
    shown.vin_volts -= shown.vin_amps * board.battery_ohms;
  }
  return shown;
}

namespace {

uint8_t sum_of(std::span<const uint8_t> bytes) {
  uint8_t sum = 0;
  for (const uint8_t byte : bytes) sum = static_cast<uint8_t>(sum + byte);
  return sum;
}

void build_advanced(const board_model& board, std::span<uint8_t> frame) {
  const board_readings shown = shown_readings(board);
  put_registers(board, frame);
  frame[3] = static_cast<uint8_t>(board.motor.pwm);
  frame[4] = static_cast<uint8_t>(board.motor.duration_ms);
  frame[5] = static_cast<uint8_t>(board.motor.duration_ms >> 8);
  frame[6] = board.motor.command;
  for (const board_reading_field& field : kReadings) put(frame, field.at, field, shown.*field.member);
  put(frame, kVinPower.at, kVinPower, shown.vin_volts * shown.vin_amps);
  put(frame, kCameraPower.at, kCameraPower, shown.camera_volts * shown.camera_amps);
  put(frame, kMotorPower.at, kMotorPower, shown.motor_volts * shown.motor_amps);
  frame[kAdvancedChecksum] = static_cast<uint8_t>(-sum_of(frame));
}

void build_basic(const board_model& board, std::span<uint8_t> frame) {
  const bool extended = (board.status & kBoardExtended) != 0;
  const board_readings shown = shown_readings(board);
  put_registers(board, frame);
  for (const board_reading_field& field : kReadings) {
    const bool there = field.basic_at >= 0 && (extended || field.basic_at < kBasicIdentity);
    if (there) put(frame, field.basic_at, field, shown.*field.member);
  }
  if (extended) frame[kBasicChecksum] = static_cast<uint8_t>(-sum_of(frame));
}

void make_noise(board_model& board, std::span<uint8_t> frame) {
  for (uint8_t& byte : frame) byte = static_cast<uint8_t>(next_random(board.noise) >> 24);
  if (sum_of(frame) == 0) ++frame.back();
}

void spoil(board_model& board, uint8_t read_command, std::span<uint8_t> frame) {
  switch (board.mode) {
    case frame_mode::good:
      return;
    case frame_mode::noise:
      return make_noise(board, frame);
    case frame_mode::zeros:
      return std::fill(frame.begin(), frame.end(), uint8_t{0});
    case frame_mode::bad_checksum:
      ++frame[read_command == kReadAdvanced ? kAdvancedChecksum : kBasicChecksum];
  }
}

void log_write(board_model& board, uint8_t reg, std::span<const uint8_t> data) {
  register_write write{board.time_s, reg, static_cast<uint8_t>(data.size()), {}};
  std::copy(data.begin(), data.end(), write.data.begin());
  board.log.push_back(write);
  if (board.log.size() > kMaxLoggedWrites) board.log.pop_front();
}

void write_power(board_model& board, uint8_t mask) {
  board.power_enable = mask;
  if ((mask & kBoardPowerCut) != 0 && !board.power_cut) {
    board.power_cut = true;
    board.power_cut_time_s = board.time_s;
  }
}

void apply_write(board_model& board, uint8_t reg, std::span<const uint8_t> data) {
  switch (reg) {
    case 0:
      return write_power(board, data[0]);
    case 1:
      board.led_enable = data[0];
      board.led_pwm = data[1];
      return;
    case 3:
      return motor_set_speed(board.motor, static_cast<int8_t>(data[0]),
                             static_cast<uint16_t>(data[1] | data[2] << 8));
    case 6:
      return motor_run(board.motor, data[0]);
    default:
      return;
  }
}

}  // namespace

std::span<const board_reading_field> board_readings_table() { return kReadings; }

double field_minimum(const board_reading_field& field) { return range(field.type).minimum * field.scale; }

double field_maximum(const board_reading_field& field) { return range(field.type).maximum * field.scale; }

const board_reading_field* find_reading(std::string_view name) {
  const auto* found = std::find_if(std::begin(kReadings), std::end(kReadings),
                                   [name](const board_reading_field& field) { return field.name == name; });
  return found == std::end(kReadings) ? nullptr : found;
}

uint8_t mirror_bits(uint8_t byte) {
  unsigned bits = byte;
  bits = (bits & 0x0F) << 4 | bits >> 4;
  bits = (bits & 0x33) << 2 | (bits & 0xCC) >> 2;
  bits = (bits & 0x55) << 1 | (bits & 0xAA) >> 1;
  return static_cast<uint8_t>(bits);
}

int register_length(uint8_t reg) {
  switch (reg) {
    case 0:
      return 1;
    case 1:
      return 2;
    case 3:
      return 3;
    case 6:
      return 1;
    default:
      return -1;
  }
}

size_t frame_size(uint8_t read_command) {
  if (read_command == kReadAdvanced) return kAdvancedFrameSize;
  return read_command == kReadBasic ? kBasicFrameSize : 0;
}

bool camera_powered(const board_model& board) { return (board.power_enable & kBoardPowerCamera) != 0; }

bool laser_powered(const board_model& board) { return (board.power_enable & kBoardPowerLaser) != 0; }

bool is_pan_drive(const board_model& board) { return board.readings.motor_type == kBoardMotorTypePan; }

void set_status_bit(board_model& board, int bit, bool on) {
  const auto mask = static_cast<uint8_t>(1U << (bit & 7));
  board.status = static_cast<uint8_t>(on ? board.status | mask : board.status & ~mask);
}

namespace {

// A reading that was set from outside moves the drive there.
void adopt_count(board_drive& drive, double reading, double shown) {
  if (reading == shown) return;
  drive.count = reading;
  drive.position = std::clamp(reading, drive.low_stop, drive.high_stop);
}

void advance_drive(board_model& board, board_drive& drive, uint8_t command, double seconds) {
  const bool runs = board.motor.command == command && motor_running(board.motor);
  const double powered = runs ? std::min(seconds, board.motor.run_left_s) : 0;
  drive_advance(drive, board.motor.pwm, powered);
  const bool overcurrent = drive.overcurrent;
  const double amps = drive.amps;
  if (powered < seconds) drive_advance(drive, 0, seconds - powered);
  if (runs && powered == seconds) {
    drive.overcurrent = overcurrent;
    drive.amps = amps;
  }
}

// The connector takes a mast or a pan drive, which turns without stops.
void change_drive(board_model& board) {
  const bool pan = is_pan_drive(board);
  if (pan == board.turns_freely) return;
  board.turns_freely = pan;
  const board_drive other = pan ? board_drive{} : make_mast(kMastHome);
  board.mast.low_stop = other.low_stop;
  board.mast.high_stop = other.high_stop;
}

void take_laser_samples(board_model& board, double seconds) {
  double& samples = board.readings.laser_samples;
  const double before = std::floor(samples);
  samples += seconds * kLaserSamplesPerSecond;
  if (std::floor(samples) > before) {
    board.laser_sample_noise = next_noise(board.noise);
    board.laser_sample_chance = next_share(board.noise);
  }
  samples = std::fmod(samples, 256);
}

void trip(board_model& board, uint8_t bit, bool on) {
  if (on == ((board.tripped & bit) != 0)) return;
  board.tripped = static_cast<uint8_t>(board.tripped ^ bit);
  board.status = static_cast<uint8_t>(on ? board.status | bit : board.status & ~bit);
}

// The head turns about its axis 1, and what it measures of gravity turns with it: outward counts lower it.
void tilt_head(board_readings& now, double counts) {
  if (counts == 0) return;
  const double angle = -counts / kTiltCountsPerRadian;
  const double vertical = now.accel_x;
  now.accel_x = vertical * std::cos(angle) - now.accel_z * std::sin(angle);
  now.accel_z = vertical * std::sin(angle) + now.accel_z * std::cos(angle);
}

void advance_drives(board_model& board, double seconds) {
  board_readings& now = board.readings;
  change_drive(board);
  adopt_count(board.tilt, now.encoder_0, board.shown_0);
  const double tilt_before = board.tilt.position;
  adopt_count(board.mast, now.encoder_1, board.shown_1);
  const bool ran = board.motor_ran;
  board.motor_ran = motor_running(board.motor);
  advance_drive(board, board.tilt, kBoardMotorTilt, seconds);
  advance_drive(board, board.mast, kBoardMotorDrive, seconds);
  tilt_head(now, board.tilt.position - tilt_before);
  now.encoder_0 = board.shown_0 = drive_count(board.tilt);
  now.encoder_1 = board.shown_1 = drive_count(board.mast);
  now.encoder_speed_0 = board.tilt.speed;
  now.encoder_speed_1 = board.mast.speed;
  if (board.motor_ran || ran) now.motor_amps = board.tilt.amps + board.mast.amps;
  trip(board, kBoardTiltOvercurrent, board.tilt.overcurrent);
  trip(board, kBoardDriveOvercurrent, board.mast.overcurrent);
}

}  // namespace

void board_advance(board_model& board, double seconds) {
  board_readings& now = board.readings;
  board.time_s += seconds;
  now.local_time += seconds * 1000;
  now.board_time += seconds;
  now.up_time += seconds;
  now.motor_time += std::min(seconds, motor_running(board.motor) ? board.motor.run_left_s : 0.0);
  if (camera_powered(board)) now.camera_time += seconds;
  if (board.led_enable != 0 && board.led_pwm != 0) now.led_time += seconds;
  now.vin_volts = std::max(0.0, now.vin_volts - board.battery_drain * seconds / 60);
  now.imu_samples = std::fmod(now.imu_samples + seconds * kImuSamplesPerSecond, 256);
  if (laser_powered(board)) {
    now.laser_time += seconds;
    take_laser_samples(board, seconds);
  }
  advance_drives(board, seconds);
  motor_advance(board.motor, seconds);
}

void board_write(board_model& board, uint8_t reg, std::span<const uint8_t> data) {
  data = data.first(std::min(data.size(), kMaxWriteData));
  const int expected = register_length(reg);
  ++board.counts.writes;
  log_write(board, reg, data);
  if (expected < 0) {
    ++board.counts.unknown_writes;
  } else if (data.empty()) {
    ++board.counts.empty_writes;
  } else if (data.size() != static_cast<size_t>(expected)) {
    ++board.counts.odd_lengths;
  } else {
    apply_write(board, reg, data);
  }
}

size_t build_frame(const board_model& board, uint8_t read_command,
                   std::span<uint8_t, kAdvancedFrameSize> frame) {
  const std::span<uint8_t> used = frame.first(frame_size(read_command));
  std::fill(used.begin(), used.end(), uint8_t{0});
  if (read_command == kReadAdvanced) build_advanced(board, used);
  if (read_command == kReadBasic) build_basic(board, used);
  return used.size();
}

void board_answer(board_model& board, uint8_t read_command, std::span<uint8_t> wire) {
  std::array<uint8_t, kAdvancedFrameSize> frame{};
  const size_t size = build_frame(board, read_command, frame);
  if (size > 0) {
    spoil(board, read_command, std::span(frame).first(size));
    ++board.counts.reads;
  } else {
    ++board.counts.unknown_reads;
  }
  for (size_t i = 0; i < wire.size(); ++i) wire[i] = i < size ? mirror_bits(frame[i]) : uint8_t{0};
}
