// A server process under measurement: the core that it runs on, what it costs, and which system calls it
// makes.
#pragma once

#include <sys/types.h>

#include <functional>
#include <map>
#include <string>
#include <vector>

struct server_cost {
  int64_t cpu_ns = 0;
  long sleeps = 0;  // how often it gave the core away to wait
};

class server_process {
 public:
  // Pins every thread of the process to the core. Costs are those of its thread named `thread`, or of all.
  server_process(pid_t pid, const std::string& thread, int core);

  server_cost cost() const;

  // The names of the calls and how many of each it makes while `work` runs, in a process of its own. Empty
  // when it cannot be traced here; its requests are slower then, so that one is more likely to be there when
  // the server looks.
  std::map<std::string, long> system_calls(const std::function<void()>& work) const;

 private:
  std::string folder_;  // its threads in /proc
  std::vector<pid_t> threads_;
};

void pin_to_core(pid_t thread, int core);  // 0: the calling one
