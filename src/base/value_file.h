// Small files that each hold one current value for other local programs ("/tmp/zoom_speed" and its like): a
// decimal number or a word, without a newline. A reader in another thread or program never sees a
// half-written value. Any thread.
#pragma once

#include <cstddef>
#include <optional>

// The number at the start of the file's first characters, at most 18 of them (as strtol reads, kept inside an
// int); nothing when the file cannot be opened or does not begin with a number.
std::optional<int> read_value_file(const char* path, size_t characters = 14);

// False when the file could not be written; it then holds what it held.
bool write_value_file(const char* path, int value);
bool write_value_file(const char* path, const char* word);
