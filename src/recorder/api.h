// The handlers of "/api/camera/recorder", and of the texts for takes in "/api/setup", which answer "OK"
// always and store nothing when their member is missing. HTTP server thread.
#pragma once

#include "http/server.h"

http_handler_function post_recorder_start;
http_handler_function post_recorder_stop;
http_handler_function post_recorder_pause;
http_handler_function post_recorder_resume;

http_handler_function get_title;
http_handler_function put_title;
http_handler_function get_flow_direction;
http_handler_function put_flow_direction;
http_handler_function get_operator_id;
http_handler_function put_operator_id;
http_handler_function get_filename;
http_handler_function put_filename;
