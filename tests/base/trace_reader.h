// What this process has traced.
#pragma once

#include "base/trace.h"
#include "tests/kit.h"

inline void start_trace() {
  set_trace_mask(~0U);
  init_trace();
}

// The messages under a tag so far, without their time, each ended with ";"; sent and received bytes left out.
inline std::string traces(const std::string& tag) {
  std::ifstream file(paths::kTrace);
  std::string messages;
  for (std::string line; std::getline(file, line);) {
    if (!line.starts_with(tag + ": ")) continue;
    const std::string text = line.substr(tag.size() + 2, line.rfind(" [") - tag.size() - 2);
    if (!text.starts_with(' ') && text != "sending:" && text != "read:") messages += text + ";";
  }
  return messages;
}

// Those since the last call; for one tag of a program.
inline std::string new_traces(const std::string& tag) {
  static size_t seen = 0;
  std::string added = traces(tag).substr(seen);
  seen += added.size();
  return added;
}
