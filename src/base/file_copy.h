// Copies of whole files. Any thread; takes as long as the stores do.
#pragma once

#include <cstdint>

// Called after every block with the bytes copied so far.
using copy_step = void (*)(void* context, int64_t copied, int64_t size);

// Copies the regular file `from` over `to`, in blocks of 4096 bytes, and flushes it. False when it ended
// short (errno tells): a part of `to` may stand then.
bool copy_file(const char* from, const char* to, copy_step step, void* context);

// The same between open files, from their positions on; the folder of `to` is left to the caller. No `step`:
// nobody asks.
bool copy_blocks(int from, int to, copy_step step = nullptr, void* context = nullptr);
