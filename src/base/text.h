// Bounded text copies.
#pragma once

#include <cstddef>
#include <string_view>

// Copies `text` into `destination` of `size` bytes: cut to size - 1 characters and always terminated. A size
// of 0 writes nothing. Any thread.
void copy_text(char* destination, size_t size, std::string_view text);
