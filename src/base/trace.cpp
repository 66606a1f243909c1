#include "base/trace.h"

#include <fcntl.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "base/clock.h"
#include "base/file.h"
#include "base/mutex.h"
#include "base/paths.h"
#include "base/text.h"
#include "base/thread.h"

namespace {

constexpr std::array kTags{
    "SUPV: ", "CPNG: ", "CPST: ", "ITLP: ", "HAPI: ", "PWRB: ", "VSIO: ", "FSLP: ", "ZMLP: ",
    "RCDR: ", "ISTR: ", "OSDP: ", "CMRA: ", "NVPC: ", "LGGR: ", "HTMT: ", "PBRF: ", "HSRV: "};
static_assert(kTags.size() == kTraceHttpServer + 1);

constexpr size_t kLineSize = 512;
constexpr size_t kMessageSize = 494;  // tag and message, with the terminator
constexpr size_t kSuffixSize = 32;
constexpr size_t kMaskCharacters = 14;
constexpr long kRowBytes = 16;
constexpr size_t kBacklogSize = 1 << 18;
constexpr int64_t kDrain_ns = 1000 * kNanosecondsPerMillisecond;

// Lines on their way to the stick.
struct backlog {
  size_t used = 0;
  unsigned lost = 0;  // lines that found no room
  char text[kBacklogSize];
};

mutex trace_lock;
char line[kLineSize] GUARDED_BY(trace_lock);
char suffix[kSuffixSize] GUARDED_BY(trace_lock);
backlog waiting GUARDED_BY(trace_lock);
bool has_writer GUARDED_BY(trace_lock) = false;
bool is_writing GUARDED_BY(trace_lock) = false;
condition line_added;
condition lines_written;
backlog written;  // the writer's own copy

// Set once by init_trace; read without the lock by every call, so that a disabled call stays two tests.
std::atomic<FILE*> stream = nullptr;
std::atomic<uint32_t> mask = 0;

bool is_enabled(int level) {
  return stream.load(std::memory_order_acquire) != nullptr &&
         (mask.load(std::memory_order_relaxed) >> (static_cast<unsigned>(level) % 32) & 1) != 0;
}

const char* tag_of(int level) {
  if (level == kTraceMaskMonitor) return "TMSK: ";
  return level >= 0 && static_cast<size_t>(level) < kTags.size() ? kTags[static_cast<size_t>(level)] : "";
}

void format_suffix() REQUIRES(trace_lock) {
  timeval now{};
  gettimeofday(&now, nullptr);
  const tm local = local_time(now.tv_sec);
  snprintf(suffix, sizeof suffix, " [%02d:%02d:%02d.%03d]", local.tm_hour, local.tm_min, local.tm_sec,
           static_cast<int>(now.tv_usec / 1000));
}

void add_to_backlog() REQUIRES(trace_lock) {
  const size_t length = strlen(line);
  if (waiting.used + length > sizeof waiting.text) {
    ++waiting.lost;
    return;
  }
  memcpy(waiting.text + waiting.used, line, length);
  waiting.used += length;
  line_added.signal();
}

void put_line() REQUIRES(trace_lock) {
  if (has_writer) return add_to_backlog();
  FILE* out = stream.load(std::memory_order_relaxed);
  fputs(line, out);
  fflush(out);
}

// What a message tells may come from the network: its control characters become dots. A newline that ends the
// format is the caller's own.
void mend_message(char* message, const char* format) {
  size_t length = strlen(message);
  if (std::string_view(format).ends_with('\n') && std::string_view(message).ends_with('\n')) --length;
  std::replace_if(message, message + length, is_control, '.');
}

void take_backlog() {
  const mutex_lock lock(trace_lock);
  is_writing = false;
  lines_written.signal();
  while (waiting.used == 0) line_added.wait(trace_lock);
  is_writing = true;
  memcpy(written.text, waiting.text, waiting.used);
  written.used = std::exchange(waiting.used, 0);
  written.lost = std::exchange(waiting.lost, 0);
}

// Others must not keep it from the processor while it holds the lock: the board's thread traces, too.
void* write_lines(void*) {
  run_before_others();
  FILE* out = stream.load(std::memory_order_acquire);
  for (;;) {
    take_backlog();
    fwrite(written.text, 1, written.used, out);
    if (written.lost != 0) fprintf(out, "%u lines lost\n", written.lost);
    fflush(out);
  }
}

void write_line(const char* tag, const char* format, va_list arguments) {
  const mutex_lock lock(trace_lock);
  format_suffix();
  size_t used = strlen(tag);
  copy_text(line, sizeof line, tag);
  vsnprintf(line + used, kMessageSize - used, format, arguments);
  mend_message(line + used, format);
  used = strlen(line);
  snprintf(line + used, sizeof line - used, "%s\n", suffix);
  put_line();
}

// The line that is written whatever the mask: at the start and at every change.
void put_mask_line(const char* word) REQUIRES(trace_lock) {
  format_suffix();
  snprintf(line, sizeof line, "%s mask 0x%08X%s\n", word, mask.load(std::memory_order_relaxed), suffix);
  put_line();
}

// Takes the mask from the first line of its file. A text that does not parse leaves the mask as it is. False
// when the file cannot be read.
bool read_mask_file() {
  const std::optional<std::string> text = read_first_line(paths::kTraceMask, kMaskCharacters);
  if (!text) return false;
  unsigned value = 0;
  // %X takes an optional 0x; an over-long number wraps, which only ever selects other levels.
  if (sscanf(text->c_str(), "%X", &value) == 1) {  // NOLINT(cert-err34-c)
    mask.store(value, std::memory_order_relaxed);
  }
  return true;
}

void announce_mask() {
  const mutex_lock lock(trace_lock);
  if (stream.load(std::memory_order_relaxed) != nullptr) put_mask_line("modify");
}

void take_mask_change() {
  trace(kTraceMaskMonitor, "modified");
  if (read_mask_file()) announce_mask();
}

void* monitor_mask(void*) {
  const unique_fd monitor(inotify_init1(IN_CLOEXEC));
  trace(kTraceMaskMonitor, "monitor fd %d", monitor.get());
  if (!monitor) return nullptr;
  if (inotify_add_watch(monitor.get(), paths::kTraceMask, IN_MODIFY | IN_CREATE) < 0) return nullptr;
  const uint32_t known = get_trace_mask();
  read_mask_file();  // once more: it may have changed before it was watched
  if (get_trace_mask() != known) announce_mask();
  trace(kTraceMaskMonitor, "monitoring trace mask");

  alignas(inotify_event) char buffer[4112];
  for (;;) {
    const ssize_t count = read(monitor.get(), buffer, sizeof buffer);
    const int error = count < 0 ? errno : 0;
    trace(kTraceMaskMonitor, "notify %d", static_cast<int>(count));
    if (error != 0 && error != EINTR) return nullptr;
    for (ssize_t at = 0; at < count;) {
      inotify_event event{};
      memcpy(&event, buffer + at, sizeof event);
      if ((event.mask & IN_MODIFY) != 0) take_mask_change();
      at += static_cast<ssize_t>(sizeof event + event.len);
    }
  }
}

}  // namespace

