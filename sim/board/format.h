#pragma once

#include <string>

// printf into a string; what is longer than 255 bytes is cut.
__attribute__((format(printf, 1, 2))) std::string format_text(const char* format, ...);
