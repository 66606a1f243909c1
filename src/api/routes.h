// The groups of the API's routes, each at the end of its file.
#pragma once

#include "api/route.h"

extern const route_group version_1_routes;
extern const route_group setup_routes;
extern const route_group status_routes;
extern const route_group install_routes;
extern const route_group led_routes;
extern const route_group camera_routes;
extern const route_group title_routes;
extern const route_group recorder_routes;
extern const route_group laser_routes;
extern const route_group magnetometer_routes;
extern const route_group motor_routes;
extern const route_group osd_routes;
extern const route_group seat_routes;
extern const route_group logger_routes;
extern const route_group service_routes;
extern const route_group power_board_routes;
extern const route_group trace_routes;

// All of them, in the order in which they are registered. Any thread.
std::span<const route_group* const> route_groups();
