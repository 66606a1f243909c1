// Child processes: all is prepared before fork, the child only sets itself up and becomes the program. It
// gets no descriptor of the daemon but its outputs; it reads /dev/null, has default signal dispositions and
// no blocked signals, and a session of its own: what a terminal sends is for the daemon.
#pragma once

#include <csignal>
#include <functional>
#include <string>
#include <string_view>

#include "base/file.h"

struct child_command {
  const char* program = nullptr;           // its path
  const char* const* arguments = nullptr;  // the first one too; a null pointer ends them
  int output = -1;                         // becomes its standard output; -1: what the daemon's is
  bool ignores_sigpipe = false;            // lives on when nobody reads its messages
  int death_signal = 0;                    // sent to it when the thread that started it ends; 0 none
};

struct child_process {
  pid_t pid = -1;
  unique_fd exec_report;  // of an exec that fails
};

// Starts the command; the caller reaps it. Returns 0, or the error number of what failed.
int start_child(const child_command& command, child_process* child);

// Waits until the program runs (well below a millisecond): 0, or exec's error number; the child has ended
// then.
int exec_error(const child_process& child);

// Waits until the process behind a pidfd has ended; false after `timeout_ms`. It need not be a child.
bool await_end(int pidfd, int timeout_ms);

struct shell_limits {
  int timeout_ms = -1;        // then it is killed, with what it has started; -1: it takes as long as it takes
  bool ends_with_us = false;  // killed when the calling thread ends; of a command that is one program
};

// Runs a shell command to its end and hands each line that it prints to `take`, as soon as it is whole:
// without its newline, and cut to `size` bytes (at least 1). Returns the shell's exit status (126 or 127
// when it could not run the command), 128 and the signal's number when a signal ended it (`kTimedOut` when it
// was too slow), or -1 when there was no shell.
inline constexpr int kTimedOut = 128 + SIGKILL;
int run_shell(const std::string& command, size_t size, const std::function<void(std::string_view line)>& take,
              const shell_limits& limits = {});

// Whether it could not run or somebody else has ended it, by what run_shell returns, so that it may do better
// another time. ffmpeg obeys a signal with 255.
inline bool was_broken_off(int status) {
  constexpr int kEndedBySignal = 255;
  return status < 0 || status == kEndedBySignal ||
         (status > 128 && status <= 128 + SIGRTMAX && status != kTimedOut);
}

// The first line that a shell command prints, at most `size` bytes of it.
std::string shell_first_line(const std::string& command, size_t size, const shell_limits& limits = {});

// `text` as one word of a shell command, whatever it holds.
std::string shell_quoted(std::string_view text);

// The same, quoted only when it holds something that a shell would read.
std::string shell_word(std::string_view text);
