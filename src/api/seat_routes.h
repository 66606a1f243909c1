// The seats' HTTP handlers. HTTP server thread.
#pragma once

#include "http/server.h"

http_handler_function get_observer_seats;
http_handler_function put_observer_seats;
http_handler_function post_seat_request;
http_handler_function post_seat_update;
