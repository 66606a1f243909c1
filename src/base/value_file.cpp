#include "base/value_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdio>

#include "base/clock.h"
#include "base/file.h"
#include "base/text.h"

namespace {

constexpr int64_t kRecent_ns = 1000 * kNanosecondsPerMillisecond;

std::atomic<uint32_t> write_count = 0;

}  // namespace

std::optional<int> read_value_file(const char* path, size_t characters) {
  constexpr size_t kReadLimit = 18;
  const unique_fd fd(open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  if (!fd) return std::nullopt;
  char text[kReadLimit + 1] = "";
  if (read(fd.get(), text, std::min(characters, kReadLimit)) < 0) return std::nullopt;
  return leading_number(text);
}

int read_recent_value(recent_value* recent) {
  const int64_t now = monotonic_ns();
  const uint32_t writes = write_count;
  if (recent->read_ns == 0 || now - recent->read_ns > kRecent_ns || writes != recent->writes) {
    recent->value = read_value_file(recent->path).value_or(recent->missing);
    recent->read_ns = now;
    recent->writes = writes;
  }
  return recent->value;
}

bool write_value_file(const char* path, int value) {
  char text[16];
  snprintf(text, sizeof text, "%d", value);
  return write_value_file(path, text);
}

bool write_value_file(const char* path, const char* word) {
  char temporary[128];
  snprintf(temporary, sizeof temporary, "%s.%d", path, gettid());
  const bool is_written = replace_file(path, temporary, word, flushed::no);
  ++write_count;
  return is_written;
}
