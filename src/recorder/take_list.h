// The listings of finished takes: every file that a folder's descriptions tell of, as the text of a JSON
// array. A description is read again only when it has changed, so a thousand takes of five files take some
// milliseconds; each file's place and size are those of now. Any thread; waits for the stores.
#pragma once

#include <string>

// Of the USB store, with where each file is and how far its copy has got.
std::string orb_get_recorder_files();

// The same of the older store, as version 1.0 of the API lists it: numbers, and a first store before it.
std::string list_recordings();
