#include "sim/board/format.h"

#include <cstdarg>
#include <cstdio>

std::string format_text(const char* format, ...) {
  char text[256] = "";
  va_list arguments;
  va_start(arguments, format);
  // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized): it is, one line above
  vsnprintf(text, sizeof text, format, arguments);
  va_end(arguments);
  return text;
}
