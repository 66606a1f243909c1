// The simulated board's chance: a linear congruential generator, the same numbers in every run.
#pragma once

#include <cstdint>

inline uint32_t next_random(uint32_t& state) { return state = state * 1664525 + 1013904223; }

// Uniform from 0 up to 1, and from -1 to 1.
inline double next_share(uint32_t& state) { return next_random(state) / 4294967296.0; }
inline double next_noise(uint32_t& state) { return next_share(state) * 2 - 1; }
