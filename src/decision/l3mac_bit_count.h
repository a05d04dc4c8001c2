// Set bits of a word, for the cover searches. The build targets CPUs
// without a popcount instruction, where std::popcount is a library call;
// this is a handful of inline operations, with no branch or table load.
#pragma once

#include <cstdint>

inline uint32_t bit_count(uint64_t x) {
    x -= x >> 1 & 0x5555555555555555ull;
    x = (x & 0x3333333333333333ull) + (x >> 2 & 0x3333333333333333ull);
    x = (x + (x >> 4)) & 0x0F0F0F0F0F0F0F0Full;
    return static_cast<uint32_t>(x * 0x0101010101010101ull >> 56);
}
