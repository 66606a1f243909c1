// The power board's HTTP handlers: drives, heights, laser, lights and diagnostics of the link. HTTP server
// thread.
#pragma once

#include "http/server.h"

// Version-1.0 API: motors, lights, laser supply.
http_handler_function api_post_orb;
http_handler_function api_get_lighting;
http_handler_function api_post_lighting;
http_handler_function api_post_laser;

http_handler_function get_led_mode;
http_handler_function put_led_mode;
http_handler_function post_high_beam_on;
http_handler_function post_high_beam_off;
http_handler_function get_led_intensity;
http_handler_function put_led_intensity;
http_handler_function post_led_intensity_increment;
http_handler_function post_led_intensity_decrement;
http_handler_function post_led_intensity_stop;

http_handler_function get_high_beam_time;
http_handler_function put_high_beam_time;

http_handler_function get_laser_status;
http_handler_function get_laser_distance;
http_handler_function get_laser_speed;
http_handler_function put_laser_speed;
http_handler_function get_laser_mode;
http_handler_function put_laser_mode;
http_handler_function post_laser_execute;

http_handler_function post_tilt_increment;
http_handler_function post_tilt_decrement;
http_handler_function post_motor_stop;
http_handler_function post_drive_increment;  // mast or pan
http_handler_function post_drive_decrement;
http_handler_function post_height_findhome;
http_handler_function get_height_extension;
http_handler_function put_height_extension;
http_handler_function get_height_preset;
http_handler_function put_height_preset;

http_handler_function get_readings;
http_handler_function get_read_command;
http_handler_function put_read_command;
http_handler_function post_suspend;
http_handler_function post_resume;
http_handler_function post_trigger;
http_handler_function post_write;
http_handler_function put_zero_buffer;
