// What every test has at hand: the library, and waiting for what another thread or process does.
#pragma once

#include <ev.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <climits>
#include <cmath>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iomanip>
#include <map>
#include <random>
#include <regex>
#include <set>
#include <span>
#include <thread>

#include "base/child_process.h"
#include "base/clock.h"
#include "base/file.h"
#include "base/json.h"
#include "base/paths.h"
#include "base/text.h"
#include "base/value_file.h"

namespace fs = std::filesystem;

// Polls `condition` every 2 ms for up to `seconds`.
template <typename Condition>
bool await(Condition condition, double seconds = 10) {
  const int64_t end = monotonic_ns() + static_cast<int64_t>(seconds * 1e9);
  while (!condition()) {
    if (monotonic_ns() > end) return false;
    sleep_ms(2);
  }
  return true;
}

// What `load` writes into a buffer of `size` bytes.
template <typename Load>
std::string loaded(Load load, size_t size = 200) {
  std::string text(size, 'x');
  return load(text.data(), size), text.c_str();
}

// The rows of a table that is written as "first>second|first>second".
inline std::vector<std::pair<std::string, std::string>> rows_of(const std::string& table) {
  std::vector<std::pair<std::string, std::string>> rows;
  std::istringstream text(table);
  for (std::string first, second; std::getline(text, first, '>') && std::getline(text, second, '|');)
    rows.emplace_back(first, second);
  return rows;
}

inline bool contains(std::string_view text, std::string_view part) { return text.find(part) != text.npos; }
