// The handlers of "/api/camera": read the body, check it, queue a command or start a loop, answer at once.

#include "api/camera_routes.h"

#include <algorithm>
#include <cstring>
#include <optional>

#include "base/json.h"
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
#include "http/json_body.h"
#include "http/response.h"
#include "power_board/power_board.h"
#include "visca/camera_thread.h"

namespace {

constexpr int kHold_ms = 500;  // a button held sends its request again within this time
constexpr int kWordSize = 16;

visca_camera* camera_now() { return visca_thread_data.camera; }

json_object* new_string(const char* text) { return json_object_new_string(text); }

void add(json_object* answer, const char* key, json_object* value) {
  json_object_object_add(answer, key, value);
}

// --- image settings ---

struct image_route {
  const char* key;
  const char* message;  // takes the word
  int (*set)(const char* text);
  void (*load)(char* text, unsigned size);
};

constexpr image_route kInvertImage{"invert_image", "invert image '%s'", orb_set_camera_invert_image,
                                   orb_load_camera_invert_image};
constexpr image_route kImageStabilizer{"image_stabilizer", "image stabilizer '%s'",
                                       orb_set_camera_image_stabilizer, orb_load_camera_image_stabilizer};
constexpr image_route kSensitivity{"sensitivity", "sensitivity '%s'", orb_set_camera_sensitivity,
                                   orb_load_camera_sensitivity};
constexpr image_route kIrFilter{"ir_filter", "ir filter '%s'", orb_set_camera_ir_filter,
                                orb_load_camera_ir_filter};
constexpr image_route kDefog{"defog", "defog '%s'", orb_set_camera_defog, orb_load_camera_defog};

int get_image(http_connection* connection, const image_route& route) {
  char text[kWordSize];
  route.load(text, sizeof text);
  return send_member(connection, route.key, new_string(text));
}

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
#pragma GCC diagnostic ignored "-Wformat-security"

// The number under `key`, traced with whether there is one.
std::optional<int> take_position(http_connection* connection, const char* body, unsigned long length,
                                 const char* key, const char* message) {
  const json_owner object = read_json_body(connection, body, length);
  const std::optional<int> number = body_integer(object.get(), key);
  trace(kTraceApi, message, number ? 1 : 0, number.value_or(-1));
  return number;
}

#pragma GCC diagnostic pop

int put_image(http_connection* connection, const char* body, unsigned long length, const image_route& route) {
  const std::optional<body_word> word = take_word(connection, body, length, route.key, route.message);
  return send_status(connection, word && route.set(word->text) == 0);
}

// --- exposure ---

// In manual exposure only. The stop routes send nothing: their steps end by themselves.
int post_exposure(http_connection* connection, const char* message, int (*command)(visca_camera* camera)) {
  trace(kTraceApi, "%s", message);
  const bool manual = kept_exposure_mode() == camera_mode::manual;
  visca_camera* camera = camera_now();
  if (manual && command != nullptr && camera != nullptr) command(camera);
  return send_status(connection, manual);
}

// --- modes ---

struct mode_route {
  const char* key;
  const char* message;
  int (*automatic)(visca_camera* camera);
  int (*manual)(visca_camera* camera);
  void (*keep)(camera_mode mode);
};

// The automatic focus takes the lens; the manual one leaves it.
int order_auto_focus(visca_camera*) { return orb_order_focus({lens_effect::ends, visca_camera_auto_focus}); }

constexpr mode_route kFocusModeRoute{"focus_mode", "focus mode '%s'", order_auto_focus,
                                     visca_camera_manual_focus, keep_focus_mode};
constexpr mode_route kExposureModeRoute{"exposure_mode", "exposure mode '%s'",
                                        visca_camera_exposure_mode_auto, visca_camera_exposure_mode_manual,
                                        keep_exposure_mode};

std::optional<camera_mode> find_mode(const char* word) {
  for (const camera_mode mode : {camera_mode::automatic, camera_mode::manual}) {
    if (strcmp(word, mode_text(mode)) == 0) return mode;
  }
  return std::nullopt;
}

int put_mode(http_connection* connection, const char* body, unsigned long length, const mode_route& route) {
  const std::optional<body_word> word = take_word(connection, body, length, route.key, route.message);
  const std::optional<camera_mode> mode = word ? find_mode(word->text) : std::nullopt;
  if (!mode) return send_status(connection, false);
  visca_camera* camera = camera_now();
  if (camera != nullptr) (*mode == camera_mode::manual ? route.manual : route.automatic)(camera);
  route.keep(*mode);
  return send_status(connection, true);
}

// --- speeds ---

struct speed_route {
  const char* file;
  int default_speed;
  int missing_speed;  // what a missing file reads as
  const char* key;
  const char* put_message;
  const char* operation_key;
  const char* operation_message;
};

constexpr speed_route kZoomSpeedRoute{paths::kZoomSpeed, kDefaultZoomSpeed, kMissingZoomSpeed,   "zoom_speed",
                                      "zoom speed %d",   "zoom_operation",  "zoom speed op '%s'"};
constexpr speed_route kFocusSpeedRoute{paths::kFocusSpeed, kDefaultFocusSpeed, kMissingFocusSpeed,
                                       "focus_speed",      "focus speed %d",   "focus_operation",
                                       "focus speed '%s'"};

int get_speed(http_connection* connection, const speed_route& route) {
  const int speed = read_value_file(route.file).value_or(route.missing_speed);
  return send_member(connection, route.key, json_object_new_int(speed));
}

int put_speed(http_connection* connection, const char* body, unsigned long length, const speed_route& route) {
  const std::optional<int> speed = take_number(connection, body, length, route.key, route.put_message);
  const bool good = speed && *speed <= kMaximumSpeed;
  if (good) write_value_file(route.file, *speed);
  return send_status(connection, good);
}

// One step up or down between the limits.
int post_speed(http_connection* connection, const char* body, unsigned long length,
               const speed_route& route) {
  const std::optional<body_word> word =
      take_word(connection, body, length, route.operation_key, route.operation_message);
  if (!word) return send_status(connection, false);
  const int step = strcmp(word->text, "increment") == 0 ? 1 : strcmp(word->text, "decrement") == 0 ? -1 : 0;
  const int now = read_value_file(route.file).value_or(route.default_speed);
  const bool is_within = step > 0 ? now < kMaximumSpeed : now > 0;
  const int next = is_within ? now + step : now;
  if (next != now) write_value_file(route.file, next);
  return send_object(connection, [&](json_object* answer) {
    add(answer, route.key, json_object_new_int(next));
    add_status(answer, step != 0);
  });
}

// --- zoom and focus ---

void add_zoom(json_object* answer) {
  int position = -1;
  char magnification[kWordSize];
  orb_load_camera_zoom_values(&position, nullptr, magnification, sizeof magnification);
  add(answer, "zoom_position", json_object_new_int(position));
  add(answer, "zoom_magnification", new_string(magnification));
}

int send_zoom(http_connection* connection) {
  return send_object(connection, [](json_object* answer) {
    add_zoom(answer);
    add_status(answer, true);
  });
}

void add_focus(json_object* answer) {
  const visca_camera* camera = camera_now();
  const int position = camera == nullptr ? -1 : static_cast<int>(camera->focus_position.load());
  const depth_of_field field = load_depth_of_field(position);
  add(answer, "focus_position", json_object_new_int(position));
  add(answer, "max_depth_of_field", new_string(field.far_limit));
  add(answer, "min_depth_of_field", new_string(field.near_limit));
}

int send_focus(http_connection* connection, bool good) {
  return send_object(connection, [good](json_object* answer) {
    add_focus(answer);
    add_status(answer, good);
  });
}

// In manual focus only.
int post_focus(http_connection* connection, const char* message, int direction) {
  trace(kTraceApi, "%s", message);
  const bool manual = kept_focus_mode() == camera_mode::manual;
  if (manual) orb_trigger_focus_loop(direction, kHold_ms);
  return send_focus(connection, manual);
}

// "OK" only when the command was queued.
int put_position(http_connection* connection, std::optional<int> position,
                 int (*give_order)(const lens_order& order),
                 int (*command)(visca_camera* camera, int position)) {
  const bool good = position && is_visca_position(*position) &&
                    give_order({lens_effect::ends, nullptr, command, *position}) == 0;
  return send_status(connection, good);
}

}  // namespace

