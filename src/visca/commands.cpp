// The VISCA commands: one line each, in the groups of the command list.

#include <array>
#include <utility>

#include "visca/camera.h"

namespace {

// What follows the address byte.
constexpr uint8_t kCommand = 0x01;
constexpr uint8_t kInquiry = 0x09;
constexpr uint8_t kCategoryCamera = 0x04;

constexpr uint8_t kTitleSet = 0x73;
constexpr uint8_t kTitleControl = 0x74;
constexpr size_t kTitleHalf = 10;
constexpr uint8_t kTitleBlank = 0x1B;

// Nibble `index` of a value, 0 being the lowest.
uint8_t nibble(auto value, int index) { return static_cast<uint8_t>(value >> (4 * index) & 0x0F); }

// The queue adds the address in front and the end behind: of "turn title line 4 on" the camera gets
// 81 01 04 74 24 FF.
template <typename... Bytes>
int send(visca_camera* camera, Bytes... bytes) {
  return visca_camera_queue_command(camera,
                                    std::array{kCommand, kCategoryCamera, static_cast<uint8_t>(bytes)...});
}

int send_position(visca_camera* camera, uint8_t command, int position) {
  return send(camera, command, nibble(position, 3), nibble(position, 2), nibble(position, 1),
              nibble(position, 0));
}

int send_value(visca_camera* camera, uint8_t command, unsigned value) {
  return send(camera, command, 0x00, 0x00, nibble(value, 1), nibble(value, 0));
}

constexpr std::pair<uint8_t, uint8_t> kSigns[] = {
    {'0', 0x27}, {'&', 0x1A},  {'?', 0x1C}, {'!', 0x1D}, {'$', 0x41}, {'"', 0x49},
    {':', 0x4A}, {'\'', 0x4B}, {'.', 0x4C}, {',', 0x4D}, {'/', 0x4E}, {'-', 0x4F},
};

// The camera's own character set; what it does not have is a blank.
constexpr std::array<uint8_t, 256> make_title_characters() {
  std::array<uint8_t, 256> table{};
  table.fill(kTitleBlank);
  for (unsigned letter = 0; letter < 26; ++letter) {
    table['A' + letter] = table['a' + letter] = static_cast<uint8_t>(letter);
  }
  for (unsigned digit = 1; digit <= 9; ++digit) table['0' + digit] = static_cast<uint8_t>(0x1D + digit);
  for (const auto& [sign, code] : kSigns) table[sign] = code;
  return table;
}

constexpr std::array<uint8_t, 256> kTitleCharacters = make_title_characters();

int send_title_text(visca_camera* camera, uint8_t set, int line, const char* text) {
  std::array<uint8_t, 4 + kTitleHalf> payload{kCommand, kCategoryCamera, kTitleSet,
                                              static_cast<uint8_t>(line | set)};
  for (size_t i = 4; i < payload.size(); ++i) {
    payload[i] = *text == '\0' ? kTitleBlank : kTitleCharacters[static_cast<unsigned char>(*text++)];
  }
  return visca_camera_queue_command(camera, payload);
}

}  // namespace

int visca_camera_power_on(visca_camera* camera) { return send(camera, 0x00, 0x02); }
int visca_camera_power_off(visca_camera* camera) { return send(camera, 0x00, 0x03); }

int visca_camera_zoom_stop(visca_camera* camera) { return send(camera, 0x07, 0x00); }
int visca_camera_zoom_tele(visca_camera* camera) { return send(camera, 0x07, 0x02); }
int visca_camera_zoom_wide(visca_camera* camera) { return send(camera, 0x07, 0x03); }
int visca_camera_zoom_tele_variable(visca_camera* camera, int speed) {
  return send(camera, 0x07, 0x20 | (speed & 0x0F));
}
int visca_camera_zoom_wide_variable(visca_camera* camera, int speed) {
  return send(camera, 0x07, 0x30 | (speed & 0x0F));
}
int visca_camera_zoom_direct(visca_camera* camera, int position) {
  return send_position(camera, 0x47, position);
}
int visca_camera_digital_zoom_on(visca_camera* camera) { return send(camera, 0x06, 0x02); }
int visca_camera_digital_zoom_off(visca_camera* camera) { return send(camera, 0x06, 0x03); }
int visca_camera_digital_zoom_combine_mode(visca_camera* camera) { return send(camera, 0x36, 0x00); }
int visca_camera_digital_zoom_separate_mode(visca_camera* camera) { return send(camera, 0x36, 0x01); }
int visca_camera_digital_zoom_stop(visca_camera* camera) { return send(camera, 0x06, 0x00); }
int visca_camera_digital_zoom_tele_variable(visca_camera* camera, int speed) {
  return send(camera, 0x06, 0x20 | (speed & 0x07));
}
int visca_camera_digital_zoom_wide_variable(visca_camera* camera, int speed) {
  return send(camera, 0x06, 0x30 | (speed & 0x07));
}
int visca_camera_digital_zoom_direct(visca_camera* camera, unsigned value) {
  return send_value(camera, 0x46, value);
}

