// The HTTP handlers of "/api/magnetometer/calibration". HTTP server thread.
#pragma once

#include "http/server.h"

http_handler_function get_calibration;
http_handler_function put_calibration;
