// What turns the bus into a simulated unit's board: loaded with LD_PRELOAD in front of libmraa, it also
// stands in for the system calls that a sealed unit cannot make, and serves the control commands on a unix
// socket.
#include <dlfcn.h>
#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "sim/board/bus.h"
#include "sim/board/control.h"
#include "sim/board/format.h"

namespace {

constexpr char kControlSocket[] = "/run/bench/board.ctl";
constexpr char kStickFolder[] = "/run/bench/stick";  // what any device that is mounted shows
constexpr char kCallLog[] = "/tmp/board_calls";
constexpr char kDaemonName[] = "orbd";
constexpr size_t kMaxCommand = 256;
constexpr unsigned kLongestDelay_ms = 60'000;

// How long each call keeps its caller waiting before it does its work, as a slow disk or stick would.
struct slow_call {
  const char* name;
  std::atomic<unsigned> delay_ms = 0;
} slow_fsync{"fsync"}, slow_mount{"mount"};

// Appends one line, in one write, to the log of the calls stood in for.
void log_call(const std::string& line) {
  const int file = open(kCallLog, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
  if (file < 0) return;
  if (write(file, (line + "\n").c_str(), line.size() + 1) < 0) perror(kCallLog);
  close(file);
}

const char* or_none(const char* text) { return text == nullptr ? "none" : text; }

bool in_daemon() {
  char name[32] = "";
  const int file = open("/proc/self/comm", O_RDONLY | O_CLOEXEC);
  if (file < 0) return false;
  const ssize_t size = read(file, name, sizeof name - 1);
  close(file);
  name[size > 0 ? size : 0] = 0;
  return strcmp(name, (std::string(kDaemonName) + "\n").c_str()) == 0;
}

int listen_for_commands() {
  const int listener = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_un address{.sun_family = AF_UNIX, .sun_path = {}};
  static_assert(sizeof kControlSocket <= sizeof address.sun_path);
  memcpy(address.sun_path, kControlSocket, sizeof kControlSocket);
  unlink(kControlSocket);
  if (listener >= 0 && bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 &&
      listen(listener, 8) == 0) {
    return listener;
  }
  fprintf(stderr, "board: %s: %s\n", kControlSocket, strerror(errno));
  if (listener >= 0) close(listener);
  return -1;
}

// Reads up to the newline or the end; a client that stalls for 2 s is given up.
std::string read_line(int client) {
  const timeval patience{.tv_sec = 2, .tv_usec = 0};
  setsockopt(client, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
  setsockopt(client, SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof patience);
  std::string line;
  char part[kMaxCommand];
  while (line.size() < kMaxCommand && line.find('\n') == line.npos) {
    const ssize_t size = recv(client, part, sizeof part, 0);
    if (size <= 0) break;
    line.append(part, static_cast<size_t>(size));
  }
  return line.substr(0, line.find('\n'));
}

void send_all(int client, const std::string& reply) {
  for (size_t sent = 0; sent < reply.size();) {
    const ssize_t size = send(client, reply.data() + sent, reply.size() - sent, MSG_NOSIGNAL);
    if (size <= 0) return;
    sent += static_cast<size_t>(size);
  }
}

// "slow fsync|mount MS"; empty for what is no such command.
std::string slow_command(const std::string& line) {
  for (slow_call* call : {&slow_fsync, &slow_mount}) {
    unsigned delay_ms = 0;
    if (sscanf(line.c_str(), (std::string("slow ") + call->name + " %u").c_str(), &delay_ms) != 1) continue;
    call->delay_ms = std::min(delay_ms, kLongestDelay_ms);
    return "ok\n";
  }
  return "";
}

std::string obey(const std::string& line) {
  std::string answer = slow_command(line);
  if (!answer.empty()) return answer;
  const std::string of_board = with_board([&line](board_model& board) { return board_command(board, line); });
  return line != "help" ? of_board
                        : of_board + "slow fsync|mount MS  each such call of the daemon takes that long\n";
}

void* serve_commands(void*) {
  const int listener = listen_for_commands();
  if (listener < 0) return nullptr;
  for (;;) {
    const int client = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
    if (client < 0) {
      usleep(10'000);  // out of descriptors, for instance: try again
      continue;
    }
    const std::string line = read_line(client);
    send_all(client, obey(line));
    close(client);
  }
}

// The daemon's signals are for the daemon's own threads.
void start_control_thread() {
  sigset_t all;
  sigset_t before;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, &before);
  pthread_t thread{};
  const int failure = pthread_create(&thread, nullptr, serve_commands, nullptr);
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
  if (failure != 0) {
    fprintf(stderr, "board: control thread: %s\n", strerror(failure));
    return;
  }
  pthread_detach(thread);
}

// A program that only starts the daemon (env, a debugger) hands the variable on; the daemon's children do
// without.
__attribute__((constructor)) void start() {
  if (!in_daemon()) return;
  unsetenv("LD_PRELOAD");
  set_real_time(true);
  with_board([](board_model& board) { board.strict = false; });  // a person may try what the API lets through
  start_control_thread();
}

void wait_for(const slow_call& call) {
  const unsigned delay_ms = call.delay_ms;
  if (delay_ms != 0) usleep(delay_ms * 1000);
}

template <class Function>
Function* next(const char* name, Function*) {
  return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

}  // namespace

extern "C" {

// A device is replaced by the bench's stick folder; anything else is mounted as asked.
int mount(const char* source, const char* target, const char* type, unsigned long flags,
          const void* data) noexcept {
  log_call(format_text("mount %s %s %s %lu", or_none(source), or_none(target), or_none(type), flags));
  wait_for(slow_mount);
  auto* real = next("mount", &mount);
  if (source == nullptr || strncmp(source, "/dev/", 5) != 0) return real(source, target, type, flags, data);
  return real(kStickFolder, target, nullptr, MS_BIND, nullptr);
}

int umount(const char* target) noexcept {
  log_call(format_text("umount %s", or_none(target)));
  return next("umount", &umount)(target);
}

int fsync(int file) {
  wait_for(slow_fsync);
  return next("fsync", &fsync)(file);
}

// The unit's clock is the machine's: a wish to set it is noted and takes no effect.
int settimeofday(const timeval* time, const struct timezone*) noexcept {
  if (time == nullptr) return 0;
  log_call(format_text("settimeofday %ld.%06ld", static_cast<long>(time->tv_sec),
                       static_cast<long>(time->tv_usec)));
  return 0;
}

}  // extern "C"
