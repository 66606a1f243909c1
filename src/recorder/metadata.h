// What is told about takes and stills: their notes, and the metadata that is written into them. A note is one
// line of at most 510 bytes; what is longer is cut, and of several lines the first counts. Any thread.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "xmp/xmp.h"

inline constexpr size_t kNoteLimit = 511;  // bytes of a note with its newline

// Of the running take, else of the next one as it would be now.
void orb_load_recorder_video_metadata(orb_xmp_fields* fields);

// Of the last mark of the running take, or of the next one.
void orb_load_recorder_image_metadata(orb_xmp_fields* fields);

// The metadata in a file; -1, and an empty record, when it has none.
int orb_load_recorder_file_metadata(const char* path, orb_xmp_fields* fields);

// The note of the running take, else of the next one. -1 when it cannot be written.
int orb_set_recorder_video_note(const char* text);

// The note of the running take's last mark, else of the next mark. -1 when it cannot be written.
int orb_set_recorder_image_note(const char* text);

// Replaces the note (at most 512 bytes) in a file that has metadata. -1 when it has none, cannot be written,
// or another file's metadata is being written; also after the start, until interrupted takes have been
// completed.
int orb_set_recorder_file_note(const char* path, const char* text);

// The note that waits in a file for the next take or mark, one line without its newline; "" without one.
std::string waiting_note(const char* path);

// The texts and the location that hold now, as metadata.
orb_xmp_fields metadata_texts_now();

// The metadata of a take or still.
orb_xmp_fields make_metadata(orb_xmp_fields texts, std::string_view start_time, std::string_view note);
