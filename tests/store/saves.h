// What the stores' tests share: the flushes, golden records, and a store that is killed while it saves.
#pragma once

#include <sys/mman.h>

#include "tests/files.h"

extern std::string flushed;  // names, in order
extern bool flush_fails;
extern void (*on_flush)();

// A golden record as its file holds it, with parts replaced: "from>to|from>to".
inline std::string golden_record(const std::string& name, int previous, int current,
                                 const std::string& changes) {
  std::string text = golden(name);
  const std::string ids =
      "PREVIOUS>" + std::to_string(previous) + "|CURRENT>" + std::to_string(current) + "|";
  for (const auto& [from, to] : rows_of(ids + changes)) text.replace(text.find(from), from.size(), to);
  return text;
}

// Saves number after number in children that are killed at any moment, after at least 20 saves each. `load`
// starts the store again and returns the number that it holds (-1: a mixture, or nothing): the last
// acknowledged one, or that in flight. `saved` is the number that it holds now.
inline void kill_while_saving(int saved, int kills, void (*save)(int number), int (*load)()) {
  auto* acknowledged = static_cast<std::atomic<int>*>(
      mmap(nullptr, sizeof(int), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
  *acknowledged = saved;
  std::minstd_rand random(7);
  for (int round = 0; round < kills; ++round) {
    const int before = *acknowledged;
    const pid_t child = fork();
    if (child == 0)
      for (int number = before + 1;; ++number) save(number), *acknowledged = number;
    while (*acknowledged < before + 20) continue;
    usleep(static_cast<unsigned>(random() % 1000));
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
    const int loaded = load();
    ASSERT_TRUE(loaded == *acknowledged || loaded == *acknowledged + 1) << loaded << " of " << *acknowledged;
    *acknowledged = loaded;
  }
}
