// How far an update has come, in words; as it stands here while none runs.
#pragma once

#include <cstddef>

#include "base/text.h"

inline constexpr size_t kUpdateWordSize = 17;

struct update_progress {
  char step[32] = "0 of 0";
  char description_1[kUpdateWordSize] = "not active";
  char description_2[kUpdateWordSize] = "not active";
};

// Each text cut to its size - 1 and terminated. Any thread.
inline void copy_update_progress(const update_progress& progress, char* step, size_t step_size,
                                 char* description_1, size_t description_1_size, char* description_2,
                                 size_t description_2_size) {
  copy_text(step, step_size, progress.step);
  copy_text(description_1, description_1_size, progress.description_1);
  copy_text(description_2, description_2_size, progress.description_2);
}
