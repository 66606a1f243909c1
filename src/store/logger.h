// The data logger: run time, warnings, and maximum, minimum and average of seven quantities, of this run of
// the program (the session) and of the unit's life (the history). The history is saved once a minute,
// flushed, to one of two alternating files ("/home/orb/logger/log0.json", "log1.json") by a thread of its
// own.
//
// Any thread, unless it says otherwise; one lock guards the numbers and one the files. Only resets and saves
// wait for the disk.
#pragma once

#include "base/json.h"

struct ev_loop;

// Starts a session and loads the newer valid file, or an empty history and saves it. Makes the folders of the
// logger. Called once, before anybody reports.
void orb_init_logger();

// Starts the minute timer (tick_logger every 60 s, first after 60 s) and the thread that saves. Start-up.
void start_logger_timer(struct ev_loop* loop);

// The minute is over: folds its samples into session and history and asks for a save. A run counts in the
// history from its third minute. A thread that could not be started is asked for again. Never waits. Main
// thread.
void tick_logger();

// Saves the history, flushed, if a minute has asked for it: one save for all minutes that came during the one
// before. Returns when nothing that was asked for before the call is unsaved. Logger's thread; at the end of
// the daemon the main thread.
void save_logger_minute();

// Empties session, history and the minute that runs. Afterwards only the empty history is stored, before the
// call returns; a save that fails is traced and made up for by the next minute's. Returns 0. Waits for the
// disk: not on the main loop.
int orb_reset_logger();

// Resets while the external stick carries "orb_log_reset.txt". Waits for the disks. Stick's thread.
void orb_check_logger_reset();

// Adds session and history as texts, in the order in which the API lists them. False when memory has run out.
bool add_logger_texts(json_object* readings);

// Each adds one, to the session's and the history's count; both stay at 65535.
void orb_report_logger_height_motor_warning();
void orb_report_logger_tilt_motor_warning();
void orb_report_logger_pan_motor_warning();
void orb_report_logger_high_temperature_warning();
void orb_report_logger_high_pressure_warning();
void orb_report_logger_high_humidity_warning();
void orb_report_logger_invalid_camera_cpu_temperature();
void orb_report_logger_invalid_camera_fpga_temperature();
void orb_report_logger_invalid_camera_lens_temperature();

// Samples, at any rate; one that is not finite is ignored.
void orb_report_logger_up_temperature(double value);  // upper housing; degrees Celsius, as the next four
void orb_report_logger_camera_cpu_temperature(double value);
void orb_report_logger_camera_fpga_temperature(double value);
void orb_report_logger_camera_lens_temperature(double value);
void orb_report_logger_psb_temperature(double value);    // power supply board
void orb_report_logger_internal_humidity(double value);  // percent
void orb_report_logger_internal_pressure(double value);  // millibar
