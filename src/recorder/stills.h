// The stills of a take, cut from its file at its marks.
#pragma once

#include "base/json.h"
#include "recorder/stopped_take.h"
#include "recorder/take.h"

// Cuts a still for each mark, unless it is there, and adds it to `files`. False when the store is too full
// for one: it can be made later. Recording worker.
bool make_stills(const take& t, const stopped_take& stopped, json_object* files);

// Adds the take's stills that are on the store to `files`; what is left of one that an interruption has ended
// goes. Recording worker.
void list_found_stills(const take& t, json_object* files);
