// Handlers on the synchronous VISCA client (visca/packet_client.h). The user data is the Camera. None has a
// route: each may hold its thread up for 16 s.
#pragma once

#include "http/server.h"

namespace camera_packet {

http_handler_function power_inq;          // {"cameraPowerStatus": whether the camera is on}
http_handler_function get_focus_mode;     // {"focusMode": whether it focuses by itself}
http_handler_function set_shutter_speed;  // body {"shutterSpeed": 1 to 21}
http_handler_function reset_camera;
http_handler_function get_camera_info;  // the camera's version goes to standard output
http_handler_function set_ae_auto;
http_handler_function set_ae_manual;

}  // namespace camera_packet
