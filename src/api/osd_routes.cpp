#include "api/osd_routes.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <optional>

#include "http/json_body.h"
#include "http/response.h"
#include "osd/overlay.h"
#include "visca/camera_thread.h"

namespace {

constexpr int kLastTitleLine = 10;

struct item_row {
  osd_item item;
  const char* key;
  const char* message;
};

constexpr item_row kItems[] = {
    {kOsdZoom, "zoom_osd", "osd zoom %d"},
    {kOsdFlowDirection, "flow_direction_osd", "osd flow direction %d"},
    {kOsdDateTime, "date_time_osd", "osd date time %d"},
    {kOsdCompass, "compass_osd", "osd compass %d"},
    {kOsdTitle, "title_osd", "osd title %d"},
    {kOsdOperatorId, "operator_id_osd", "osd operator id %d"},
};

const item_row& row_of(osd_item item) { return *std::ranges::find(kItems, item, &item_row::item); }

constexpr bool is_title_line(int number) { return number >= 0 && number <= kLastTitleLine; }
constexpr bool is_byte(int number) { return number >= 0 && number <= 0xFF; }

using title_command = int (*)(visca_camera* camera);
using title_line_command = int (*)(visca_camera* camera, int line);

int post_title_command(http_connection* connection, title_command command) {
  visca_camera* camera = visca_thread_data.camera;
  return send_status(connection, camera != nullptr && command(camera) == 0);
}

int post_title_line_command(http_connection* connection, const char* body, unsigned long length,
                            const char* message, title_line_command command) {
  const std::optional<int> line = take_number(connection, body, length, "line_number", message);
  visca_camera* camera = visca_thread_data.camera;
  const bool good = line && is_title_line(*line) && camera != nullptr;
  return send_status(connection, good && command(camera, *line) == 0);
}

struct title_request {
  int line = -1;
  int position = -1;
  int blink = -1;
  int color = -1;
  osd_text text{};
};

std::optional<title_request> read_title_request(json_object* object) {
  const auto number = [&](const char* key) { return body_integer(object, key).value_or(-1); };
  title_request request{number("line_number"), number("h_position"), number("blink"), number("color"), {}};
  const bool has_text = copy_body_text(object, "text", request.text.data(), request.text.size());
  if (!has_text || !is_title_line(request.line)) return std::nullopt;
  if (!is_byte(request.position) || !is_byte(request.blink) || !is_byte(request.color)) return std::nullopt;
  return request;
}

bool send_title(visca_camera* camera, const title_request& r) {
  const char* text = r.text.data();
  return visca_camera_title_set_1(camera, r.line, r.position, static_cast<unsigned>(r.color), r.blink) == 0 &&
         visca_camera_title_set_2(camera, r.line, text) == 0 &&
         visca_camera_title_set_3(camera, r.line, text + std::min(strlen(text), kOsdLineHalf)) == 0;
}

}  // namespace

int send_osd_item(http_connection* connection, osd_item item) {
  return send_member(connection, row_of(item).key, json_object_new_boolean(orb_get_osd_item(item) != 0));
}

int take_osd_item(http_connection* connection, const char* body, unsigned long length, osd_item item) {
  const item_row& row = row_of(item);
  const std::optional<int> value = take_number(connection, body, length, row.key, row.message);
  if (value) orb_set_osd_item(item, *value);
  return send_status(connection, value.has_value());
}

int get_osd_color(http_connection* connection, const char*, unsigned long, void*) {
  const int color = osd_color_code(orb_get_osd_item(kOsdColor));
  return send_member(connection, "osd_color", json_object_new_string(kOsdColors[color]));
}

int put_osd_color(http_connection* connection, const char* body, unsigned long length, void*) {
  const std::optional<body_word> word = take_word(connection, body, length, "osd_color", "osd color '%s'");
  const std::optional<int> color = word ? find_word(kOsdColors, word->text) : std::nullopt;
  if (color) orb_set_osd_item(kOsdColor, *color);
  return send_status(connection, color.has_value());
}

int get_osd_dwell(http_connection* connection, const char*, unsigned long, void*) {
  return send_member(connection, "osd_dwell", json_object_new_int(orb_get_osd_item(kOsdDwell)));
}

int put_osd_dwell(http_connection* connection, const char* body, unsigned long length, void*) {
  const std::optional<int> dwell = take_number(connection, body, length, "osd_dwell", "osd dwell %d");
  const bool good = dwell && *dwell >= 0 && *dwell <= kOsdLongestDwell_s;
  if (good) orb_set_osd_item(kOsdDwell, *dwell);
  return send_status(connection, good);
}

int put_title_line(http_connection* connection, const char* body, unsigned long length, void*) {
  const json_owner object = read_json_body(connection, body, length);
  const std::optional<title_request> request = read_title_request(object.get());
  visca_camera* camera = visca_thread_data.camera;
  return send_status(connection, request && camera != nullptr && send_title(camera, *request));
}

int post_title_clear_all(http_connection* connection, const char*, unsigned long, void*) {
  return post_title_command(connection, visca_camera_title_clear_all);
}

int post_title_turn_all_on(http_connection* connection, const char*, unsigned long, void*) {
  return post_title_command(connection, visca_camera_title_turn_all_on);
}

int post_title_turn_all_off(http_connection* connection, const char*, unsigned long, void*) {
  return post_title_command(connection, visca_camera_title_turn_all_off);
}

int post_title_clear_line(http_connection* connection, const char* body, unsigned long length, void*) {
  return post_title_line_command(connection, body, length, "title clear line %d",
                                 visca_camera_title_clear_line);
}

int post_title_turn_line_on(http_connection* connection, const char* body, unsigned long length, void*) {
  return post_title_line_command(connection, body, length, "title turn line on %d",
                                 visca_camera_title_turn_line_on);
}

int post_title_turn_line_off(http_connection* connection, const char* body, unsigned long length, void*) {
  return post_title_line_command(connection, body, length, "title turn line off %d",
                                 visca_camera_title_turn_line_off);
}
