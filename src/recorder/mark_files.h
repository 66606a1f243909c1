// The files of a take's marks: one line a mark, in step with each other, growing and shrinking at the end.
// Whoever touches one holds the recorder's `notes_lock`, or is alone with it.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/paths.h"

struct line_file {
  const char* path;
  const char* noun;  // of a line, in the trace
};

inline constexpr line_file kOffsets{paths::kSaveTimes, "offset"};
inline constexpr line_file kNotes{paths::kImageNotes, "note"};

// Appends the line and a newline to a file that is there. Returns the file's new length; or -1 (errno tells),
// and the file is as it was.
int64_t append_line(const line_file& file, std::string_view line);

// The last line that ends with a newline, without it; nothing when there is none.
std::optional<std::string> last_line(const line_file& file);

// Cuts that line off. False (errno tells) when there is none or it cannot be cut. The trace tells each line
// up to it by where it begins and where its newline is; `replaces`: it is about to be written anew.
enum class cut : bool { removes, replaces };
bool cut_last_line(const line_file& file, cut purpose);

// Every line without its newline; nothing when the file cannot be read.
std::optional<std::vector<std::string>> read_lines(const line_file& file);