int visca_camera_focus_stop(visca_camera* camera) { return send(camera, 0x08, 0x00); }
int visca_camera_focus_far(visca_camera* camera) { return send(camera, 0x08, 0x02); }
int visca_camera_focus_near(visca_camera* camera) { return send(camera, 0x08, 0x03); }
int visca_camera_focus_far_variable(visca_camera* camera, int speed) {
  return send(camera, 0x08, 0x20 | (speed & 0x07));
}
int visca_camera_focus_near_variable(visca_camera* camera, int speed) {
  return send(camera, 0x08, 0x30 | (speed & 0x07));
}
int visca_camera_focus_direct(visca_camera* camera, int position) {
  return send_position(camera, 0x48, position);
}
int visca_camera_auto_focus(visca_camera* camera) { return send(camera, 0x38, 0x02); }
int visca_camera_manual_focus(visca_camera* camera) { return send(camera, 0x38, 0x03); }
int visca_camera_auto_focus_trigger(visca_camera* camera) { return send(camera, 0x18, 0x01); }
int visca_camera_auto_focus_trigger_full_scan(visca_camera* camera) { return send(camera, 0x18, 0x03); }
int visca_camera_focus_near_limit(visca_camera* camera, int position) {
  return send_position(camera, 0x28, position);
}
int visca_camera_auto_focus_sensitivity_normal(visca_camera* camera) { return send(camera, 0x58, 0x02); }
int visca_camera_auto_focus_sensitivity_low(visca_camera* camera) { return send(camera, 0x58, 0x03); }
int visca_camera_auto_focus_mode_normal(visca_camera* camera) { return send(camera, 0x57, 0x00); }
int visca_camera_auto_focus_mode_interval(visca_camera* camera) { return send(camera, 0x57, 0x01); }
int visca_camera_auto_focus_mode_zoom_trigger(visca_camera* camera) { return send(camera, 0x57, 0x02); }
int visca_camera_ir_correction_standard(visca_camera* camera) { return send(camera, 0x11, 0x00); }
int visca_camera_ir_correction_ir_light(visca_camera* camera) { return send(camera, 0x11, 0x01); }
int visca_camera_initialize_lens(visca_camera* camera) { return send(camera, 0x19, 0x01); }
int visca_camera_initialize_camera(visca_camera* camera) { return send(camera, 0x19, 0x03); }

int visca_camera_white_balance_auto(visca_camera* camera) { return send(camera, 0x35, 0x00); }
int visca_camera_white_balance_indoor(visca_camera* camera) { return send(camera, 0x35, 0x01); }
int visca_camera_white_balance_outdoor(visca_camera* camera) { return send(camera, 0x35, 0x02); }
int visca_camera_white_balance_one_push(visca_camera* camera) { return send(camera, 0x35, 0x03); }
int visca_camera_white_balance_auto_tracing(visca_camera* camera) { return send(camera, 0x35, 0x04); }
int visca_camera_white_balance_manual(visca_camera* camera) { return send(camera, 0x35, 0x05); }
int visca_camera_white_balance_one_push_trigger(visca_camera* camera) { return send(camera, 0x10, 0x05); }
int visca_camera_white_balance_outdoor_auto(visca_camera* camera) { return send(camera, 0x35, 0x06); }
int visca_camera_white_balance_sodium_lamp_auto(visca_camera* camera) { return send(camera, 0x35, 0x07); }
int visca_camera_white_balance_sodium_lamp(visca_camera* camera) { return send(camera, 0x35, 0x08); }
int visca_camera_white_balance_sodium_lamp_outdoor_auto(visca_camera* camera) {
  return send(camera, 0x35, 0x09);
}
int visca_camera_red_gain_reset(visca_camera* camera) { return send(camera, 0x03, 0x00); }
int visca_camera_red_gain_up(visca_camera* camera) { return send(camera, 0x03, 0x02); }
int visca_camera_red_gain_down(visca_camera* camera) { return send(camera, 0x03, 0x03); }
int visca_camera_red_gain_direct(visca_camera* camera, unsigned value) {
  return send_value(camera, 0x43, value);
}
int visca_camera_blue_gain_reset(visca_camera* camera) { return send(camera, 0x04, 0x00); }
int visca_camera_blue_gain_up(visca_camera* camera) { return send(camera, 0x04, 0x02); }
int visca_camera_blue_gain_down(visca_camera* camera) { return send(camera, 0x04, 0x03); }
int visca_camera_blue_gain_direct(visca_camera* camera, unsigned value) {
  return send_value(camera, 0x44, value);
}

