#include "bench/server_process.h"

#include <sched.h>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>

namespace {

constexpr struct {
  long number;
  const char* name;
} kNames[] = {
    {SYS_accept, "accept"},
    {SYS_accept4, "accept4"},
    {SYS_close, "close"},
    {SYS_epoll_ctl, "epoll_ctl"},
    {SYS_epoll_pwait, "epoll_pwait"},
    {SYS_epoll_wait, "epoll_wait"},
    {SYS_fcntl, "fcntl"},
    {SYS_futex, "futex"},
    {SYS_getsockopt, "getsockopt"},
    {SYS_ioctl, "ioctl"},
    {SYS_openat, "openat"},
    {SYS_poll, "poll"},
    {SYS_read, "read"},
    {SYS_readv, "readv"},
    {SYS_recvfrom, "recv"},
    {SYS_recvmsg, "recvmsg"},
    {SYS_sendfile, "sendfile"},
    {SYS_sendmsg, "sendmsg"},
    {SYS_sendto, "send"},
    {SYS_setsockopt, "setsockopt"},
    {SYS_shutdown, "shutdown"},
    {SYS_write, "write"},
    {SYS_writev, "writev"},
};

std::string call_name(uint64_t number) {
  for (const auto& known : kNames)
    if (static_cast<uint64_t>(known.number) == number) return known.name;
  return "call " + std::to_string(number);
}

std::string first_line(const std::filesystem::path& path) {
  std::string line;
  std::getline(std::ifstream(path), line);
  return line;
}

long voluntary_switches(const std::filesystem::path& folder) {
  std::ifstream status(folder / "status");
  constexpr std::string_view kName = "voluntary_ctxt_switches:";
  for (std::string line; std::getline(status, line);)
    if (line.starts_with(kName)) return strtol(line.c_str() + kName.size(), nullptr, 10);
  return 0;
}

bool seize(const std::vector<pid_t>& threads) {
  for (const pid_t thread : threads) {
    if (ptrace(PTRACE_SEIZE, thread, nullptr, long{PTRACE_O_TRACESYSGOOD}) != 0) return false;
    ptrace(PTRACE_INTERRUPT, thread, nullptr, nullptr);
  }
  return true;
}

// A thread has stopped: at a call, whose beginning counts, or for a signal, which it gets.
void pass_on(pid_t thread, int status, std::map<std::string, long>* calls) {
  const int signal = WSTOPSIG(status);
  const bool is_call = signal == (SIGTRAP | 0x80);
  const bool is_event = status >> 16 != 0;
  __ptrace_syscall_info info{};
  if (is_call && ptrace(PTRACE_GET_SYSCALL_INFO, thread, sizeof info, &info) > 0 &&
      info.op == PTRACE_SYSCALL_INFO_ENTRY)
    ++(*calls)[call_name(info.entry.nr)];
  ptrace(PTRACE_SYSCALL, thread, nullptr, is_call || is_event ? 0L : long{signal});
}

void let_go(const std::vector<pid_t>& threads) {
  for (const pid_t thread : threads) {
    ptrace(PTRACE_INTERRUPT, thread, nullptr, nullptr);
    if (waitpid(thread, nullptr, __WALL) == thread) ptrace(PTRACE_DETACH, thread, nullptr, nullptr);
  }
}

}  // namespace

void pin_to_core(pid_t thread, int core) {
  cpu_set_t cores;
  CPU_ZERO(&cores);
  CPU_SET(static_cast<size_t>(core), &cores);
  if (sched_setaffinity(thread, sizeof cores, &cores) != 0) perror("bench: a thread cannot be pinned");
}

server_process::server_process(pid_t pid, const std::string& thread, int core)
    : folder_("/proc/" + std::to_string(pid) + "/task/") {
  for (const auto& entry : std::filesystem::directory_iterator(folder_)) {
    const auto id = static_cast<pid_t>(strtol(entry.path().filename().c_str(), nullptr, 10));
    pin_to_core(id, core);
    if (thread.empty() || first_line(entry.path() / "comm") == thread) threads_.push_back(id);
  }
}

server_cost server_process::cost() const {
  server_cost sum;
  for (const pid_t thread : threads_) {
    const std::filesystem::path folder = folder_ + std::to_string(thread);
    sum.cpu_ns += strtoll(first_line(folder / "schedstat").c_str(), nullptr, 10);
    sum.sleeps += voluntary_switches(folder);
  }
  return sum;
}

std::map<std::string, long> server_process::system_calls(const std::function<void()>& work) const {
  std::map<std::string, long> calls;
  if (!seize(threads_)) return perror("bench: system calls are not counted"), calls;
  const pid_t client = fork();
  if (client == 0) {
    work();
    _exit(0);
  }
  int status = 0;
  for (;;) {
    const pid_t stopped = waitpid(-1, &status, __WALL);
    if (stopped == client || stopped < 0) break;
    if (WIFSTOPPED(status)) pass_on(stopped, status, &calls);
  }
  let_go(threads_);
  if (status != 0) calls.clear();
  return calls;
}
