#include "recorder/encoder_child.h"

#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/stat.h>

// The header of this C library does not say so itself.
extern "C" {
#include <sys/pidfd.h>
}

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <functional>

#include "app/trace.h"
#include "base/paths.h"

namespace {

constexpr int kObeys_ms = 2000;
constexpr int kGivesUp_ms = 10'000;
constexpr size_t kArgumentsLimit = 1 << 16;
constexpr std::string_view kFirstArguments{"-y\0-i\0", 6};  // as the kernel shows them

// Calls `visit` with the number that each name in a folder of /proc begins with.
void for_each_number(const std::string& folder, const std::function<void(int number)>& visit) {
  for (const std::string& name : names_in(folder.c_str())) {
    char* end = nullptr;
    const long number = strtol(name.c_str(), &end, 10);
    if (end != name.c_str() && *end == '\0') visit(static_cast<int>(number));
  }
}

std::string descriptors_of(pid_t pid) { return "/proc/" + std::to_string(pid) + "/fd"; }

std::string arguments_of(pid_t pid) { return "/proc/" + std::to_string(pid) + "/cmdline"; }

bool is_encoder_connection(int fd) {
  sockaddr_in peer{};
  socklen_t size = sizeof peer;
  return getpeername(fd, reinterpret_cast<sockaddr*>(&peer), &size) == 0 && peer.sin_family == AF_INET &&
         ntohs(peer.sin_port) == addresses::kEncoderRtspPort;
}

void shut_encoder_connection(pid_t pid, int pidfd) {
  for_each_number(descriptors_of(pid), [&](int number) {
    struct stat info {};
    const std::string path = descriptors_of(pid) + "/" + std::to_string(number);
    if (stat(path.c_str(), &info) != 0 || !S_ISSOCK(info.st_mode)) return;
    const unique_fd copy(pidfd_getfd(pidfd, number, 0));
    if (copy && is_encoder_connection(copy.get())) shutdown(copy.get(), SHUT_RDWR);
  });
}

void await_end_or_kill(pid_t pid, int pidfd) {
  if (await_end(pidfd, kGivesUp_ms)) return;
  trace(kTraceRecorder, "kill %d", pid);
  pidfd_send_signal(pidfd, SIGKILL, nullptr, 0);
  await_end(pidfd, kGivesUp_ms);
}

// Whether process `pid` has `path` open for writing: a descriptor's link shows its mode.
bool writes_to(pid_t pid, const std::string& path) {
  bool found = false;
  struct stat wanted {};
  if (stat(path.c_str(), &wanted) != 0) return false;
  for_each_number(descriptors_of(pid), [&](int number) {
    struct stat link {};
    struct stat open {};
    const std::string entry = descriptors_of(pid) + "/" + std::to_string(number);
    if (lstat(entry.c_str(), &link) != 0 || (link.st_mode & S_IWUSR) == 0) return;
    if (stat(entry.c_str(), &open) != 0) return;
    if (open.st_dev == wanted.st_dev && open.st_ino == wanted.st_ino) found = true;
  });
  return found;
}

// Whether `path` is the last argument of process `pid`: an ffmpeg that has not opened its file yet.
bool is_told_to_write(pid_t pid, const std::string& path) {
  const std::string arguments = read_file(arguments_of(pid).c_str(), kArgumentsLimit).value_or("");
  return arguments.starts_with(kFirstArguments) && arguments.ends_with('\0' + path + '\0');
}

bool is_writer(pid_t pid, const std::string& path) {
  return pid != getpid() && (writes_to(pid, path) || is_told_to_write(pid, path));
}

}  // namespace

int start_ffmpeg(const std::string& path, child_process* child) {
  const std::string url = std::string("rtsp://") + addresses::kCamera + "/vx-1.mp4";
  // "-y" stands in the place of the program's name, so ffmpeg never sees it: it does not overwrite a file.
  const char* const arguments[] = {"-y", "-i", url.c_str(), "-vcodec", "copy", path.c_str(), nullptr};
  // SIGSTOP, because the kernel repeats the signal: when a daemon is killed, its child is handed from thread
  // to thread as they end, and gets one of each. A second SIGTERM would cost the file's index.
  return start_child(
      {.program = paths::kFfmpeg, .arguments = arguments, .ignores_sigpipe = true, .death_signal = SIGSTOP},
      child);
}

void await_ffmpeg_end(pid_t pid) {
  const unique_fd pidfd(pidfd_open(pid, 0));
  if (!pidfd || await_end(pidfd.get(), kObeys_ms)) return;
  trace(kTraceRecorder, "encoder silent %d", pid);
  shut_encoder_connection(pid, pidfd.get());
  await_end_or_kill(pid, pidfd.get());
}

void end_writers(const std::string& path) {
  for_each_number("/proc", [&](int pid) {
    if (!is_writer(pid, path)) return;
    const unique_fd pidfd(pidfd_open(pid, 0));
    // Looked at again, now that the number cannot become another process's.
    if (!pidfd || !is_writer(pid, path)) return;
    trace(kTraceRecorder, "take held by %d", pid);
    shut_encoder_connection(pid, pidfd.get());
    // One that has not opened its file has nothing to lose, and would only now begin to record.
    pidfd_send_signal(pidfd.get(), writes_to(pid, path) ? SIGCONT : SIGKILL, nullptr, 0);
    await_end_or_kill(pid, pidfd.get());
  });
}
