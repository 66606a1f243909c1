#include "recorder/mark_files.h"

#include <fcntl.h>

#include <cerrno>
#include <cstring>

#include "base/file.h"
#include "base/trace.h"

namespace {

constexpr int64_t kSizeLimit = 1 << 22;  // thousands of marks, each with the longest note

std::optional<std::string> content_of(const line_file& file) { return read_file(file.path, kSizeLimit); }

// Where the last line begins that ends with a newline.
std::optional<size_t> start_of_last_line(const std::string& content) {
  const size_t end = content.rfind('\n');
  if (end == std::string::npos) return std::nullopt;
  return end == 0 ? 0 : content.rfind('\n', end - 1) + 1;  // the line before may be missing: npos + 1 is 0
}

void trace_lines(const line_file& file, const char* prefix, const std::string& content) {
  size_t start = 0;
  for (size_t end = 0; (end = content.find('\n', start)) != std::string::npos; start = end + 1)
    trace(kTraceRecorder, "%s%s newline %ld %ld", prefix, file.noun, static_cast<long>(start),
          static_cast<long>(end));
}

}  // namespace

int64_t append_line(const line_file& file, std::string_view line) {
  const unique_fd fd(open(file.path, O_WRONLY | O_APPEND | O_CLOEXEC | O_NONBLOCK));
  const int64_t length = fd ? lseek(fd.get(), 0, SEEK_END) : -1;
  const auto added = static_cast<int64_t>(line.size() + 1);
  if (length >= 0 && length + added > kSizeLimit) errno = EFBIG;
  if (length < 0 || length + added > kSizeLimit) return -1;
  if (write_all(fd.get(), std::string(line) + "\n")) return length + added;
  const int error = errno;
  [[maybe_unused]] const int undone = ftruncate(fd.get(), length);
  errno = error;
  return -1;
}

std::optional<std::string> last_line(const line_file& file) {
  const std::string content = content_of(file).value_or("");
  const std::optional<size_t> start = start_of_last_line(content);
  if (!start) return std::nullopt;
  return content.substr(*start, content.find('\n', *start) - *start);
}

bool cut_last_line(const line_file& file, cut purpose) {
  const std::optional<std::string> content = content_of(file);
  if (!content) return false;
  trace_lines(file, purpose == cut::removes ? "remove " : "", *content);
  const std::optional<size_t> start = start_of_last_line(*content);
  if (!start) return false;
  trace(kTraceRecorder, "remove %s to %ld", file.noun, static_cast<long>(*start));
  if (truncate(file.path, static_cast<off_t>(*start)) == 0) return true;
  const int error = errno;
  trace(kTraceRecorder, "%s %s failure %d '%s'", purpose == cut::removes ? "remove" : "replace", file.noun,
        error, strerror(error));
  return false;
}

std::optional<std::vector<std::string>> read_lines(const line_file& file) {
  const std::optional<std::string> content = content_of(file);
  if (!content) return std::nullopt;
  std::vector<std::string> lines;
  size_t start = 0;
  for (size_t end = 0; (end = content->find('\n', start)) != std::string::npos; start = end + 1)
    lines.push_back(content->substr(start, end - start));
  if (start < content->size()) lines.push_back(content->substr(start));
  return lines;
}
