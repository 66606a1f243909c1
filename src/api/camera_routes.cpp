// "/api/camera": exposure, focus, zoom and the image settings. A handler checks the body, queues a command or
// starts a loop, and answers at once: none waits for the camera.

#include <algorithm>
#include <optional>
#include <string_view>

#include "api/routes.h"
#include "base/hold_loop.h"
#include "base/paths.h"
#include "base/trace.h"
#include "base/value_file.h"
#include "camera/defaults_worker.h"
#include "camera/depth_of_field.h"
#include "camera/image_settings.h"
#include "camera/lens_loops.h"
#include "camera/modes.h"
#include "camera/speeds.h"
#include "camera/zoom_values.h"
#include "http/response.h"
#include "power_board/power_board.h"
#include "visca/camera_thread.h"

namespace {

constexpr int kWordSize = 16;

// --- modes ---

struct mode_route {
  const char* key;
  const char* label;
  int (*automatic)(visca_camera* camera);
  int (*manual)(visca_camera* camera);
  camera_mode (*kept)();
  void (*keep)(camera_mode mode);
};

// The automatic focus takes the lens; the manual one leaves it.
int order_auto_focus(visca_camera*) { return orb_order_focus({lens_effect::ends, visca_camera_auto_focus}); }

constexpr mode_route kFocusMode{"focus_mode",    "focus mode",   order_auto_focus, visca_camera_manual_focus,
                                kept_focus_mode, keep_focus_mode};
constexpr mode_route kExposureMode{
    "exposure_mode",    "exposure mode",   visca_camera_exposure_mode_auto, visca_camera_exposure_mode_manual,
    kept_exposure_mode, keep_exposure_mode};

int get_mode(http_connection* connection, const mode_route& route) {
  return send_text(connection, route.key, mode_text(route.kept()));
}

int put_mode(http_connection* connection, json_object* body, const mode_route& route) {
  constexpr camera_mode kModes[] = {camera_mode::automatic, camera_mode::manual};
  const std::optional<body_word> word = take_word(body, route.key, route.label);
  const auto* mode =
      word ? std::ranges::find(kModes, std::string_view(word->text), mode_text) : std::end(kModes);
  if (mode == std::end(kModes)) return send_status(connection, false);
  visca_camera* camera = visca_thread_data.camera;
  if (camera != nullptr) (*mode == camera_mode::manual ? route.manual : route.automatic)(camera);
  route.keep(*mode);
  return send_status(connection, true);
}

// --- exposure ---

struct exposure_route {
  const char* message;
  int (*command)(visca_camera* camera);  // null: sends nothing, because the steps end by themselves
};

constexpr exposure_route kShutterUp{"shutter inc", visca_camera_shutter_up};
constexpr exposure_route kShutterDown{"shutter dec", visca_camera_shutter_down};
constexpr exposure_route kShutterReset{"shutter reset", visca_camera_shutter_reset};
constexpr exposure_route kShutterStop{"shutter stop", nullptr};
constexpr exposure_route kIrisUp{"iris inc", visca_camera_iris_up};
constexpr exposure_route kIrisDown{"iris dec", visca_camera_iris_down};
constexpr exposure_route kIrisReset{"iris reset", visca_camera_iris_reset};
constexpr exposure_route kIrisStop{"iris stop", nullptr};
constexpr exposure_route kGainUp{"gain inc", visca_camera_gain_up};
constexpr exposure_route kGainDown{"gain dec", visca_camera_gain_down};
constexpr exposure_route kGainReset{"gain reset", visca_camera_gain_reset};
constexpr exposure_route kGainStop{"gain stop", nullptr};

// In manual exposure only.
int post_exposure(http_connection* connection, const exposure_route& route) {
  trace(kTraceApi, "%s", route.message);
  const bool manual = kept_exposure_mode() == camera_mode::manual;
  visca_camera* camera = visca_thread_data.camera;
  if (manual && route.command != nullptr && camera != nullptr) route.command(camera);
  return send_status(connection, manual);
}

// --- speeds ---

struct speed_route {
  const char* file;
  int default_speed;
  int missing_speed;  // what a missing file reads as
  const char* key;
  const char* label;
  const char* operation_key;
  const char* operation_label;
};

constexpr speed_route kZoomSpeed{paths::kZoomSpeed, kDefaultZoomSpeed, kMissingZoomSpeed, "zoom_speed",
                                 "zoom speed",      "zoom_operation",  "zoom speed op"};
constexpr speed_route kFocusSpeed{paths::kFocusSpeed, kDefaultFocusSpeed, kMissingFocusSpeed, "focus_speed",
                                  "focus speed",      "focus_operation",  "focus speed"};

int get_speed(http_connection* connection, const speed_route& route) {
  return send_number(connection, route.key, read_value_file(route.file).value_or(route.missing_speed));
}

int put_speed(http_connection* connection, json_object* body, const speed_route& route) {
  const std::optional<int> speed = take_number(body, route.key, route.label);
  const bool good = speed && *speed <= kMaximumSpeed;
  if (good) write_value_file(route.file, *speed);
  return send_status(connection, good);
}

// One step up or down between the limits.
int post_speed(http_connection* connection, json_object* body, const speed_route& route) {
  const std::optional<body_word> word = take_word(body, route.operation_key, route.operation_label);
  if (!word) return send_status(connection, false);
  const std::string_view operation = word->text;
  const int step = operation == "increment" ? 1 : operation == "decrement" ? -1 : 0;
  const int now = read_value_file(route.file).value_or(route.default_speed);
  const bool is_within = step > 0 ? now < kMaximumSpeed : now > 0;
  const int next = is_within ? now + step : now;
  if (next != now) write_value_file(route.file, next);
  return send_object(connection, [&](json_object* answer) {
    add_number(answer, route.key, next);
    add_status(answer, step != 0);
  });
}

// --- positions ---

struct position_route {
  const char* key;
  const char* label;
  int (*give_order)(const lens_order& order);
  int (*command)(visca_camera* camera, int position);
};

constexpr position_route kFocusPosition{"focus_position", "focus pos", orb_order_focus,
                                        visca_camera_focus_direct};
constexpr position_route kZoomPosition{"zoom_position", "zoom pos", orb_order_zoom, visca_camera_zoom_direct};

// "OK" only when the command was queued.
int put_position(http_connection* connection, json_object* body, const position_route& route) {
  const std::optional<int> position = body_integer(body, route.key);
  trace(kTraceApi, "%s %d %d", route.label, position ? 1 : 0, position.value_or(-1));
  const bool good = position && is_visca_position(*position) &&
                    route.give_order({lens_effect::ends, nullptr, route.command, *position}) == 0;
  return send_status(connection, good);
}

// --- focus ---

void add_focus(json_object* answer) {
  const visca_camera* camera = visca_thread_data.camera;
  const int position = camera == nullptr ? -1 : static_cast<int>(camera->focus_position.load());
  const depth_of_field field = load_depth_of_field(position);
  add_number(answer, "focus_position", position);
  add_text(answer, "max_depth_of_field", field.far_limit);
  add_text(answer, "min_depth_of_field", field.near_limit);
}

int send_focus(http_connection* connection, bool good) {
  return send_object(connection, [good](json_object* answer) {
    add_focus(answer);
    add_status(answer, good);
  });
}

int get_focus_position(http_connection* connection) { return send_object(connection, add_focus); }

struct hold_route {
  const char* message;
  int direction;
};

constexpr hold_route kFocusFar{"focus inc", 1};
constexpr hold_route kFocusNear{"focus dec", -1};

// In manual focus only.
int post_focus(http_connection* connection, const hold_route& route) {
  trace(kTraceApi, "%s", route.message);
  const bool manual = kept_focus_mode() == camera_mode::manual;
  if (manual) orb_trigger_focus_loop(route.direction, kHold_ms);
  return send_focus(connection, manual);
}

int post_focus_stop(http_connection* connection) {
  trace(kTraceApi, "focus stop");
  if (kept_focus_mode() == camera_mode::manual) orb_stop_focus_loop();
  return send_focus(connection, true);
}

// --- zoom; a move forgets the laser reading of the picture before ---

void add_zoom(json_object* answer) {
  int position = -1;
  char magnification[kWordSize];
  orb_load_camera_zoom_values(&position, nullptr, magnification, sizeof magnification);
  add_number(answer, "zoom_position", position);
  add_text(answer, "zoom_magnification", magnification);
}

int send_zoom(http_connection* connection) {
  return send_object(connection, [](json_object* answer) {
    add_zoom(answer);
    add_status(answer, true);
  });
}

int post_zoom_reset(http_connection* connection) {
  trace(kTraceApi, "zoom reset");
  orb_order_zoom({lens_effect::ends, nullptr, visca_camera_zoom_direct, 0});
  write_value_file(paths::kZoomSpeed, kDefaultZoomSpeed);  // behind the end of a hold, which writes it too
  return send_object(connection, [](json_object* answer) {
    add_number(answer, "zoom_speed", kDefaultZoomSpeed);
    add_zoom(answer);
    add_status(answer, true);
  });
}

int get_zoom_position(http_connection* connection) { return send_object(connection, add_zoom); }

int put_zoom_position(http_connection* connection, json_object* body) {
  orb_power_board_clear_laser_reading(power_board_now());
  return put_position(connection, body, kZoomPosition);
}

constexpr hold_route kZoomTele{"zoom inc", 1};
constexpr hold_route kZoomWide{"zoom dec", -1};

int post_zoom(http_connection* connection, const hold_route& route) {
  trace(kTraceApi, "%s", route.message);
  orb_trigger_zoom_loop(route.direction, kHold_ms);
  orb_power_board_clear_laser_reading(power_board_now());
  return send_zoom(connection);
}

int post_zoom_stop(http_connection* connection) {
  trace(kTraceApi, "zoom stop");
  orb_stop_zoom_loop();
  return send_zoom(connection);
}

// --- image settings ---

struct image_route {
  const char* key;
  const char* label;
  int (*set)(const char* text);
  void (*load)(char* text, unsigned size);
};

constexpr image_route kInvertImage{"invert_image", "invert image", orb_set_camera_invert_image,
                                   orb_load_camera_invert_image};
constexpr image_route kImageStabilizer{"image_stabilizer", "image stabilizer",
                                       orb_set_camera_image_stabilizer, orb_load_camera_image_stabilizer};
constexpr image_route kSensitivity{"sensitivity", "sensitivity", orb_set_camera_sensitivity,
                                   orb_load_camera_sensitivity};
constexpr image_route kIrFilter{"ir_filter", "ir filter", orb_set_camera_ir_filter,
                                orb_load_camera_ir_filter};
constexpr image_route kDefog{"defog", "defog", orb_set_camera_defog, orb_load_camera_defog};

int get_image(http_connection* connection, const image_route& route) {
  char text[kWordSize];
  route.load(text, sizeof text);
  return send_text(connection, route.key, text);
}

int put_image(http_connection* connection, json_object* body, const image_route& route) {
  const std::optional<body_word> word = take_word(body, route.key, route.label);
  return send_status(connection, word && route.set(word->text) == 0);
}

constexpr http_path kPaths[] = {
    {"/api/camera/exposure/mode", get<get_mode, kExposureMode>, put<put_mode, kExposureMode>},
    {"/api/camera/exposure/shutter/increment", post<post_exposure, kShutterUp>},
    {"/api/camera/exposure/shutter/decrement", post<post_exposure, kShutterDown>},
    {"/api/camera/exposure/shutter/reset", post<post_exposure, kShutterReset>},
    {"/api/camera/exposure/shutter/stop", post<post_exposure, kShutterStop>},
    {"/api/camera/exposure/iris/increment", post<post_exposure, kIrisUp>},
    {"/api/camera/exposure/iris/decrement", post<post_exposure, kIrisDown>},
    {"/api/camera/exposure/iris/reset", post<post_exposure, kIrisReset>},
    {"/api/camera/exposure/iris/stop", post<post_exposure, kIrisStop>},
    {"/api/camera/exposure/gain/increment", post<post_exposure, kGainUp>},
    {"/api/camera/exposure/gain/decrement", post<post_exposure, kGainDown>},
    {"/api/camera/exposure/gain/reset", post<post_exposure, kGainReset>},
    {"/api/camera/exposure/gain/stop", post<post_exposure, kGainStop>},
    {"/api/camera/focus/mode", get<get_mode, kFocusMode>, put<put_mode, kFocusMode>},
    {"/api/camera/focus/speed", get<get_speed, kFocusSpeed>, put<put_speed, kFocusSpeed>,
     post<post_speed, kFocusSpeed>},
    {"/api/camera/focus/position", get<get_focus_position>, put<put_position, kFocusPosition>},
    {"/api/camera/focus/increment", post<post_focus, kFocusFar>},
    {"/api/camera/focus/decrement", post<post_focus, kFocusNear>},
    {"/api/camera/focus/stop", post<post_focus_stop>},
    {"/api/camera/zoom/reset", post<post_zoom_reset>},
    {"/api/camera/zoom/speed", get<get_speed, kZoomSpeed>, put<put_speed, kZoomSpeed>,
     post<post_speed, kZoomSpeed>},
    {"/api/camera/zoom/position", get<get_zoom_position>, put<put_zoom_position>},
    {"/api/camera/zoom/increment", post<post_zoom, kZoomTele>},
    {"/api/camera/zoom/decrement", post<post_zoom, kZoomWide>},
    {"/api/camera/zoom/stop", post<post_zoom_stop>},
    {"/api/camera/invert_image", get<get_image, kInvertImage>, put<put_image, kInvertImage>.in(store_lane)},
    {"/api/camera/image_stabilizer", get<get_image, kImageStabilizer>,
     put<put_image, kImageStabilizer>.in(store_lane)},
    {"/api/camera/sensitivity", get<get_image, kSensitivity>, put<put_image, kSensitivity>.in(store_lane)},
    {"/api/camera/ir_filter", get<get_image, kIrFilter>, put<put_image, kIrFilter>.in(store_lane)},
    {"/api/camera/defog", get<get_image, kDefog>, put<put_image, kDefog>.in(store_lane)},
};

}  // namespace

constinit const route_group camera_routes(kRows<kPaths, route_counts{.get = 11, .put = 11, .post = 21}>);
