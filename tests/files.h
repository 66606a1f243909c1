// Files of a test.
#pragma once

#include "tests/kit.h"

// "nothing" when it cannot be read.
inline std::string content(const std::string& path) {
  return read_file(path.c_str(), 4 << 20).value_or("nothing");
}

inline void put(const std::string& path, const std::string& text) { ASSERT_TRUE(replace_file(path, text)); }

// A golden file of the subsystem, its lines joined.
inline std::string golden(const std::string& name) {
  std::string text = content(ORB_GOLDEN_FOLDER "/" + name);
  return std::erase(text, '\n'), text;
}
