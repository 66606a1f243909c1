// Files of a test.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>

#include "base/file.h"
#include "base/paths.h"

namespace fs = std::filesystem;

// "nothing" when it cannot be read.
inline std::string content(const std::string& path) {
  return read_file(path.c_str(), 4 << 20).value_or("nothing");
}

inline void put(const std::string& path, const std::string& text) { ASSERT_TRUE(replace_file(path, text)); }
