// The handlers of "/api/logger". HTTP server thread.
#pragma once

#include "http/server.h"

http_handler_function get_logger_readings;
http_handler_function get_log_file;
http_handler_function post_log_file;
http_handler_function post_logger_reset;
http_handler_function get_logger_files;
http_handler_function post_logger_copy;
http_handler_function post_logger_delete;
