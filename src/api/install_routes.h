// The handlers of "/api/install". HTTP server thread.
#pragma once

#include "http/server.h"

http_handler_function get_install_versions;
http_handler_function get_install_status;
http_handler_function post_install_software;
http_handler_function post_install_firmware;
http_handler_function post_install_camera;
