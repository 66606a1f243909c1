#include "base/child_process.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/wait.h>

// The header of this C library does not say so itself.
extern "C" {
#include <sys/pidfd.h>
}

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <optional>

#include "base/clock.h"
#include "base/paths.h"

namespace {

// In the child, between fork and exec: only what POSIX allows there (async-signal-safe calls).
[[noreturn]] void become(const child_command& command, pid_t parent, int input, int report) {
  setsid();
  dup2(input, STDIN_FILENO);
  if (command.output >= 0) dup2(command.output, STDOUT_FILENO);
  struct sigaction standard {};
  standard.sa_handler = SIG_DFL;
  for (int number = 1; number < NSIG; ++number) sigaction(number, &standard, nullptr);
  sigset_t none;
  sigemptyset(&none);
  sigprocmask(SIG_SETMASK, &none, nullptr);
  if (command.ignores_sigpipe) signal(SIGPIPE, SIG_IGN);
  // Nothing of the daemon stays open, not even in a child that a signal stops or ends before it is the
  // program: it would hold the API's port.
  constexpr int kReport = STDERR_FILENO + 1;
  if (report != kReport) dup2(report, kReport);
  fcntl(kReport, F_SETFD, FD_CLOEXEC);
  close_range(kReport + 1, ~0U, 0);
  prctl(PR_SET_PDEATHSIG, command.death_signal);
  // The parent may have ended before the death signal was set.
  if (command.death_signal != 0 && getppid() != parent) _exit(1);
  execv(command.program, const_cast<char* const*>(command.arguments));
  const int error = errno;
  [[maybe_unused]] const ssize_t told = write(kReport, &error, sizeof error);
  _exit(127);
}

bool make_pipe(unique_fd* reader, unique_fd* writer) {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) return false;
  reader->reset(ends[0]);
  writer->reset(ends[1]);
  return true;
}

// Whether `fd` has something to read, or its other end has gone, by `deadline_ns`; INT64_MAX: whenever.
bool await_input(int fd, int64_t deadline_ns) {
  pollfd watched{.fd = fd, .events = POLLIN, .revents = 0};
  for (;;) {
    const int64_t left_ms = std::max<int64_t>((deadline_ns - monotonic_ns()) / kNanosecondsPerMillisecond, 0);
    const int ready = poll(&watched, 1, deadline_ns == INT64_MAX ? -1 : static_cast<int>(left_ms));
    if (ready > 0) return true;
    if (ready == 0 || errno != EINTR) return false;
  }
}

struct line_reader {
  size_t size;  // that a line is cut to
  const std::function<void(std::string_view line)>& take;
  std::string line;

  void add(std::string_view block) {
    for (const char c : block) {
      if (c == '\n') {
        take(line);
        line.clear();
      } else if (line.size() < size) {
        line += c;
      }
    }
  }
};

// Every line that comes until the other end is closed; the last one need not end with a newline. False when
// that is not by the deadline.
bool read_lines(int fd, int64_t deadline_ns, line_reader reader) {
  char block[512];
  for (;;) {
    if (monotonic_ns() >= deadline_ns || !await_input(fd, deadline_ns)) return false;
    const ssize_t count = read(fd, block, sizeof block);
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) break;
    reader.add({block, static_cast<size_t>(count)});
  }
  if (!reader.line.empty()) reader.take(reader.line);
  return true;
}

// False, too, when there is no descriptor to wait with. A child whose exit has closed its output keeps its
// status when it is killed then.
bool has_ended(pid_t pid, int64_t deadline_ns) {
  if (deadline_ns == INT64_MAX) return true;  // who reaps it waits
  const unique_fd pidfd(pidfd_open(pid, 0));
  return pidfd && await_input(pidfd.get(), deadline_ns);
}

constexpr int kSignalledStatus = 128;  // as shells count

int reap(pid_t pid) {
  int status = 0;
  while (waitpid(pid, &status, 0) < 0) {
    if (errno != EINTR) return -1;
  }
  return WIFEXITED(status) ? WEXITSTATUS(status) : kSignalledStatus + WTERMSIG(status);
}

// What means nothing to a shell.
constexpr char kPlain[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789/._-+,:@%=";

}  // namespace

int start_child(const child_command& command, child_process* child) {
  const unique_fd input(open("/dev/null", O_RDONLY | O_CLOEXEC));
  unique_fd report;
  if (!input || !make_pipe(&child->exec_report, &report)) return errno;
  const pid_t parent = getpid();
  child->pid = fork();
  if (child->pid < 0) return errno;
  if (child->pid == 0) become(command, parent, input.get(), report.get());
  return 0;
}

int exec_error(const child_process& child) {
  int error = 0;
  while (read(child.exec_report.get(), &error, sizeof error) < 0 && errno == EINTR) continue;
  return error;
}

bool await_end(int pidfd, int timeout_ms) {
  return await_input(pidfd, monotonic_ns() + timeout_ms * kNanosecondsPerMillisecond);
}

int run_shell(const std::string& command, size_t size, const std::function<void(std::string_view line)>& take,
              const shell_limits& limits) {
  // The signal comes to one process: the shell becomes the program.
  const std::string script = limits.ends_with_us ? "exec " + command : command;
  const char* const arguments[] = {"sh", "-c", script.c_str(), nullptr};
  unique_fd reader;
  unique_fd writer;
  child_process child;
  if (!make_pipe(&reader, &writer)) return -1;
  const child_command shell{.program = paths::kShell,
                            .arguments = arguments,
                            .output = writer.get(),
                            .death_signal = limits.ends_with_us ? SIGKILL : 0};
  if (start_child(shell, &child) != 0) return -1;
  writer.reset();
  const int64_t deadline_ns =
      limits.timeout_ms < 0 ? INT64_MAX : monotonic_ns() + limits.timeout_ms * kNanosecondsPerMillisecond;
  const bool ended =
      read_lines(reader.get(), deadline_ns, {size, take, ""}) && has_ended(child.pid, deadline_ns);
  if (!ended) kill(-child.pid, SIGKILL);  // its session is its own
  return reap(child.pid);
}

std::string shell_first_line(const std::string& command, size_t size, const shell_limits& limits) {
  std::optional<std::string> first;
  const auto keep_first = [&first](std::string_view line) {
    if (!first) first = line;
  };
  run_shell(command, size, keep_first, limits);
  return first.value_or("");
}

std::string shell_quoted(std::string_view text) {
  std::string quoted = "'";
  for (const char c : text) quoted += c == '\'' ? "'\\''" : std::string(1, c);
  return quoted + "'";
}

std::string shell_word(std::string_view text) {
  const bool is_plain = !text.empty() && text.find_first_not_of(kPlain) == text.npos;
  return is_plain ? std::string(text) : shell_quoted(text);
}
