// A record kept in two JSON files that are written in turn, so that a power cut during a save never destroys
// the last good copy. Each file holds "previous_id" (the generation that it replaced), "current_id" (its own)
// and a closing "values_valid": 1. The caller's lock guards the state.
#pragma once

#include <cstdint>

#include "base/json.h"

struct alternating_file {
  const char* path[2];
  int live = 0;  // the file that holds the live record
  int32_t previous_id = -1;
  int32_t current_id = 0;
};

// Reads both files and returns the newer valid one, with the ids and `live` set; null when neither is valid,
// with the ids and `live` at their start values. File 1 is the newer one exactly when it was saved over file
// 0's generation.
json_owner load_alternating_file(alternating_file* files);

// Saves `values` (an object without the ids; the marks are added here, the values taken over) to the file
// that is not live, flushed. Only after that do the ids and `live` move on. Returns 0, -1 when the file could
// not be written, or -2 when the object could not be built; the state is then unchanged.
int save_alternating_file(alternating_file* files, json_object* values);

// The same as the first generation of a new chain, to which nothing older belongs: after the save the other
// file is removed, flushed. It would else be the newer one of the two whenever the chain has no link to it.
// -1 also when only the removal failed; the new chain then stands, and its next save takes that file's place.
int restart_alternating_file(alternating_file* files, json_object* values);
