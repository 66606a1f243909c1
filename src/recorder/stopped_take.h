// What a take was when it was stopped: the texts of its metadata, and its marks. Kept on the internal store
// until the take is complete, because its completion may come after a power cut, and when texts and marks are
// already the next take's.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "xmp/xmp.h"

struct stopped_take {
  orb_xmp_fields texts;              // without what each file has of its own: date, time and note
  std::vector<std::string> offsets;  // lines of the marks
  std::vector<std::string> notes;    // in step with them
};

// The texts as they were at the last stop, and the marks as they stand. Whoever calls it holds the recorder's
// `notes_lock`.
stopped_take last_stopped_take();

std::string stopped_take_path(const std::string& guid);

// False when it could not be written; it is on the disk else.
bool save_stopped_take(const std::string& guid, const stopped_take& stopped);

// Nothing for a take that was not stopped in order.
std::optional<stopped_take> load_stopped_take(const std::string& guid);
