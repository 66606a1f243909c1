// The handlers of "/api/camera/recorder", of the cached image, and of the texts for takes in "/api/setup",
// which answer "OK" always and store nothing when their member is missing. HTTP server thread.
#pragma once

#include "api/text_route.h"
#include "http/server.h"

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
http_handler_function post_recorder_save;
http_handler_function post_recorder_remove;

// Metadata is answered also when there is none: its texts are empty then.
http_handler_function get_video_metadata;
http_handler_function put_video_note;
http_handler_function get_image_metadata;
http_handler_function put_image_note;
http_handler_function post_file_metadata;
http_handler_function put_file_note;

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
