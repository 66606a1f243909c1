// Copies of files. Any thread; takes as long as the stores do.
#pragma once

#include <cstdint>

// Called after every block with the bytes copied so far.
using copy_step = void (*)(void* context, int64_t copied, int64_t size);

// Copies the next `size` bytes of a file to where another one's position stands, in blocks of 4096 bytes.
// False when it ended short (errno tells). Without a step nothing is called.
bool copy_blocks(int from, int to, int64_t size, copy_step step = nullptr, void* context = nullptr);

// Copies the next `size` bytes of a file over all of the file `to`, and flushes it. Its size tells whether it
// is whole, also after a power cut, which can leave a file its size and not its content: what it held before
// is gone from the disk before it is written, and its last byte is written when the others are on the disk.
// False when it ended short (errno tells).
bool copy_over(int from, int to, int64_t size, copy_step step = nullptr, void* context = nullptr);

// Copies the regular file `from` over `to` in this way, and flushes the name too. False when it ended short
// (errno tells): a part of `to` may stand then.
bool copy_file(const char* from, const char* to, copy_step step, void* context);
