#include "base/text.h"

#include <algorithm>
#include <cstring>

void copy_text(char* destination, size_t size, std::string_view text) {
  if (size == 0) return;
  const size_t length = std::min(size - 1, text.size());
  if (length != 0) memcpy(destination, text.data(), length);
  destination[length] = '\0';
}
