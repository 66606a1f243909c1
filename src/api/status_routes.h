// The handlers of what belongs to the unit as a whole: its setup and identity (api_setup.cpp), its status
// object (api_status.cpp), and its service (api_debug.cpp: forced warnings, shutdown, eject, trace mask).
// HTTP server thread.
#pragma once

#include "api/forced_warnings.h"
#include "api/text_route.h"
#include "http/server.h"

http_handler_function get_date;
http_handler_function put_date;
http_handler_function get_time;
http_handler_function put_time;
extern const text_route ssid_route;
extern const text_route language_route;
extern const text_route battery_type_route;
extern const text_route units_route;
http_handler_function get_password;
http_handler_function put_password;
http_handler_function get_model;
http_handler_function get_serial_number;
http_handler_function get_status;
http_handler_function get_versions;

http_handler_function post_eject;
http_handler_function post_shutdown;

// A warning that a service client forces on.
int send_debug_flag(http_connection* connection, debug_warning warning);
int take_debug_flag(http_connection* connection, const char* body, unsigned long length,
                    debug_warning warning);

template <debug_warning Warning>
int get_debug_flag(http_connection* connection, const char*, unsigned long, void*) {
  return send_debug_flag(connection, Warning);
}

template <debug_warning Warning>
int put_debug_flag(http_connection* connection, const char* body, unsigned long length, void*) {
  return take_debug_flag(connection, body, length, Warning);
}

http_handler_function get_trace_mask_value;
http_handler_function put_trace_mask_value;
