// Log files: the logger's readings of a moment, kept on the USB store, "log_2026-03-09-14-05-59.json".
#pragma once

#include <string>

#include "base/json.h"

// Removes what a power cut has left half-written, and starts the workers that copy and delete log files. Main
// thread, at the start.
void start_log_file_workers();

// Writes the readings of now to a new log file: 0, or -1 when they cannot be made or written. One at a time.
int orb_create_logger_file();

// Every log file with where it is and how far its copy has got, as the text of a JSON array. Any thread, like
// the rest.
std::string orb_get_logger_files();

// The object in a log file; an empty one when there is no such file or it holds none.
json_owner orb_get_logger_file_readings(const std::string& name);

// As the operations of takes (recorder/finished_takes.h).
int orb_copy_logger_files(json_object* list, json_owner root);
int orb_delete_logger_files(json_object* list, json_owner root);
