#include "api/packet_routes.h"

#include <optional>

#include "http/json_body.h"
#include "http/response.h"
#include "visca/packet_client.h"

namespace {

// Whether the camera has obeyed is not known: its replies are only logged.
int perform(http_connection* connection, void* camera, void (Camera::*operation)()) {
  (static_cast<Camera*>(camera)->*operation)();
  return send_status(connection, true);
}

}  // namespace

namespace camera_packet {

int power_inq(http_connection* connection, const char*, unsigned long, void* camera) {
  return send_flag(connection, "cameraPowerStatus", static_cast<Camera*>(camera)->CAM_powerInq());
}

int get_focus_mode(http_connection* connection, const char*, unsigned long, void* camera) {
  return send_flag(connection, "focusMode", static_cast<Camera*>(camera)->CAM_focusModeInq());
}

int set_shutter_speed(http_connection* connection, const char* body, unsigned long length, void* camera) {
  const json_owner object = read_json_body(connection, body, length);
  const std::optional<int> speed = body_integer(object.get(), "shutterSpeed");
  if (speed) static_cast<Camera*>(camera)->CAM_shutterSpeed(*speed);
  return send_status(connection, speed.has_value());
}

int reset_camera(http_connection* connection, const char*, unsigned long, void* camera) {
  return perform(connection, camera, &Camera::CAM_cameraReset);
}

int get_camera_info(http_connection* connection, const char*, unsigned long, void* camera) {
  return perform(connection, camera, &Camera::CAM_versionInq);
}

int set_ae_auto(http_connection* connection, const char*, unsigned long, void* camera) {
  return perform(connection, camera, &Camera::CAM_AEAuto);
}

int set_ae_manual(http_connection* connection, const char*, unsigned long, void* camera) {
  return perform(connection, camera, &Camera::CAM_AEManual);
}

}  // namespace camera_packet
