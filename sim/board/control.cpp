#include "sim/board/control.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <optional>
#include <vector>

#include "sim/board/format.h"

namespace {

using words = std::vector<std::string_view>;

struct command {
  std::string_view name;
  std::string_view usage;
  std::string (*run)(board_model& board, const words& arguments);
};

constexpr std::string_view kModeNames[] = {"good", "noise", "zeros", "badsum"};  // in the order of frame_mode
constexpr std::string_view kEncoderNames[] = {"good", "frozen", "slipping", "noisy"};  // of encoder_fault

// Numbers that are set and shown like readings; 0 at the start.
struct setting {
  std::string_view name;
  double board_model::*member;
  double maximum;
  std::string_view usage;
};

constexpr setting kSettings[] = {
    {"laser_noise", &board_model::laser_noise, 10, "m to either side of the distance"},
    {"laser_invalid", &board_model::laser_invalid, 1, "share of the samples that read 0"},
    {"battery_ohms", &board_model::battery_ohms, 10, "inner resistance: vin sags with the load"},
    {"battery_drain", &board_model::battery_drain, 1000, "V a minute that vin falls"},
};

constexpr char kOk[] = "ok\n";

words split(std::string_view line) {
  constexpr std::string_view kSpace = " \t\r\n";
  words found;
  for (size_t at = line.find_first_not_of(kSpace); at != line.npos; at = line.find_first_not_of(kSpace, at)) {
    const size_t end = std::min(line.find_first_of(kSpace, at), line.size());
    found.push_back(line.substr(at, end - at));
    at = end;
  }
  return found;
}

std::string error(std::string_view what, std::string_view about) {
  return "error: " + std::string(what) + " " + std::string(about) + "\n";
}

std::optional<double> number(std::string_view word) {
  double value = 0;
  const auto [end, code] = std::from_chars(word.data(), word.data() + word.size(), value);
  if (code != std::errc{} || end != word.data() + word.size() || !std::isfinite(value)) return std::nullopt;
  return value;
}

std::optional<bool> on_or_off(std::string_view word) {
  if (word == "on") return true;
  return word == "off" ? std::optional(false) : std::nullopt;
}

std::string status_command(board_model& board, const words& arguments) {
  const auto bit = arguments.size() == 2 ? number(arguments[0]) : std::nullopt;
  const auto on = arguments.size() == 2 ? on_or_off(arguments[1]) : std::nullopt;
  if (!bit || !on || *bit < 0 || *bit > 7 || *bit != std::floor(*bit)) return error("status", "0..7 on|off");
  set_status_bit(board, static_cast<int>(*bit), *on);
  return kOk;
}

std::string frame_command(board_model& board, const words& arguments) {
  const auto* mode = arguments.size() == 1
                         ? std::find(std::begin(kModeNames), std::end(kModeNames), arguments[0])
                         : std::end(kModeNames);
  if (mode == std::end(kModeNames)) return error("frame", "good|noise|zeros|badsum");
  board.mode = static_cast<frame_mode>(mode - std::begin(kModeNames));
  return kOk;
}

std::string strict_command(board_model& board, const words& arguments) {
  const auto on = arguments.size() == 1 ? on_or_off(arguments[0]) : std::nullopt;
  if (!on) return error("strict", "on|off");
  board.strict = *on;
  return kOk;
}

std::string defaults_command(board_model& board, const words&) {
  board.readings = board_readings{};
  board.status = kBoardExtended;
  board.mode = frame_mode::good;
  board.tilt = board_drive{};
  board.mast = make_mast(kMastHome);
  board.shown_0 = 0;
  board.shown_1 = kMastHome;
  for (const setting& one : kSettings) board.*one.member = 0;
  return kOk;
}

std::string zero_command(board_model& board, const words&) {
  for (const board_reading_field& field : board_readings_table()) board.readings.*field.member = 0;
  return kOk;
}

std::string show_drive(const char* name, const board_drive& drive) {
  const char* stop = drive.position >= drive.high_stop  ? "at the inner stop"
                     : drive.position <= drive.low_stop ? "at the outer stop"
                                                        : "at no stop";
  return format_text("%-10s position %.0f (%s)  count %.0f  speed %.0f  %.2f A  jam %s  encoder %s\n", name,
                     drive.position, stop, drive.count, drive.speed, drive.amps, drive.jammed ? "on" : "off",
                     kEncoderNames[static_cast<size_t>(drive.fault)].data());
}

std::string show_command(board_model& board, const words&) {
  std::string text;
  text +=
      format_text("registers  power 0x%02X (camera %s, laser %s%s)  led 0x%02X pwm %u\n", board.power_enable,
                  camera_powered(board) ? "on" : "off", laser_powered(board) ? "on" : "off",
                  board.power_cut ? ", power cut requested" : "", board.led_enable, board.led_pwm);
  text += format_text("motor      command 0x%02X pwm %d duration %u ms, %.1f s left\n", board.motor.command,
                      board.motor.pwm, board.motor.duration_ms, board.motor.run_left_s);
  text += format_text("status     0x%02X\nframe      %s\nstrict     %s\n", board.status,
                      kModeNames[static_cast<size_t>(board.mode)].data(), board.strict ? "on" : "off");
  text += format_text(
      "counts     reads %lu (unknown %lu)  writes %lu (unknown %lu, empty %lu)  odd lengths %lu\n",
      board.counts.reads, board.counts.unknown_reads, board.counts.writes, board.counts.unknown_writes,
      board.counts.empty_writes, board.counts.odd_lengths);
  text += format_text("time       %.3f s\n", board.time_s);
  text += show_drive(is_pan_drive(board) ? "pan" : "mast", board.mast);
  text += show_drive("tilt", board.tilt);
  const board_readings shown = shown_readings(board);
  text += format_text("measured   vin %.3f V %.3f A  laser %.3f m\n", shown.vin_volts, shown.vin_amps,
                      shown.laser_distance);
  for (const setting& one : kSettings)
    text += format_text("%-18s %.10g\n", one.name.data(), board.*one.member);
  for (const board_reading_field& field : board_readings_table()) {
    text += format_text("%-18s %.10g\n", field.name.data(), board.readings.*field.member);
  }
  return text;
}

// One line a write: seconds, register, data bytes in hexadecimal.
std::string log_command(board_model& board, const words&) {
  std::string text;
  for (const register_write& write : board.log) {
    text += format_text("%.3f %u", write.time_s, write.reg);
    for (size_t i = 0; i < write.size; ++i) text += format_text(" %02x", write.data[i]);
    text += "\n";
  }
  return text.empty() ? "no writes\n" : text;
}

std::string help_command(board_model& board, const words&);

// "tilt" before the last word chooses the tilt drive.
board_drive* chosen_drive(board_model& board, const words& arguments) {
  if (arguments.size() == 1) return &board.mast;
  return arguments.size() == 2 && arguments[0] == "tilt" ? &board.tilt : nullptr;
}

std::string jam_command(board_model& board, const words& arguments) {
  board_drive* drive = chosen_drive(board, arguments);
  const auto on = drive != nullptr ? on_or_off(arguments.back()) : std::nullopt;
  if (!on) return error("jam", "[tilt] on|off");
  drive->jammed = *on;
  return kOk;
}

std::string encoder_command(board_model& board, const words& arguments) {
  board_drive* drive = chosen_drive(board, arguments);
  const auto* fault = drive != nullptr
                          ? std::find(std::begin(kEncoderNames), std::end(kEncoderNames), arguments.back())
                          : std::end(kEncoderNames);
  if (fault == std::end(kEncoderNames)) return error("encoder", "[tilt] good|frozen|slipping|noisy");
  drive->fault = static_cast<encoder_fault>(fault - std::begin(kEncoderNames));
  return kOk;
}

constexpr command kCommands[] = {
    {"help", "", help_command},
    {"show", "everything that is set, written and counted", show_command},
    {"log", "the last register writes: time in s, register, data", log_command},
    {"status", "BIT on|off", status_command},
    {"jam", "[tilt] on|off  of the mast or pan drive, or of the tilt drive", jam_command},
    {"encoder", "[tilt] good|frozen|slipping|noisy  of the same drive", encoder_command},
    {"frame", "good|noise|zeros|badsum", frame_command},
    {"strict", "on|off  wrong lengths, as diagnostic requests can send them, are violations", strict_command},
    {"defaults", "readings, drives, laser, battery, status and frame as at the start", defaults_command},
    {"zero", "all readings 0", zero_command},
};

std::string help_command(board_model&, const words&) {
  std::string text;
  for (const command& one : kCommands) text += format_text("%-10s %s\n", one.name.data(), one.usage.data());
  text += "NAME [VALUE], shows or sets one of these; gyro, accel and mag take three values.\n";
  text += "encoder_0 and encoder_1 put the tilt drive and the mast at that count.\n";
  for (const setting& one : kSettings) {
    text += format_text("  %-18s 0..%g  %s\n", one.name.data(), one.maximum, one.usage.data());
  }
  for (const board_reading_field& field : board_readings_table()) {
    text +=
        format_text("  %-18s %.10g..%.10g\n", field.name.data(), field_minimum(field), field_maximum(field));
  }
  return text;
}

// A reading of the table, or the three that start with NAME_x.
std::span<const board_reading_field> readings_named(std::string_view name) {
  if (const auto* one = find_reading(name)) return {one, 1};
  if (const auto* first = find_reading(std::string(name) + "_x")) return {first, 3};
  return {};
}

std::string set_readings(board_model& board, std::span<const board_reading_field> fields,
                         const words& arguments) {
  if (arguments.size() != fields.size()) return error("wrong number of values for", fields[0].name);
  std::vector<double> values;
  for (size_t i = 0; i < fields.size(); ++i) {
    const auto value = number(arguments[i]);
    if (!value || *value < field_minimum(fields[i]) || *value > field_maximum(fields[i])) {
      std::string about(arguments[i]);
      about += format_text(", %.10g..%.10g expected", field_minimum(fields[i]), field_maximum(fields[i]));
      return error(fields[i].name, about);
    }
    values.push_back(*value);
  }
  for (size_t i = 0; i < fields.size(); ++i) board.readings.*fields[i].member = values[i];
  return kOk;
}

std::string setting_command(board_model& board, const setting& one, const words& arguments) {
  if (arguments.empty()) return format_text("%.10g\n", board.*one.member);
  const auto value = arguments.size() == 1 ? number(arguments[0]) : std::nullopt;
  if (!value || *value < 0 || *value > one.maximum) return error(one.name, format_text("0..%g", one.maximum));
  board.*one.member = *value;
  return kOk;
}

}  // namespace

std::string board_command(board_model& board, std::string_view line) {
  words arguments = split(line);
  if (arguments.empty()) return error("no command;", "try help");
  const std::string_view name = arguments.front();
  arguments.erase(arguments.begin());
  for (const command& one : kCommands) {
    if (one.name == name) return one.run(board, arguments);
  }
  for (const setting& one : kSettings) {
    if (one.name == name) return setting_command(board, one, arguments);
  }
  const auto fields = readings_named(name);
  if (fields.empty()) return error("unknown command", name);
  if (!arguments.empty()) return set_readings(board, fields, arguments);
  std::string text;
  for (const auto& field : fields) text += format_text("%.10g\n", board.readings.*field.member);
  return text;
}