int get_exposure_mode(http_connection* connection, const char*, unsigned long, void*) {
  return send_member(connection, "exposure_mode", new_string(mode_text(kept_exposure_mode())));
}
int put_exposure_mode(http_connection* connection, const char* body, unsigned long length, void*) {
  return put_mode(connection, body, length, kExposureModeRoute);
}

int post_shutter_increment(http_connection* connection, const char*, unsigned long, void*) {
  return post_exposure(connection, "shutter inc", visca_camera_shutter_up);
}
int post_shutter_decrement(http_connection* connection, const char*, unsigned long, void*) {
  return post_exposure(connection, "shutter dec", visca_camera_shutter_down);
}
int post_shutter_reset(http_connection* connection, const char*, unsigned long, void*) {
  return post_exposure(connection, "shutter reset", visca_camera_shutter_reset);
}
int post_shutter_stop(http_connection* connection, const char*, unsigned long, void*) {
  return post_exposure(connection, "shutter stop", nullptr);
}
int post_iris_increment(http_connection* connection, const char*, unsigned long, void*) {
  return post_exposure(connection, "iris inc", visca_camera_iris_up);
}
int post_iris_decrement(http_connection* connection, const char*, unsigned long, void*) {
  return post_exposure(connection, "iris dec", visca_camera_iris_down);
}
int post_iris_reset(http_connection* connection, const char*, unsigned long, void*) {
  return post_exposure(connection, "iris reset", visca_camera_iris_reset);
}
int post_iris_stop(http_connection* connection, const char*, unsigned long, void*) {
  return post_exposure(connection, "iris stop", nullptr);
}
int post_gain_increment(http_connection* connection, const char*, unsigned long, void*) {
  return post_exposure(connection, "gain inc", visca_camera_gain_up);
}
int post_gain_decrement(http_connection* connection, const char*, unsigned long, void*) {
  return post_exposure(connection, "gain dec", visca_camera_gain_down);
}
int post_gain_reset(http_connection* connection, const char*, unsigned long, void*) {
  return post_exposure(connection, "gain reset", visca_camera_gain_reset);
}
int post_gain_stop(http_connection* connection, const char*, unsigned long, void*) {
  return post_exposure(connection, "gain stop", nullptr);
}

