#include "base/value_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>

#include "base/file.h"
#include "base/text.h"

std::optional<int> read_value_file(const char* path, size_t characters) {
  constexpr size_t kReadLimit = 18;
  const unique_fd fd(open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  if (!fd) return std::nullopt;
  char text[kReadLimit + 1] = "";
  if (read(fd.get(), text, std::min(characters, kReadLimit)) < 0) return std::nullopt;
  return leading_number(text);
}

bool write_value_file(const char* path, int value) {
  char text[16];
  snprintf(text, sizeof text, "%d", value);
  return write_value_file(path, text);
}

bool write_value_file(const char* path, const char* word) {
  char temporary[128];
  snprintf(temporary, sizeof temporary, "%s.%d", path, gettid());
  return replace_file(path, temporary, word, flushed::no);
}
