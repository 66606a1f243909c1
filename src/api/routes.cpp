#include "api/routes.h"

#include <algorithm>
#include <string_view>

#include "api/camera_routes.h"
#include "api/install_routes.h"
#include "api/logger_routes.h"
#include "api/magnetometer_routes.h"
#include "api/osd_routes.h"
#include "api/power_board_routes.h"
#include "api/recorder_routes.h"
#include "api/seat_routes.h"
#include "api/status_routes.h"
#include "base/clock.h"
#include "base/paths.h"
#include "base/trace.h"
#include "base/value_file.h"
#include "camera/speeds.h"
#include "power_board/lighting.h"
#include "seats/seats.h"
#include "visca/camera_thread.h"

namespace {

constexpr int kEventWait_ms = 100;

// The port lies among those that the kernel gives to outgoing connections, so something may hold it for a
// moment at start; a unit without its API would be of no use until the next start.
constexpr int kStartAttempts = 10;
constexpr int64_t kStartPause_ms = 500;

constexpr http_route_row kRoutes[] = {
    {"GET", "/api/1.0/orb", api_get_orb, &visca_thread_data},
    {"POST", "/api/1.0/orb", api_post_orb, nullptr},
    {"GET", "/api/1.0/camera/zoom", api_get_camera_zoom, &visca_thread_data},
    {"GET", "/api/1.0/camera/focus", api_get_camera_focus, &visca_thread_data},
    {"GET", "/api/1.0/camera", api_get_camera, &visca_thread_data},
    {"POST", "/api/1.0/camera", api_post_camera, &visca_thread_data},
    {"GET", "/api/1.0/video", api_get_video, nullptr},
    {"POST", "/api/1.0/video", api_post_video, nullptr},
    {"GET", "/api/1.0/lighting", api_get_lighting, nullptr},
    {"POST", "/api/1.0/lighting", api_post_lighting, nullptr},
    {"GET", "/api/1.0/recordings", api_get_recordings, nullptr},
    {"POST", "/api/1.0/laser/enable", api_post_laser, nullptr},
    {"POST", "/api/1.0/laser/disable", api_post_laser, nullptr},

    {"GET", "/api/setup/date", get_date, nullptr},
    {"PUT", "/api/setup/date", put_date, nullptr},
    {"GET", "/api/setup/time", get_time, nullptr},
    {"PUT", "/api/setup/time", put_time, nullptr},
    {"GET", "/api/setup/title", get_text<title_route>, nullptr},
    {"PUT", "/api/setup/title", put_text<title_route>, nullptr},
    {"GET", "/api/setup/flow_direction", get_text<flow_direction_route>, nullptr},
    {"PUT", "/api/setup/flow_direction", put_text<flow_direction_route>, nullptr},
    {"GET", "/api/setup/operator_id", get_text<operator_id_route>, nullptr},
    {"PUT", "/api/setup/operator_id", put_text<operator_id_route>, nullptr},
    {"GET", "/api/setup/filename", get_text<filename_route>, nullptr},
    {"PUT", "/api/setup/filename", put_text<filename_route>, nullptr},
    {"GET", "/api/setup/gps_data", get_text<gps_data_route>, nullptr},
    {"PUT", "/api/setup/gps_data", put_text<gps_data_route>, nullptr},
    {"GET", "/api/setup/gps_location", get_gps_location, nullptr},
    {"PUT", "/api/setup/gps_location", put_gps_location, nullptr},
    {"GET", "/api/setup/ssid", get_text<ssid_route>, nullptr},
    {"PUT", "/api/setup/ssid", put_text<ssid_route>, nullptr},
    {"GET", "/api/setup/password", get_password, nullptr},
    {"PUT", "/api/setup/password", put_password, nullptr},
    {"GET", "/api/setup/observer_seats", get_observer_seats, nullptr},
    {"PUT", "/api/setup/observer_seats", put_observer_seats, nullptr},
    {"GET", "/api/setup/language", get_text<language_route>, nullptr},
    {"PUT", "/api/setup/language", put_text<language_route>, nullptr},
    {"GET", "/api/setup/battery_type", get_text<battery_type_route>, nullptr},
    {"PUT", "/api/setup/battery_type", put_text<battery_type_route>, nullptr},
    {"GET", "/api/setup/save_delay", get_save_delay, nullptr},
    {"PUT", "/api/setup/save_delay", put_save_delay, nullptr},
    {"GET", "/api/setup/high_beam_time", get_high_beam_time, nullptr},
    {"PUT", "/api/setup/high_beam_time", put_high_beam_time, nullptr},
    {"GET", "/api/setup/units", get_text<units_route>, nullptr},
    {"PUT", "/api/setup/units", put_text<units_route>, nullptr},
    {"GET", "/api/model", get_model, nullptr},
    {"GET", "/api/serial_number", get_serial_number, nullptr},
    {"GET", "/api/status", get_status, nullptr},
    {"GET", "/api/versions", get_versions, nullptr},
    {"GET", "/api/install/versions", get_install_versions, nullptr},
    {"GET", "/api/install/status", get_install_status, nullptr},
    {"POST", "/api/install/software", post_install_software, nullptr},
    {"POST", "/api/install/firmware", post_install_firmware, nullptr},
    {"POST", "/api/install/camera", post_install_camera, nullptr},

    {"GET", "/api/led/mode", get_led_mode, nullptr},
    {"PUT", "/api/led/mode", put_led_mode, nullptr},
    {"POST", "/api/led/high_beam/on", post_high_beam_on, nullptr},
    {"POST", "/api/led/high_beam/off", post_high_beam_off, nullptr},
    {"GET", "/api/led/intensity", get_led_intensity, nullptr},
    {"PUT", "/api/led/intensity", put_led_intensity, nullptr},
    {"POST", "/api/led/intensity/increment", post_led_intensity_increment, nullptr},
    {"POST", "/api/led/intensity/decrement", post_led_intensity_decrement, nullptr},
    {"POST", "/api/led/intensity/stop", post_led_intensity_stop, nullptr},

    {"GET", "/api/camera/exposure/mode", get_exposure_mode, nullptr},
    {"PUT", "/api/camera/exposure/mode", put_exposure_mode, nullptr},
    {"POST", "/api/camera/exposure/shutter/increment", post_shutter_increment, nullptr},
    {"POST", "/api/camera/exposure/shutter/decrement", post_shutter_decrement, nullptr},
    {"POST", "/api/camera/exposure/shutter/reset", post_shutter_reset, nullptr},
    {"POST", "/api/camera/exposure/shutter/stop", post_shutter_stop, nullptr},
    {"POST", "/api/camera/exposure/iris/increment", post_iris_increment, nullptr},
    {"POST", "/api/camera/exposure/iris/decrement", post_iris_decrement, nullptr},
    {"POST", "/api/camera/exposure/iris/reset", post_iris_reset, nullptr},
    {"POST", "/api/camera/exposure/iris/stop", post_iris_stop, nullptr},
    {"POST", "/api/camera/exposure/gain/increment", post_gain_increment, nullptr},
    {"POST", "/api/camera/exposure/gain/decrement", post_gain_decrement, nullptr},
    {"POST", "/api/camera/exposure/gain/reset", post_gain_reset, nullptr},
    {"POST", "/api/camera/exposure/gain/stop", post_gain_stop, nullptr},
    {"GET", "/api/camera/focus/mode", get_focus_mode, nullptr},
    {"PUT", "/api/camera/focus/mode", put_focus_mode, nullptr},
    {"GET", "/api/camera/focus/speed", get_focus_speed, nullptr},
    {"PUT", "/api/camera/focus/speed", put_focus_speed, nullptr},
    {"POST", "/api/camera/focus/speed", post_focus_speed, nullptr},
    {"GET", "/api/camera/focus/position", get_focus_position, nullptr},
    {"PUT", "/api/camera/focus/position", put_focus_position, nullptr},
    {"POST", "/api/camera/focus/increment", post_focus_increment, nullptr},
    {"POST", "/api/camera/focus/decrement", post_focus_decrement, nullptr},
    {"POST", "/api/camera/focus/stop", post_focus_stop, nullptr},
    {"POST", "/api/camera/zoom/reset", post_zoom_reset, nullptr},
    {"GET", "/api/camera/zoom/speed", get_zoom_speed, nullptr},
    {"PUT", "/api/camera/zoom/speed", put_zoom_speed, nullptr},
    {"POST", "/api/camera/zoom/speed", post_zoom_speed, nullptr},
    {"GET", "/api/camera/zoom/position", get_zoom_position, nullptr},
    {"PUT", "/api/camera/zoom/position", put_zoom_position, nullptr},
    {"POST", "/api/camera/zoom/increment", post_zoom_increment, nullptr},
    {"POST", "/api/camera/zoom/decrement", post_zoom_decrement, nullptr},
    {"POST", "/api/camera/zoom/stop", post_zoom_stop, nullptr},
    {"GET", "/api/camera/invert_image", get_invert_image, nullptr},
    {"PUT", "/api/camera/invert_image", put_invert_image, nullptr},
    {"GET", "/api/camera/image_stabilizer", get_image_stabilizer, nullptr},
    {"PUT", "/api/camera/image_stabilizer", put_image_stabilizer, nullptr},
    {"GET", "/api/camera/sensitivity", get_sensitivity, nullptr},
    {"PUT", "/api/camera/sensitivity", put_sensitivity, nullptr},
    {"GET", "/api/camera/ir_filter", get_ir_filter, nullptr},
    {"PUT", "/api/camera/ir_filter", put_ir_filter, nullptr},
    {"GET", "/api/camera/defog", get_defog, nullptr},
    {"PUT", "/api/camera/defog", put_defog, nullptr},

    {"PUT", "/api/camera/title/line", put_title_line, nullptr},
    {"POST", "/api/camera/title/clear_all", post_title_clear_all, nullptr},
    {"POST", "/api/camera/title/turn_all_on", post_title_turn_all_on, nullptr},
    {"POST", "/api/camera/title/turn_all_off", post_title_turn_all_off, nullptr},
    {"POST", "/api/camera/title/clear_line", post_title_clear_line, nullptr},
    {"POST", "/api/camera/title/turn_line_on", post_title_turn_line_on, nullptr},
    {"POST", "/api/camera/title/turn_line_off", post_title_turn_line_off, nullptr},

    {"POST", "/api/camera/recorder/start", post_recorder_start, nullptr},
    {"POST", "/api/camera/recorder/stop", post_recorder_stop, nullptr},
    {"POST", "/api/camera/recorder/pause", post_recorder_pause, nullptr},
    {"POST", "/api/camera/recorder/resume", post_recorder_resume, nullptr},
    {"POST", "/api/camera/recorder/save", post_recorder_save, nullptr},
    {"POST", "/api/camera/recorder/remove", post_recorder_remove, nullptr},
    {"GET", "/api/camera/recorder/files", get_recorder_files, nullptr},
    {"POST", "/api/camera/recorder/copy", post_recorder_copy, nullptr},
    {"POST", "/api/camera/recorder/delete", post_recorder_delete, nullptr},
    {"GET", "/api/camera/recorder/video/metadata", get_video_metadata, nullptr},
    {"PUT", "/api/camera/recorder/video/note", put_video_note, nullptr},
    {"GET", "/api/camera/recorder/image/metadata", get_image_metadata, nullptr},
    {"PUT", "/api/camera/recorder/image/note", put_image_note, nullptr},
    {"POST", "/api/camera/recorder/file/metadata", post_file_metadata, nullptr},
    {"PUT", "/api/camera/recorder/file/note", put_file_note, nullptr},
    {"GET", "/api/camera/imagecache", get_image_cache, nullptr},
    {"POST", "/api/camera/imagecache", post_image_cache, nullptr},

    {"GET", "/api/laser/status", get_laser_status, nullptr},
    {"GET", "/api/laser/distance", get_laser_distance, nullptr},
    {"GET", "/api/laser/speed", get_laser_speed, nullptr},
    {"PUT", "/api/laser/speed", put_laser_speed, nullptr},
    {"GET", "/api/laser/mode", get_laser_mode, nullptr},
    {"PUT", "/api/laser/mode", put_laser_mode, nullptr},
    {"POST", "/api/laser/execute", post_laser_execute, nullptr},

    {"GET", "/api/magnetometer/calibration", get_calibration, nullptr},
    {"PUT", "/api/magnetometer/calibration", put_calibration, nullptr},

    {"POST", "/api/motor/tilt/increment", post_tilt_increment, nullptr},
    {"POST", "/api/motor/tilt/decrement", post_tilt_decrement, nullptr},
    {"POST", "/api/motor/tilt/stop", post_motor_stop, nullptr},
    {"POST", "/api/motor/height/increment", post_drive_increment, nullptr},
    {"POST", "/api/motor/height/decrement", post_drive_decrement, nullptr},
    {"POST", "/api/motor/height/stop", post_motor_stop, nullptr},
    {"POST", "/api/motor/height/findhome", post_height_findhome, nullptr},
    {"GET", "/api/height/extension", get_height_extension, nullptr},
    {"PUT", "/api/height/extension", put_height_extension, nullptr},
    {"GET", "/api/height/preset", get_height_preset, nullptr},
    {"PUT", "/api/height/preset", put_height_preset, nullptr},
    {"POST", "/api/motor/pan/increment", post_drive_increment, nullptr},
    {"POST", "/api/motor/pan/decrement", post_drive_decrement, nullptr},
    {"POST", "/api/motor/pan/stop", post_motor_stop, nullptr},

    {"GET", "/api/osd/zoom", get_osd_item<kOsdZoom>, nullptr},
    {"PUT", "/api/osd/zoom", put_osd_item<kOsdZoom>, nullptr},
    {"GET", "/api/osd/flow_direction", get_osd_item<kOsdFlowDirection>, nullptr},
    {"PUT", "/api/osd/flow_direction", put_osd_item<kOsdFlowDirection>, nullptr},
    {"GET", "/api/osd/date_time", get_osd_item<kOsdDateTime>, nullptr},
    {"PUT", "/api/osd/date_time", put_osd_item<kOsdDateTime>, nullptr},
    {"GET", "/api/osd/compass", get_osd_item<kOsdCompass>, nullptr},
    {"PUT", "/api/osd/compass", put_osd_item<kOsdCompass>, nullptr},
    {"GET", "/api/osd/title", get_osd_item<kOsdTitle>, nullptr},
    {"PUT", "/api/osd/title", put_osd_item<kOsdTitle>, nullptr},
    {"GET", "/api/osd/operator_id", get_osd_item<kOsdOperatorId>, nullptr},
    {"PUT", "/api/osd/operator_id", put_osd_item<kOsdOperatorId>, nullptr},
    {"GET", "/api/osd/color", get_osd_color, nullptr},
    {"PUT", "/api/osd/color", put_osd_color, nullptr},
    {"GET", "/api/osd/dwell", get_osd_dwell, nullptr},
    {"PUT", "/api/osd/dwell", put_osd_dwell, nullptr},

    {"POST", "/api/seats/request", post_seat_request, nullptr},
    {"POST", "/api/seats/update", post_seat_update, nullptr},

    {"GET", "/api/logger/readings", get_logger_readings, nullptr},
    {"GET", "/api/logger/log_file", get_log_file, nullptr},
    {"POST", "/api/logger/log_file", post_log_file, nullptr},
    {"POST", "/api/logger/reset", post_logger_reset, nullptr},
    {"GET", "/api/logger/files", get_logger_files, nullptr},
    {"POST", "/api/logger/copy", post_logger_copy, nullptr},
    {"POST", "/api/logger/delete", post_logger_delete, nullptr},

    {"POST", "/api/eject", post_eject, nullptr},
    {"POST", "/api/shutdown", post_shutdown, nullptr},
    {"GET", "/api/debug/crit_temp_warning", get_debug_flag<kDebugCriticalTemperature>, nullptr},
    {"PUT", "/api/debug/crit_temp_warning", put_debug_flag<kDebugCriticalTemperature>, nullptr},
    {"GET", "/api/debug/high_temp_warning", get_debug_flag<kDebugHighTemperature>, nullptr},
    {"PUT", "/api/debug/high_temp_warning", put_debug_flag<kDebugHighTemperature>, nullptr},
    {"GET", "/api/debug/low_temp_warning", get_debug_flag<kDebugLowTemperature>, nullptr},
    {"PUT", "/api/debug/low_temp_warning", put_debug_flag<kDebugLowTemperature>, nullptr},
    {"GET", "/api/debug/high_press_warning", get_debug_flag<kDebugHighPressure>, nullptr},
    {"PUT", "/api/debug/high_press_warning", put_debug_flag<kDebugHighPressure>, nullptr},
    {"GET", "/api/debug/high_rh_warning", get_debug_flag<kDebugHighHumidity>, nullptr},
    {"PUT", "/api/debug/high_rh_warning", put_debug_flag<kDebugHighHumidity>, nullptr},
    {"GET", "/api/debug/tilt_mtr_warning", get_debug_flag<kDebugTiltMotor>, nullptr},
    {"PUT", "/api/debug/tilt_mtr_warning", put_debug_flag<kDebugTiltMotor>, nullptr},
    {"GET", "/api/debug/pan_mtr_warning", get_debug_flag<kDebugPanMotor>, nullptr},
    {"PUT", "/api/debug/pan_mtr_warning", put_debug_flag<kDebugPanMotor>, nullptr},
    {"GET", "/api/debug/height_mtr_warning", get_debug_flag<kDebugHeightMotor>, nullptr},
    {"PUT", "/api/debug/height_mtr_warning", put_debug_flag<kDebugHeightMotor>, nullptr},

    {"GET", "/api/power_board/readings", get_readings, nullptr},
    {"GET", "/api/power_board/read_command", get_read_command, nullptr},
    {"PUT", "/api/power_board/read_command", put_read_command, nullptr},
    {"POST", "/api/power_board/suspend", post_suspend, nullptr},
    {"POST", "/api/power_board/resume", post_resume, nullptr},
    {"POST", "/api/power_board/trigger", post_trigger, nullptr},
    {"POST", "/api/power_board/write", post_write, nullptr},
    {"PUT", "/api/power_board/zero_buffer", put_zero_buffer, nullptr},

    {"GET", "/api/trace/mask", get_trace_mask_value, nullptr},
    {"PUT", "/api/trace/mask", put_trace_mask_value, nullptr},
};

// A row that goes missing takes its requests to another route without a word, so the table is counted.
struct route_counts {
  size_t get, put, post;
  bool operator==(const route_counts&) const = default;
};

constexpr size_t count_rows(std::string_view method) {
  return static_cast<size_t>(
      std::ranges::count_if(kRoutes, [=](const http_route_row& row) { return row.method == method; }));
}

constexpr route_counts kRouteCounts{75, 57, 74};

static_assert(route_counts{count_rows("GET"), count_rows("PUT"), count_rows("POST")} == kRouteCounts);
static_assert(std::size(kRoutes) == kRouteCounts.get + kRouteCounts.put + kRouteCounts.post);

// The current values that other programs read start afresh with the daemon.
void prepare_shared_state() {
  init_seats();
  init_lighting();
  write_value_file(paths::kIntensity, kStartIntensity);
  write_value_file(paths::kFocusSpeed, kDefaultFocusSpeed);
  write_value_file(paths::kZoomSpeed, kDefaultZoomSpeed);
}

http_server* start_server() {
  for (int attempt = 1;; ++attempt) {
    http_server* server = http_server_init(addresses::kApiPort, kHttpConnections);
    if (server != nullptr || attempt == kStartAttempts) return server;
    sleep_ms(kStartPause_ms);
  }
}

}  // namespace

std::span<const http_route_row> http_routes() { return kRoutes; }

int http_server_thread() {
  trace(kTraceHttpServer, "thread start");
  http_server* server = start_server();
  if (server == nullptr) return -1;
  prepare_shared_state();
  for (const http_route_row& row : kRoutes) {
    http_server_register_handler(server, row.method, row.path, row.handler, nullptr, row.user_data);
  }
  for (;;) {
    if (http_server_process_events(server, kEventWait_ms) != 0) sleep_ms(kEventWait_ms);
  }
}
