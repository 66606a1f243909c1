// A whole unit inside the sealed box: Redis, the simulated camera and board, and the daemon itself.
#pragma once

#include "tests/http_exchange.h"
#include "tests/kit.h"

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
  int end(int number) { return signal(number), wait(); }

 private:
  pid_t pid_ = 0;
};

child start_redis();
child start_camera(bool with_picture = false);
child start_daemon();          // with the simulated board; returns as soon as the process runs
child start_serving_daemon();  // returns when it answers, and expects that it does

// Waits up to 10 s, and lets the board be strict from then on; false when the daemon does not answer.
bool await_api();

inline constexpr char kOk[] = R"({"status":"OK"})";

struct reply {
  std::string head;  // status line and headers
  std::string body;
};
reply http(const std::string& method, const std::string& path, const std::string& body = "");

// A line to a simulated device ("camera", "board"), and its answer.
std::string ctl(const std::string& device, const std::string& line);

// The number after "name" in a device's answer.
double number_after(const std::string& text, std::string_view name);

std::string read_text(const std::string& path);
void write_text(const std::string& path, const std::string& text);

// The service log, and what the unit's power commands were asked, each without its times.
std::string trace_log();
std::string power_calls();

// Waits up to 25 s until no take is recorded or completed.
bool await_completion();

// Of a picture, in seconds.
double duration(const std::string& path);

// Takes on the USB store of which more than a second can be played.
int playable_takes();
