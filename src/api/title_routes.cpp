// "/api/camera/title": the camera's titles directly. The overlay does not know what they change.

#include <algorithm>
#include <cstring>
#include <optional>

#include "api/routes.h"
#include "http/response.h"
#include "osd/overlay.h"
#include "visca/camera_thread.h"

namespace {

constexpr int kLastLine = 10;

constexpr bool is_line(int number) { return number >= 0 && number <= kLastLine; }
constexpr bool is_byte(int number) { return number >= 0 && number <= 0xFF; }

struct title_request {
  int line = -1;
  int position = -1;
  int blink = -1;
  int color = -1;
  osd_text text{};
};

std::optional<title_request> read_request(json_object* object) {
  const auto number = [&](const char* key) { return body_integer(object, key).value_or(-1); };
  title_request request{number("line_number"), number("h_position"), number("blink"), number("color"), {}};
  const bool has_text = copy_body_text(object, "text", request.text.data(), request.text.size());
  if (!has_text || !is_line(request.line)) return std::nullopt;
  if (!is_byte(request.position) || !is_byte(request.blink) || !is_byte(request.color)) return std::nullopt;
  return request;
}

bool send_title(visca_camera* camera, const title_request& r) {
  const char* text = r.text.data();
  return visca_camera_title_set_1(camera, r.line, r.position, static_cast<unsigned>(r.color), r.blink) == 0 &&
         visca_camera_title_set_2(camera, r.line, text) == 0 &&
         visca_camera_title_set_3(camera, r.line, text + std::min(strlen(text), kOsdLineHalf)) == 0;
}

int put_line(http_connection* connection, json_object* body) {
  const std::optional<title_request> request = read_request(body);
  visca_camera* camera = visca_thread_data.camera;
  return send_status(connection, request && camera != nullptr && send_title(camera, *request));
}

int post_all(http_connection* connection, int (*command)(visca_camera* camera)) {
  visca_camera* camera = visca_thread_data.camera;
  return send_status(connection, camera != nullptr && command(camera) == 0);
}

struct line_route {
  const char* label;
  int (*command)(visca_camera* camera, int line);
};

constexpr line_route kClearLine{"title clear line", visca_camera_title_clear_line};
constexpr line_route kTurnLineOn{"title turn line on", visca_camera_title_turn_line_on};
constexpr line_route kTurnLineOff{"title turn line off", visca_camera_title_turn_line_off};

int post_line(http_connection* connection, json_object* body, const line_route& route) {
  const std::optional<int> line = take_number(body, "line_number", route.label);
  visca_camera* camera = visca_thread_data.camera;
  const bool good = line && is_line(*line) && camera != nullptr;
  return send_status(connection, good && route.command(camera, *line) == 0);
}

constexpr http_path kPaths[] = {
    {"/api/camera/title/line", put<put_line>},
    {"/api/camera/title/clear_all", post<post_all, visca_camera_title_clear_all>},
    {"/api/camera/title/turn_all_on", post<post_all, visca_camera_title_turn_all_on>},
    {"/api/camera/title/turn_all_off", post<post_all, visca_camera_title_turn_all_off>},
    {"/api/camera/title/clear_line", post<post_line, kClearLine>},
    {"/api/camera/title/turn_line_on", post<post_line, kTurnLineOn>},
    {"/api/camera/title/turn_line_off", post<post_line, kTurnLineOff>},
};

}  // namespace

constinit const route_group title_routes(kRows<kPaths, route_counts{.put = 1, .post = 6}>);
