// The handlers of "/api/camera/recorder", of the cached image, and of the texts for takes in "/api/setup",
// which answer "OK" always and store nothing when their member is missing. HTTP server thread.
#pragma once

#include "http/server.h"
#include "http/text_route.h"

http_handler_function post_recorder_start;
http_handler_function post_recorder_stop;
http_handler_function post_recorder_pause;
http_handler_function post_recorder_resume;
http_handler_function get_recorder_files;
http_handler_function post_recorder_copy;
http_handler_function post_recorder_delete;
http_handler_function get_image_cache;
http_handler_function post_image_cache;
http_handler_function api_get_recordings;  // version 1.0

extern const text_route title_route;
extern const text_route flow_direction_route;
extern const text_route operator_id_route;
extern const text_route filename_route;

// What the setup routes hand to the recorder besides.
extern const text_route gps_data_route;
http_handler_function get_gps_location;
http_handler_function put_gps_location;
http_handler_function get_save_delay;
http_handler_function put_save_delay;
