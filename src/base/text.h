// Bounded text copies, and what text is.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

// Copies `text` into `destination` of `size` bytes: cut to size - 1 bytes, at the end of a UTF-8 character,
// and always terminated. A size of 0 writes nothing. Any thread.
void copy_text(char* destination, size_t size, std::string_view text);

// Whether `text` is valid UTF-8 (RFC 3629), as every text must be that goes into JSON.
bool is_utf8(std::string_view text);

// `text`; when it is not valid UTF-8, its ASCII with "?" for every other byte.
std::string valid_text(std::string_view text);