void init_trace() {
  mask.store(0, std::memory_order_relaxed);
  if (access(paths::kTrace, R_OK) == 0) rename_flushed(paths::kTrace, paths::kTraceOld);
  if (access(paths::kTraceMask, F_OK) != 0) set_trace_mask(0);
  read_mask_file();
  start_detached_thread("trace-mask", monitor_mask, nullptr);

  FILE* opened = fopen(paths::kTrace, "we");
  if (opened == nullptr) return;
  const mutex_lock lock(trace_lock);  // nobody's line comes before the first
  stream.store(opened, std::memory_order_release);
  put_mask_line("start");
}

void start_trace_writer() {
  if (stream.load(std::memory_order_acquire) == nullptr) return;
  const mutex_lock lock(trace_lock);
  has_writer = start_detached_thread("trace-lines", write_lines, nullptr) == 0;
}

bool drain_trace() {
  const int64_t end_ns = monotonic_ns() + kDrain_ns;
  const mutex_lock lock(trace_lock);
  while ((waiting.used != 0 || is_writing) && monotonic_ns() < end_ns) {
    lines_written.wait_until_ns(trace_lock, end_ns);
  }
  return waiting.used == 0 && !is_writing;
}

void trace(int level, const char* format, ...) {
  if (!is_enabled(level)) return;
  va_list arguments;
  va_start(arguments, format);
  write_line(tag_of(level), format, arguments);
  va_end(arguments);
}

void trace_data(int level, const char* label, const void* bytes, long length) {
  if (!is_enabled(level)) return;
  trace(level, "%s:", label);
  const auto* from = static_cast<const unsigned char*>(bytes);
  for (long row = 0; row < length; row += kRowBytes) {
    char hex[2 * kRowBytes + 1];
    char text[kRowBytes + 1] = "";
    const long count = std::min(kRowBytes, length - row);
    for (long i = 0; i < count; ++i) {
      const unsigned char byte = from[row + i];
      snprintf(hex + 2 * i, 3, "%02X", byte);
      text[i] = byte >= 0x20 && byte <= 0x7E ? static_cast<char>(byte) : '.';
    }
    trace(level, " %-*s %-*s", int{2 * kRowBytes}, hex, int{kRowBytes}, text);
  }
}

int set_trace_mask(uint32_t new_mask) {
  const unique_fd fd(open(paths::kTraceMask, O_WRONLY | O_CREAT | O_NONBLOCK | O_CLOEXEC, 0644));
  if (!fd) return -1;
  // Written over what the monitor reads, not truncated first: it never finds an empty file, nor digits of an
  // older and longer text behind the new ones.
  char text[kMaskCharacters + 1];
  const int length = snprintf(text, sizeof text, "0x%08X", new_mask);
  memset(text + length, '\n', kMaskCharacters - static_cast<size_t>(length));
  struct stat info {};
  const bool longer = fstat(fd.get(), &info) == 0 && info.st_size > length;
  const bool good = write_all(fd.get(), {text, longer ? kMaskCharacters : static_cast<size_t>(length)}) &&
                    (!longer || ftruncate(fd.get(), length) == 0) && fsync(fd.get()) == 0 &&
                    flush_folder_of(paths::kTraceMask);
  return good ? 0 : -1;
}

uint32_t get_trace_mask() { return mask.load(std::memory_order_relaxed); }
