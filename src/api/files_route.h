// Requests for a job on files: {"files": [...]}. HTTP thread.
#pragma once

#include "base/json.h"

struct http_connection;

struct files_route {
  // Takes the array over with the value that owns it: 0, 1 when it is busy, -1. The array is null when the
  // body has none.
  int (*start)(json_object* list, json_owner root);
  const char* message;  // in the trace; null: none
};

// Reads the body, hands it over, and answers "OK", "BUSY" or "BAD_REQUEST".
int post_files(http_connection* connection, const char* body, unsigned long length, const files_route& route);
