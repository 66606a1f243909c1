#include "recorder/ffmpeg.h"

#include <sys/socket.h>
#include <sys/stat.h>

// The header of this C library does not say so itself.
extern "C" {
#include <sys/pidfd.h>
}

#include <csignal>
#include <cstdlib>
#include <functional>

#include "base/paths.h"
#include "base/trace.h"

namespace {

constexpr int kLook_ms = 100;
constexpr int kGivesUp_ms = 10'000;
constexpr int kObeys_ms = 2000;
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

bool is_tcp(int fd) {
  int domain = 0;
  int type = 0;
  socklen_t size = sizeof(int);
  return getsockopt(fd, SOL_SOCKET, SO_DOMAIN, &domain, &size) == 0 && domain == AF_INET &&
         getsockopt(fd, SOL_SOCKET, SO_TYPE, &type, &size) == 0 && type == SOCK_STREAM;
}

// Its end for reading only: ffmpeg finds the stream ended, and still takes leave of the encoder. One that is
// being made ends too. False when there is none.
bool shut_encoder_connection(pid_t pid, int pidfd) {
  bool is_there = false;
  for_each_number(descriptors_of(pid), [&](int number) {
    struct stat info {};
    const std::string path = descriptors_of(pid) + "/" + std::to_string(number);
    if (stat(path.c_str(), &info) != 0 || !S_ISSOCK(info.st_mode)) return;
    const unique_fd copy(pidfd_getfd(pidfd, number, 0));
    if (!copy || !is_tcp(copy.get())) return;
    shutdown(copy.get(), SHUT_RD);
    is_there = true;
  });
  return is_there;
}

// SIGTERM only where there is nothing to lose: a second one, from whomever, costs the index (D4).
void ask_to_end(pid_t pid, int pidfd) {
  if (!shut_encoder_connection(pid, pidfd)) pidfd_send_signal(pidfd, SIGTERM, nullptr, 0);
  pidfd_send_signal(pidfd, SIGCONT, nullptr, 0);  // a stopped one sees either only then
}

// What it connects to meanwhile is shut down too.
void await_end_or_kill(pid_t pid, int pidfd) {
  for (int waited_ms = 0; waited_ms < kGivesUp_ms; waited_ms += kLook_ms) {
    if (await_end(pidfd, kLook_ms)) return;
    shut_encoder_connection(pid, pidfd);
  }
  for (const int last : {SIGTERM, SIGKILL}) {
    trace(kTraceRecorder, "kill %d %d", pid, last);
    pidfd_send_signal(pidfd, last, nullptr, 0);
    if (await_end(pidfd, kObeys_ms)) return;
  }
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
  const std::string file = "/proc/" + std::to_string(pid) + "/cmdline";
  const std::string arguments = read_file(file.c_str(), kArgumentsLimit).value_or("");
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

void end_ffmpeg(pid_t pid) {
  const unique_fd pidfd(pidfd_open(pid, 0));
  if (pidfd) return ask_to_end(pid, pidfd.get());
  kill(pid, SIGTERM);
  kill(pid, SIGCONT);
}

void await_ffmpeg_end(pid_t pid) {
  const unique_fd pidfd(pidfd_open(pid, 0));
  if (pidfd) await_end_or_kill(pid, pidfd.get());
}

void end_writers(const std::string& path) {
  for_each_number("/proc", [&](int pid) {
    if (!is_writer(pid, path)) return;
    const unique_fd pidfd(pidfd_open(pid, 0));
    // Looked at again, now that the number cannot become another process's.
    if (!pidfd || !is_writer(pid, path)) return;
    trace(kTraceRecorder, "take held by %d", pid);
    ask_to_end(pid, pidfd.get());
    await_end_or_kill(pid, pidfd.get());
  });
}
