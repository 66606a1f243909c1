// The two requests of bench_server, and where their answers are for the servers that are measured beside the
// daemon: in files, because those servers are programs of their own.
#pragma once

#include <fstream>
#include <sstream>
#include <string>
#include <string_view>

struct served {
  std::string_view path;
  const char* file;
};

inline constexpr served kSmall{"/api/led/mode", "/tmp/bench_small.json"};
inline constexpr served kStatus{"/api/status", "/tmp/bench_status.json"};

inline constexpr char kJson[] = "application/json";

inline std::string read_answer(const served& answer) {
  std::ostringstream text;
  text << std::ifstream(answer.file).rdbuf();
  return text.str();
}

// Header and body, as the daemon answers.
inline std::string whole_answer(const std::string& body) {
  return "HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(body.size()) + "\r\nContent-Type: " + kJson +
         "\r\n\r\n" + body;
}