int visca_camera_gain_reset(visca_camera* camera) { return send(camera, 0x0C, 0x00); }
int visca_camera_gain_up(visca_camera* camera) { return send(camera, 0x0C, 0x02); }
int visca_camera_gain_down(visca_camera* camera) { return send(camera, 0x0C, 0x03); }
int visca_camera_gain_direct(visca_camera* camera, unsigned value) { return send_value(camera, 0x4C, value); }
int visca_camera_iris_reset(visca_camera* camera) { return send(camera, 0x0B, 0x00); }
int visca_camera_iris_up(visca_camera* camera) { return send(camera, 0x0B, 0x02); }
int visca_camera_iris_down(visca_camera* camera) { return send(camera, 0x0B, 0x03); }
int visca_camera_iris_direct(visca_camera* camera, unsigned value) { return send_value(camera, 0x4B, value); }
int visca_camera_shutter_reset(visca_camera* camera) { return send(camera, 0x0A, 0x00); }
int visca_camera_shutter_up(visca_camera* camera) { return send(camera, 0x0A, 0x02); }
int visca_camera_shutter_down(visca_camera* camera) { return send(camera, 0x0A, 0x03); }
int visca_camera_shutter_direct(visca_camera* camera, unsigned value) {
  return send_value(camera, 0x4A, value);
}
int visca_camera_exposure_mode_auto(visca_camera* camera) { return send(camera, 0x39, 0x00); }
int visca_camera_exposure_mode_manual(visca_camera* camera) { return send(camera, 0x39, 0x03); }
int visca_camera_exposure_mode_shutter_priority(visca_camera* camera) { return send(camera, 0x39, 0x0A); }
int visca_camera_exposure_mode_iris_priority(visca_camera* camera) { return send(camera, 0x39, 0x0B); }

int visca_camera_continuous_zoom_position_on(visca_camera* camera) { return send(camera, 0x69, 0x02); }
int visca_camera_continuous_zoom_position_off(visca_camera* camera) { return send(camera, 0x69, 0x03); }
int visca_camera_continuous_focus_position_on(visca_camera* camera) { return send(camera, 0x16, 0x02); }
int visca_camera_continuous_focus_position_off(visca_camera* camera) { return send(camera, 0x16, 0x03); }

int visca_camera_picture_flip_on(visca_camera* camera) { return send(camera, 0x66, 0x02); }
int visca_camera_picture_flip_off(visca_camera* camera) { return send(camera, 0x66, 0x03); }
int visca_camera_stabilizer_on(visca_camera* camera) { return send(camera, 0x34, 0x02); }
int visca_camera_stabilizer_off(visca_camera* camera) { return send(camera, 0x34, 0x03); }
int visca_camera_high_sensitivity_on(visca_camera* camera) { return send(camera, 0x5E, 0x02); }
int visca_camera_high_sensitivity_off(visca_camera* camera) { return send(camera, 0x5E, 0x03); }
int visca_camera_icr_on(visca_camera* camera) { return send(camera, 0x01, 0x02); }
int visca_camera_icr_off(visca_camera* camera) { return send(camera, 0x01, 0x03); }
int visca_camera_auto_icr_on(visca_camera* camera) { return send(camera, 0x51, 0x02); }
int visca_camera_auto_icr_off(visca_camera* camera) { return send(camera, 0x51, 0x03); }

int visca_camera_title_clear_all(visca_camera* camera) { return send(camera, kTitleControl, 0x1F); }
int visca_camera_title_turn_all_on(visca_camera* camera) { return send(camera, kTitleControl, 0x2F); }
int visca_camera_title_turn_all_off(visca_camera* camera) { return send(camera, kTitleControl, 0x3F); }

int visca_camera_version_inq(visca_camera* camera) {
  return visca_camera_queue_command(camera, std::array<uint8_t, 3>{kInquiry, 0x00, 0x02});
}

int visca_camera_zoom_focus_direct(visca_camera* camera, int zoom, int focus) {
  return send(camera, 0x47, nibble(zoom, 3), nibble(zoom, 2), nibble(zoom, 1), nibble(zoom, 0),
              nibble(focus, 3), nibble(focus, 2), nibble(focus, 1), nibble(focus, 0));
}

// Unlike the other off commands this one carries a level byte, as the camera's defog command always does.
int visca_camera_defog_off(visca_camera* camera) { return send(camera, 0x37, 0x03, 0x00); }
int visca_camera_defog_level(visca_camera* camera, int level) {
  return send(camera, 0x37, 0x02, nibble(level, 0));
}

int visca_camera_title_set_1(visca_camera* camera, int line, int h_position, unsigned color, int blink) {
  return send(camera, kTitleSet, line | 0x10, 0x00, h_position, color, blink, 0x00, 0x00, 0x00, 0x00, 0x00,
              0x00);
}
int visca_camera_title_set_2(visca_camera* camera, int line, const char* text) {
  return send_title_text(camera, 0x20, line, text);
}
int visca_camera_title_set_3(visca_camera* camera, int line, const char* text) {
  return send_title_text(camera, 0x30, line, text);
}
int visca_camera_title_clear_line(visca_camera* camera, int line) {
  return send(camera, kTitleControl, line | 0x10);
}
int visca_camera_title_turn_line_on(visca_camera* camera, int line) {
  return send(camera, kTitleControl, line | 0x20);
}
int visca_camera_title_turn_line_off(visca_camera* camera, int line) {
  return send(camera, kTitleControl, line | 0x30);
}