int get_focus_mode(http_connection* connection, const char*, unsigned long, void*) {
  return send_member(connection, "focus_mode", new_string(mode_text(kept_focus_mode())));
}
int put_focus_mode(http_connection* connection, const char* body, unsigned long length, void*) {
  return put_mode(connection, body, length, kFocusModeRoute);
}
int get_focus_speed(http_connection* connection, const char*, unsigned long, void*) {
  return get_speed(connection, kFocusSpeedRoute);
}
int put_focus_speed(http_connection* connection, const char* body, unsigned long length, void*) {
  return put_speed(connection, body, length, kFocusSpeedRoute);
}
int post_focus_speed(http_connection* connection, const char* body, unsigned long length, void*) {
  return post_speed(connection, body, length, kFocusSpeedRoute);
}
int get_focus_position(http_connection* connection, const char*, unsigned long, void*) {
  return send_object(connection, add_focus);
}
int put_focus_position(http_connection* connection, const char* body, unsigned long length, void*) {
  return put_position(connection,
                      take_position(connection, body, length, "focus_position", "focus pos %d %d"),
                      orb_order_focus, visca_camera_focus_direct);
}
int post_focus_increment(http_connection* connection, const char*, unsigned long, void*) {
  return post_focus(connection, "focus inc", 1);
}
int post_focus_decrement(http_connection* connection, const char*, unsigned long, void*) {
  return post_focus(connection, "focus dec", -1);
}
int post_focus_stop(http_connection* connection, const char*, unsigned long, void*) {
  trace(kTraceApi, "focus stop");
  if (kept_focus_mode() == camera_mode::manual) orb_stop_focus_loop();
  return send_focus(connection, true);
}

