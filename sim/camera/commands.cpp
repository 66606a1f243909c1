#include "sim/camera/commands.h"

#include <algorithm>
#include <cstddef>
#include <string_view>

namespace sim_camera {

using action = command_outcome (*)(block_model&, const parsed_command&);
using condition = bool (*)(const block_model&);

// `pattern` holds two characters a byte: upper-case hexadecimal digits stand for themselves, a lower-case
// letter takes a nibble and appends it to the value of that letter.
struct command_row {
  std::string_view pattern;
  action act;
  int subject = 0;          // axis, mode, level or title command, as the action takes it
  int value = 0;            // direction, level step, on or off
  std::string_view word{};  // the mode's new value
  condition allowed = nullptr;
};

namespace {

constexpr command_outcome kDone{};
constexpr command_outcome kBadValue{kSyntaxError, 0};
constexpr unsigned kAllTitles = 0x0F;  // line number that means every line

unsigned value_of(const parsed_command& c, char letter) {
  return c.values[static_cast<size_t>(letter - 'a')];
}
axis_id axis_of(const parsed_command& c) { return static_cast<axis_id>(c.row->subject); }
constexpr unsigned axis_bit(axis_id id) { return 1U << id; }

// A drive, a stop or a jump takes the axis away from the direct moves under way: they complete.
void release_axis(block_model& block, axis_id id) {
  for (command_socket& socket : block.sockets) socket.waits_for &= ~axis_bit(id);
}

bool manual_focus(const block_model& b) { return !b.lens.auto_focus; }
bool separate_zoom(const block_model& b) { return b.lens.digital_on && !b.lens.combined; }
bool manual_white_balance(const block_model& b) { return b.settings.modes[kWhiteBalance] == "manual"; }
bool exposure_is(const block_model& b, std::string_view priority) {
  const std::string_view mode = b.settings.modes[kExposure];
  return mode == "manual" || mode == priority;
}
bool manual_gain(const block_model& b) { return exposure_is(b, ""); }
bool manual_iris(const block_model& b) { return exposure_is(b, "iris"); }
bool manual_shutter(const block_model& b) { return exposure_is(b, "shutter"); }

command_outcome stop(block_model& block, const parsed_command& c) {
  release_axis(block, axis_of(c));
  lens_stop(block.lens, axis_of(c));
  return kDone;
}

command_outcome drive(block_model& block, const parsed_command& c) {
  release_axis(block, axis_of(c));
  lens_drive(block.lens, axis_of(c), c.row->value, kFixedSpeed);
  return kDone;
}

command_outcome drive_at_speed(block_model& block, const parsed_command& c) {
  const unsigned speed = value_of(c, 'p');
  if (speed > kTopSpeed) return kBadValue;
  release_axis(block, axis_of(c));
  lens_drive(block.lens, axis_of(c), c.row->value, static_cast<int>(speed));
  return kDone;
}

bool axis_accepts(axis_id id, int position) {
  if (id == kFocus) return position >= kFocusFar && position <= kFocusNear;
  return position <= (id == kZoom ? kCombinedEnd : kDigitalEnd);
}

command_outcome move_to(block_model& block, const parsed_command& c) {
  const int counts = c.row->value;  // of the axis, to one step of the value
  const int position = static_cast<int>(value_of(c, 'p')) * counts;
  if (!axis_accepts(axis_of(c), position)) return kBadValue;
  lens_move_to(block.lens, axis_of(c), position);
  return {kNoError, axis_bit(axis_of(c))};
}

command_outcome move_zoom_and_focus(block_model& block, const parsed_command& c) {
  const int zoom = static_cast<int>(value_of(c, 'p'));
  const int focus = static_cast<int>(value_of(c, 'q'));
  if (!axis_accepts(kZoom, zoom) || !axis_accepts(kFocus, focus)) return kBadValue;
  lens_move_to(block.lens, kZoom, zoom);
  lens_move_to(block.lens, kFocus, focus);
  return {kNoError, axis_bit(kZoom) | axis_bit(kFocus)};
}

command_outcome focus_once(block_model& block, const parsed_command&) {
  lens_move_to(block.lens, kFocus, lens_auto_focus_position(block.lens));
  return {kNoError, axis_bit(kFocus)};
}

command_outcome set_near_limit(block_model& block, const parsed_command& c) {
  const int position = static_cast<int>(value_of(c, 'p'));
  if (!axis_accepts(kFocus, position)) return kBadValue;
  block.lens.near_limit = position;
  return kDone;
}

command_outcome set_auto_focus(block_model& block, const parsed_command& c) {
  release_axis(block, kFocus);
  lens_stop(block.lens, kFocus);
  block.lens.auto_focus = c.row->value != 0;
  return kDone;
}

command_outcome set_digital_zoom(block_model& block, const parsed_command& c) {
  lens_set_digital(block.lens, c.row->value != 0);
  block.zoom_report.wanted = true;
  return kDone;
}

command_outcome set_combined_zoom(block_model& block, const parsed_command& c) {
  release_axis(block, kZoom);
  release_axis(block, kDigital);
  lens_set_combined(block.lens, c.row->value != 0);
  block.zoom_report.wanted = true;
  return kDone;
}

command_outcome initialize_lens(block_model& block, const parsed_command&) {
  lens_move_to(block.lens, kZoom, 0);
  lens_move_to(block.lens, kDigital, 0);
  return {kNoError, axis_bit(kZoom) | axis_bit(kDigital)};
}

command_outcome initialize_camera(block_model& block, const parsed_command&) {
  block.settings = camera_settings{};
  return kDone;
}

command_outcome set_mode(block_model& block, const parsed_command& c) {
  block.settings.modes[static_cast<size_t>(c.row->subject)] = c.row->word;
  return kDone;
}

command_outcome reset_level(block_model& block, const parsed_command& c) {
  const auto level = static_cast<size_t>(c.row->subject);
  block.settings.levels[level] = kLevelRanges[level].start;
  return kDone;
}

command_outcome step_level(block_model& block, const parsed_command& c) {
  const auto level = static_cast<size_t>(c.row->subject);
  int& value = block.settings.levels[level];
  value = std::clamp(value + c.row->value, 0, kLevelRanges[level].top);
  return kDone;
}

command_outcome set_level(block_model& block, const parsed_command& c) {
  const auto level = static_cast<size_t>(c.row->subject);
  const int value = static_cast<int>(value_of(c, 'p'));
  if (value > kLevelRanges[level].top) return kBadValue;
  block.settings.levels[level] = value;
  return kDone;
}

command_outcome nothing_to_do(block_model&, const parsed_command&) { return kDone; }

command_outcome set_power(block_model& block, const parsed_command& c) {
  block.power = c.row->value != 0;
  for (const axis_id id : {kZoom, kDigital, kFocus}) {
    release_axis(block, id);
    lens_stop(block.lens, id);
  }
  return kDone;
}

command_outcome report_zoom(block_model& block, const parsed_command& c) {
  block.zoom_report.on = block.zoom_report.wanted = c.row->value != 0;
  return kDone;
}

command_outcome report_focus(block_model& block, const parsed_command& c) {
  block.focus_report.on = block.focus_report.wanted = c.row->value != 0;
  return kDone;
}

command_outcome place_title(block_model& block, const parsed_command& c) {
  const unsigned column = value_of(c, 'h');
  const unsigned colour = value_of(c, 'c');
  const unsigned blink = value_of(c, 'b');
  if (value_of(c, 'l') >= kTitleLines || column >= kTitleColumns || colour >= std::size(kTitleColours) ||
      blink > 1) {
    return kBadValue;
  }
  title_line& line = block.titles[value_of(c, 'l')];
  line.h_position = static_cast<int>(column);
  line.colour = static_cast<int>(colour);
  line.blink = blink != 0;
  return kDone;
}

command_outcome write_title(block_model& block, const parsed_command& c) {
  if (value_of(c, 'l') >= kTitleLines) return kBadValue;
  title_write(block.titles[value_of(c, 'l')], c.row->value, c.body.subspan(2));
  return kDone;
}

enum title_order { kClear, kShow, kHide };

command_outcome order_titles(block_model& block, const parsed_command& c) {
  const unsigned wanted = value_of(c, 'l');
  if (wanted >= kTitleLines && wanted != kAllTitles) return kBadValue;
  for (unsigned i = 0; i < kTitleLines; ++i) {
    if (wanted != i && wanted != kAllTitles) continue;
    if (c.row->value == kClear) block.titles[i] = title_line{};
    block.titles[i].shown = c.row->value == kShow;
  }
  return kDone;
}

constexpr command_row kCommands[] = {
    {"00 02", set_power, 0, 1},
    {"00 03", set_power, 0, 0},
    {"07 00", stop, kZoom},
    {"07 02", drive, kZoom, 1},
    {"07 03", drive, kZoom, -1},
    {"07 2p", drive_at_speed, kZoom, 1},
    {"07 3p", drive_at_speed, kZoom, -1},
    {"47 0p 0p 0p 0p", move_to, kZoom, 1},
    {"47 0p 0p 0p 0p 0q 0q 0q 0q", move_zoom_and_focus, 0, 0, "", manual_focus},
    {"06 00", stop, kDigital},
    {"06 02", set_digital_zoom, 0, 1},
    {"06 03", set_digital_zoom, 0, 0},
    {"06 2p", drive_at_speed, kDigital, 1, "", separate_zoom},
    {"06 3p", drive_at_speed, kDigital, -1, "", separate_zoom},
    {"46 00 00 0p 0p", move_to, kDigital, kDigitalStep, "", separate_zoom},
    {"36 00", set_combined_zoom, 0, 1},
    {"36 01", set_combined_zoom, 0, 0},
    {"08 00", stop, kFocus},
    {"08 02", drive, kFocus, -1, "", manual_focus},
    {"08 03", drive, kFocus, 1, "", manual_focus},
    {"08 2p", drive_at_speed, kFocus, -1, "", manual_focus},
    {"08 3p", drive_at_speed, kFocus, 1, "", manual_focus},
    {"48 0p 0p 0p 0p", move_to, kFocus, 1, "", manual_focus},
    {"38 02", set_auto_focus, 0, 1},
    {"38 03", set_auto_focus, 0, 0},
    {"18 01", focus_once},
    {"18 03", focus_once},
    {"28 0p 0p 0p 0p", set_near_limit},
    {"58 02", set_mode, kAutoFocusSensitivity, 0, "normal"},
    {"58 03", set_mode, kAutoFocusSensitivity, 0, "low"},
    {"57 00", set_mode, kAutoFocusMode, 0, "normal"},
    {"57 01", set_mode, kAutoFocusMode, 0, "interval"},
    {"57 02", set_mode, kAutoFocusMode, 0, "zoom_trigger"},
    {"11 00", set_mode, kIrCorrection, 0, "standard"},
    {"11 01", set_mode, kIrCorrection, 0, "ir_light"},
    {"19 01", initialize_lens},
    {"19 03", initialize_camera},
    {"35 00", set_mode, kWhiteBalance, 0, "auto"},
    {"35 01", set_mode, kWhiteBalance, 0, "indoor"},
    {"35 02", set_mode, kWhiteBalance, 0, "outdoor"},
    {"35 03", set_mode, kWhiteBalance, 0, "one_push"},
    {"35 04", set_mode, kWhiteBalance, 0, "auto_tracing"},
    {"35 05", set_mode, kWhiteBalance, 0, "manual"},
    {"35 06", set_mode, kWhiteBalance, 0, "outdoor_auto"},
    {"35 07", set_mode, kWhiteBalance, 0, "sodium_lamp_auto"},
    {"35 08", set_mode, kWhiteBalance, 0, "sodium_lamp"},
    {"35 09", set_mode, kWhiteBalance, 0, "sodium_lamp_outdoor_auto"},
    {"10 05", nothing_to_do},  // one push trigger
    {"03 00", reset_level, kRedGain, 0, "", manual_white_balance},
    {"03 02", step_level, kRedGain, 1, "", manual_white_balance},
    {"03 03", step_level, kRedGain, -1, "", manual_white_balance},
    {"43 00 00 0p 0p", set_level, kRedGain, 0, "", manual_white_balance},
    {"04 00", reset_level, kBlueGain, 0, "", manual_white_balance},
    {"04 02", step_level, kBlueGain, 1, "", manual_white_balance},
    {"04 03", step_level, kBlueGain, -1, "", manual_white_balance},
    {"44 00 00 0p 0p", set_level, kBlueGain, 0, "", manual_white_balance},
    {"0C 00", reset_level, kGain, 0, "", manual_gain},
    {"0C 02", step_level, kGain, 1, "", manual_gain},
    {"0C 03", step_level, kGain, -1, "", manual_gain},
    {"4C 00 00 0p 0p", set_level, kGain, 0, "", manual_gain},
    {"0B 00", reset_level, kIris, 0, "", manual_iris},
    {"0B 02", step_level, kIris, 1, "", manual_iris},
    {"0B 03", step_level, kIris, -1, "", manual_iris},
    {"4B 00 00 0p 0p", set_level, kIris, 0, "", manual_iris},
    {"0A 00", reset_level, kShutter, 0, "", manual_shutter},
    {"0A 02", step_level, kShutter, 1, "", manual_shutter},
    {"0A 03", step_level, kShutter, -1, "", manual_shutter},
    {"4A 00 00 0p 0p", set_level, kShutter, 0, "", manual_shutter},
    {"69 02", report_zoom, 0, 1},
    {"69 03", report_zoom, 0, 0},
    {"16 02", report_focus, 0, 1},
    {"16 03", report_focus, 0, 0},
    {"39 00", set_mode, kExposure, 0, "auto"},
    {"39 03", set_mode, kExposure, 0, "manual"},
    {"39 0A", set_mode, kExposure, 0, "shutter"},
    {"39 0B", set_mode, kExposure, 0, "iris"},
    {"66 02", set_mode, kFlip, 0, "on"},
    {"66 03", set_mode, kFlip, 0, "off"},
    {"34 02", set_mode, kStabilizer, 0, "on"},
    {"34 03", set_mode, kStabilizer, 0, "off"},
    {"5E 02", set_mode, kHighSensitivity, 0, "on"},
    {"5E 03", set_mode, kHighSensitivity, 0, "off"},
    {"01 02", set_mode, kIcr, 0, "on"},
    {"01 03", set_mode, kIcr, 0, "off"},
    {"51 02", set_mode, kAutoIcr, 0, "on"},
    {"51 03", set_mode, kAutoIcr, 0, "off"},
    {"37 03 00", reset_level, kDefog},
    {"37 02 0p", set_level, kDefog},
    {"73 1l 00 hh cc bb 00 00 00 00 00 00", place_title},
    {"73 2l xx xx xx xx xx xx xx xx xx xx", write_title, 0, 0},
    {"73 3l xx xx xx xx xx xx xx xx xx xx", write_title, 0, kTitleLength / 2},
    {"74 1l", order_titles, 0, kClear},
    {"74 2l", order_titles, 0, kShow},
    {"74 3l", order_titles, 0, kHide},
};

bool match_nibble(char symbol, unsigned nibble, parsed_command& into) {
  if (symbol >= 'a') {
    unsigned& value = into.values[static_cast<size_t>(symbol - 'a')];
    value = value << 4 | nibble;
    return true;
  }
  return nibble == static_cast<unsigned>(symbol <= '9' ? symbol - '0' : symbol - 'A' + 10);
}

bool match(std::string_view pattern, parsed_command& into) {
  if (into.body.size() * 3 != pattern.size() + 1) return false;
  into.values = {};
  for (size_t i = 0; i < into.body.size(); ++i) {
    const unsigned byte = into.body[i];
    if (!match_nibble(pattern[3 * i], byte >> 4, into)) return false;
    if (!match_nibble(pattern[3 * i + 1], byte & 0x0F, into)) return false;
  }
  return true;
}

packet version_answer(const block_model&) { return {0x00, 0x20, 0x04, 0x05, 0x01, 0x23, 0x02}; }
packet power_answer(const block_model& b) { return {static_cast<uint8_t>(b.power ? 0x02 : 0x03)}; }

packet axis_answer(const block_model& b, axis_id id) {
  const auto nibbles = position_nibbles(lens_position(b.lens, id));
  return {nibbles.begin(), nibbles.end()};
}
packet zoom_answer(const block_model& b) { return axis_answer(b, kZoom); }
packet focus_answer(const block_model& b) { return axis_answer(b, kFocus); }

struct inquiry_row {
  uint8_t category;
  uint8_t number;
  packet (*answer)(const block_model&);
};

constexpr inquiry_row kInquiries[] = {{0x00, 0x02, version_answer},
                                      {0x04, 0x00, power_answer},
                                      {0x04, 0x47, zoom_answer},
                                      {0x04, 0x48, focus_answer}};

}  // namespace

std::array<uint8_t, 4> position_nibbles(int position) {
  const auto nibble = [position](int shift) { return static_cast<uint8_t>(position >> shift & 0x0F); };
  return {nibble(12), nibble(8), nibble(4), nibble(0)};
}

parsed_command command_find(std::span<const uint8_t> body) {
  parsed_command command;
  command.body = body;
  for (const command_row& row : kCommands) {
    if (!match(row.pattern, command)) continue;
    command.row = &row;
    return command;
  }
  return command;
}

bool command_allowed(const block_model& block, const parsed_command& command) {
  const bool wakes = command.row->act == set_power && command.row->value != 0;
  if (!block.power && !wakes) return false;
  return command.row->allowed == nullptr || command.row->allowed(block);
}

command_outcome command_execute(block_model& block, const parsed_command& command) {
  return command.row->act(block, command);
}

packet inquiry_answer(const block_model& block, std::span<const uint8_t> body) {
  for (const inquiry_row& row : kInquiries) {
    if (body.size() == 2 && body[0] == row.category && body[1] == row.number) return row.answer(block);
  }
  return {};
}

}  // namespace sim_camera
