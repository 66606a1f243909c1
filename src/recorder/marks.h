// Marks: the moments of a running take that become stills when it has ended. Any thread; a mark waits for the
// writes of other marks and notes only.
#pragma once

#include <cstdint>
#include <string>

// Marks this moment, which with the save delay is cut from the take, with the note that waits for the next
// mark. -1 unless a take records and is not paused, or when the store is full.
int orb_save_recorder_image();

// Takes the last mark and its note back. -1 unless a take records, is not paused and has a mark.
int orb_remove_recorder_image();

// How far into a take its mark is, as it is written: "HH:MM:SS.mmm".
std::string mark_offset_text(int64_t offset_ns);
