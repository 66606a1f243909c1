// Requests for a job on files: {"files": [...]}. HTTP server thread.
#pragma once

#include "base/json.h"

struct http_connection;

// An operation that takes the array over with the value that owns it: 0, 1 when it is busy, -1. The array is
// null when the body has none.
using files_job = int(json_object* list, json_owner root);

// Reads the body, hands it over, and answers "OK", "BUSY" or "BAD_REQUEST". Returns 0, the result of a
// handler.
int hand_files_over(http_connection* connection, const char* body, unsigned long length, files_job* job);