int post_zoom_reset(http_connection* connection, const char*, unsigned long, void*) {
  trace(kTraceApi, "zoom reset");
  orb_order_zoom({lens_effect::ends, nullptr, visca_camera_zoom_direct, 0});
  write_value_file(paths::kZoomSpeed, kDefaultZoomSpeed);  // behind the end of a hold, which writes it too
  return send_object(connection, [](json_object* answer) {
    add(answer, "zoom_speed", json_object_new_int(kDefaultZoomSpeed));
    add_zoom(answer);
    add_status(answer, true);
  });
}
int get_zoom_speed(http_connection* connection, const char*, unsigned long, void*) {
  return get_speed(connection, kZoomSpeedRoute);
}
int put_zoom_speed(http_connection* connection, const char* body, unsigned long length, void*) {
  return put_speed(connection, body, length, kZoomSpeedRoute);
}
int post_zoom_speed(http_connection* connection, const char* body, unsigned long length, void*) {
  return post_speed(connection, body, length, kZoomSpeedRoute);
}
int get_zoom_position(http_connection* connection, const char*, unsigned long, void*) {
  return send_object(connection, add_zoom);
}
int put_zoom_position(http_connection* connection, const char* body, unsigned long length, void*) {
  orb_power_board_clear_laser_reading(power_board_now());
  return put_position(connection, take_position(connection, body, length, "zoom_position", "zoom pos %d %d"),
                      orb_order_zoom, visca_camera_zoom_direct);
}
int post_zoom_increment(http_connection* connection, const char*, unsigned long, void*) {
  trace(kTraceApi, "zoom inc");
  orb_trigger_zoom_loop(1, kHold_ms);
  orb_power_board_clear_laser_reading(power_board_now());
  return send_zoom(connection);
}
int post_zoom_decrement(http_connection* connection, const char*, unsigned long, void*) {
  trace(kTraceApi, "zoom dec");
  orb_trigger_zoom_loop(-1, kHold_ms);
  orb_power_board_clear_laser_reading(power_board_now());
  return send_zoom(connection);
}
int post_zoom_stop(http_connection* connection, const char*, unsigned long, void*) {
  trace(kTraceApi, "zoom stop");
  orb_stop_zoom_loop();
  return send_zoom(connection);
}

int get_invert_image(http_connection* connection, const char*, unsigned long, void*) {
  return get_image(connection, kInvertImage);
}
int put_invert_image(http_connection* connection, const char* body, unsigned long length, void*) {
  return put_image(connection, body, length, kInvertImage);
}
int get_image_stabilizer(http_connection* connection, const char*, unsigned long, void*) {
  return get_image(connection, kImageStabilizer);
}
int put_image_stabilizer(http_connection* connection, const char* body, unsigned long length, void*) {
  return put_image(connection, body, length, kImageStabilizer);
}
int get_sensitivity(http_connection* connection, const char*, unsigned long, void*) {
  return get_image(connection, kSensitivity);
}
int put_sensitivity(http_connection* connection, const char* body, unsigned long length, void*) {
  return put_image(connection, body, length, kSensitivity);
}
int get_ir_filter(http_connection* connection, const char*, unsigned long, void*) {
  return get_image(connection, kIrFilter);
}
int put_ir_filter(http_connection* connection, const char* body, unsigned long length, void*) {
  return put_image(connection, body, length, kIrFilter);
}
int get_defog(http_connection* connection, const char*, unsigned long, void*) {
  return get_image(connection, kDefog);
}
int put_defog(http_connection* connection, const char* body, unsigned long length, void*) {
  return put_image(connection, body, length, kDefog);
}
