// A whole unit inside the sealed box, for the tests: Redis, the simulated camera and board, and the daemon
// itself.
#pragma once

#include <sys/types.h>
#include <unistd.h>

#include <string>
#include <string_view>
#include <vector>

#include "tests/await.h"

// A child process, with a session of its own; ended with SIGKILL and reaped when the record goes.
class child {
 public:
  child() = default;
  explicit child(const std::vector<std::string>& command, const std::string& preload = "");
  child(child&& other) noexcept;
  child& operator=(child&& other) noexcept;
  ~child();

  pid_t pid() const { return pid_; }
  void signal(int number) const;
  int wait();  // the exit status, or minus the signal's number

 private:
  pid_t pid_ = 0;
};

child start_redis();
child start_camera(bool with_picture = false);
child start_daemon();  // with the simulated board; returns as soon as the process runs

// Waits up to 10 s, and lets the board be strict from then on; false when the daemon does not answer.
bool await_api();

struct reply {
  std::string head;  // status line and headers
  std::string body;
};
reply http(const std::string& method, const std::string& path, const std::string& body = "");

// A line to a simulated device ("camera", "board"), and its answer.
std::string ctl(const std::string& device, const std::string& line);

// The number after "name" in a device's answer.
double number_after(const std::string& text, std::string_view name);

// A connected TCP socket (blocking), or -1.
int connect_to(const char* address, unsigned short port);

std::string read_text(const std::string& path);
void write_text(const std::string& path, const std::string& text);
