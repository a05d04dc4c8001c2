// A set of the columns of a part of at most COVER_BITS_COLS columns, in a
// few words: a row of the search on sets of bits, and the columns a node
// may still take. Internal to that search and its row prices.
#pragma once

#include <bit>
#include <cstdint>

#include "decision/l3mac_bit_count.h"
#include "decision/l3mac_mask_cover_run.h"

inline constexpr uint32_t COLSET_WORDS = COVER_BITS_COLS / 64;

struct colset {
    uint64_t w[COLSET_WORDS];
};

inline colset operator&(colset a, colset b) {
    for (uint32_t i = 0; i < COLSET_WORDS; ++i) a.w[i] &= b.w[i];
    return a;
}
inline colset operator|(colset a, colset b) {
    for (uint32_t i = 0; i < COLSET_WORDS; ++i) a.w[i] |= b.w[i];
    return a;
}
inline colset minus(colset a, colset b) {
    for (uint32_t i = 0; i < COLSET_WORDS; ++i) a.w[i] &= ~b.w[i];
    return a;
}
inline bool empty(colset a) {
    uint64_t any = 0;
    for (uint64_t x : a.w) any |= x;
    return any == 0;
}
inline bool has(colset a, uint32_t c) { return a.w[c / 64] >> (c % 64) & 1u; }
inline colset single(uint32_t c) {
    colset s = {};
    s.w[c / 64] = 1ull << (c % 64);
    return s;
}
inline uint32_t lowest(colset a) {
    uint32_t i = 0;
    while (a.w[i] == 0) ++i;
    return 64 * i + static_cast<uint32_t>(std::countr_zero(a.w[i]));
}
inline uint32_t count_of(colset a) {
    uint32_t n = 0;
    for (uint64_t x : a.w) n += bit_count(x);
    return n;
}

// Calls f(c) for each column of a, ascending; returns how many.
template <class F> uint32_t for_each_col(colset a, F &&f) {
    uint32_t n = 0;
    for (uint32_t i = 0; i < COLSET_WORDS; ++i)
        for (uint64_t x = a.w[i]; x; x &= x - 1, ++n) f(64 * i + static_cast<uint32_t>(std::countr_zero(x)));
    return n;
}
