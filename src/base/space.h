// Room on a store: what is free, what is used, and what it can hold at all. Each waits for the store. Any
// thread.
#pragma once

#include <cstdint>

// Free for us, in KiB; 0 (traced) when it cannot be told.
uint64_t free_kb(const char* folder);

// The largest file that the store can hold, in KiB: vfat ends below 4 GiB.
uint64_t largest_file_kb(const char* folder);

// Percent in use, of what is in use and free for us, rounded down; 0 when it cannot be told.
int used_percent(const char* folder);

// Whether the store takes a file of `size` bytes, for which one of `replaced` bytes goes, and has 1 MiB left,
// for what else is written to it.
bool has_room(const char* folder, int64_t size, int64_t replaced = 0);
