#include "api/routes.h"

namespace {

constexpr const route_group* kGroups[] = {
    &version_1_routes,     // /api/1.0
    &setup_routes,         // /api/setup
    &status_routes,        // /api/model, serial_number, status, versions
    &install_routes,       // /api/install
    &led_routes,           // /api/led
    &camera_routes,        // /api/camera: exposure, focus, zoom, image settings
    &title_routes,         // /api/camera/title
    &recorder_routes,      // /api/camera/recorder, /api/camera/imagecache
    &laser_routes,         // /api/laser
    &magnetometer_routes,  // /api/magnetometer
    &motor_routes,         // /api/motor, /api/height
    &osd_routes,           // /api/osd
    &seat_routes,          // /api/seats
    &logger_routes,        // /api/logger
    &service_routes,       // /api/eject, shutdown, debug
    &power_board_routes,   // /api/power_board
    &trace_routes,         // /api/trace
};

}  // namespace

constinit http_lane store_lane{"api-store"};
constinit http_lane files_lane{"api-files"};

std::span<const route_group* const> route_groups() { return kGroups; }
