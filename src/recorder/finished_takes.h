// The files of finished takes: the jobs that copy and delete them (usb/stored_files.h).
// Any thread.
#pragma once

#include "base/json.h"

struct stored_files;

// Removes what a power cut has left half-written beside guid, descriptions and captions, and what is kept of
// takes that are none any more, and starts the workers. Before any of those is written.
void start_take_file_workers();

// Where they are kept.
const stored_files& take_files();

// Copies the files that `list` names ({"name"} each) to the external stick. `root` owns the list and goes
// when the job has ended or is refused. 0 when the worker has taken it, 1 when it is busy, -1 without a list
// or a stick.
int orb_copy_recorder_files(json_object* list, json_owner root);

// Deletes files ({"parent_id", "name"} each): an MP4 with its caption, and the entry in the description of
// the take `parent_id`, which goes with its last one. What belongs to a take that is not complete yet stays.
// 0, 1 and -1 as above.
int orb_delete_recorder_files(json_object* list, json_owner root);
