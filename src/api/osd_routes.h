// The handlers of "/api/osd" and "/api/camera/title". HTTP server thread.
#pragma once

#include "http/server.h"
#include "osd/osd.h"

// An item that is on or off.
int send_osd_item(http_connection* connection, osd_item item);
int take_osd_item(http_connection* connection, const char* body, unsigned long length, osd_item item);

template <osd_item Item>
int get_osd_item(http_connection* connection, const char*, unsigned long, void*) {
  return send_osd_item(connection, Item);
}

template <osd_item Item>
int put_osd_item(http_connection* connection, const char* body, unsigned long length, void*) {
  return take_osd_item(connection, body, length, Item);
}

http_handler_function get_osd_color;
http_handler_function put_osd_color;
http_handler_function get_osd_dwell;
http_handler_function put_osd_dwell;

// The camera's titles directly: the overlay does not know what they change.
http_handler_function put_title_line;
http_handler_function post_title_clear_all;
http_handler_function post_title_turn_all_on;
http_handler_function post_title_turn_all_off;
http_handler_function post_title_clear_line;
http_handler_function post_title_turn_line_on;
http_handler_function post_title_turn_line_off;
