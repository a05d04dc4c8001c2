// Compact cover search, the parts below the template list: sub-cubes as
// plain records, the primes of a set in a space of any width up to 14 bits,
// and the weighted covering that picks the fewest of them. Internal to the
// compact search (l3mac_mask_compact.cc) and its tests; the width is a
// parameter so that whole small spaces can be checked by brute force.
//
// A space of `width` bits holds the numbers 0 to 2^width - 1. Value 0 may
// be matched or not; the top value 2^width - 1 is never matched; every other
// number is matched exactly when it is in the set.
#pragma once

#include <cstdint>

inline constexpr uint32_t COMPACT_MAX_WIDTH = 14;

// Set bits of a number of up to 16 bits, by table: the build targets CPUs
// without a popcount instruction, where std::popcount is a library call,
// and the prime tables count the bits of every choice of ignored bits.
struct compact_bits_table {
    uint8_t n[256];
};

inline constexpr compact_bits_table COMPACT_BITS8 = [] {
    compact_bits_table t{};
    for (uint32_t x = 1; x < 256; ++x) t.n[x] = static_cast<uint8_t>(t.n[x / 2] + (x & 1));
    return t;
}();

inline uint32_t compact_bits(uint32_t x) {
    return COMPACT_BITS8.n[x & 0xFF] + COMPACT_BITS8.n[x >> 8 & 0xFF];
}

// COMPACT_BIT_ZERO[j]: the positions of a 64-bit word whose bit j is 0, runs
// of 2^j ones and 2^j zeros from bit 0. Bitmaps of a space index their
// numbers by position, so these pick the numbers without bit j.
inline constexpr uint64_t COMPACT_BIT_ZERO[6] = {
    0x5555555555555555ull, 0x3333333333333333ull, 0x0F0F0F0F0F0F0F0Full,
    0x00FF00FF00FF00FFull, 0x0000FFFF0000FFFFull, 0x00000000FFFFFFFFull};

// Steps of the covering search: each is one look at one {row, column}
// incidence, so that a budget means the same amount of work on every
// machine and the result never depends on the clock.
inline constexpr uint64_t COMPACT_BUDGET_VLAN = 1000000;
inline constexpr uint64_t COMPACT_BUDGET_VFI = 4000000;

// A sub-cube: the numbers x with x & ~free == key (key has no free bit).
struct compact_cube {
    uint32_t key;
    uint32_t free;
};

struct compact_input {
    uint32_t width;            // bits of a number, 1 to 14
    const uint64_t *set;       // 2^width bits; bit 0 and the top bit are not read
    const compact_cube *have;  // the entries the MAC holds now; may be null
    uint32_t have_cnt;
    uint64_t budget;           // steps of the covering search
};

struct compact_output {
    compact_cube *cubes;  // the cover, ascending free-bit count, then key, then free
    uint32_t count;
    uint32_t kept;        // cubes that are among `have`
    bool exact;           // the search ran to its end: no cover is smaller, nor
                          // one of equal size that keeps more of `have`
    uint64_t steps;       // steps the search took
};

// The cover of the fewest sub-cubes for `in`, and among those one that
// keeps the most of `in->have`. 0, or -1 when memory ran out (nothing is
// left allocated then). Release the result with l3mac_compact_release.
int l3mac_compact_cover(const compact_input *in, compact_output *out);
void l3mac_compact_release(compact_output *out);

// The maximal sub-cubes (primes) of `on`, a bitmap of 2^width bits that
// already holds value 0 and not the top value. *primes is allocated; 0 or -1.
int l3mac_compact_primes(uint32_t width, const uint64_t *on, compact_cube **primes,
                         uint32_t *count);
// The same primes in the same order, found by splitting the set on its top
// bit, which costs little when the set is a few runs of consecutive
// numbers and much more than the tables when it is many. 0, -1 when
// memory ran out, or COMPACT_SPLIT_GAVE_UP when it looked at more than
// `most` words and cubes (nothing is allocated then).
inline constexpr int COMPACT_SPLIT_GAVE_UP = 1;
int l3mac_compact_primes_split(uint32_t width, const uint64_t *on, uint64_t most,
                               compact_cube **primes, uint32_t *count);
// Runs of consecutive numbers in `on` (2^width bits).
uint32_t l3mac_compact_runs(uint32_t width, const uint64_t *on);
// Sets of at most this many runs take l3mac_compact_primes_split, and
// leave it for the tables once it has looked at half as many words and
// cubes as the tables have bits: about as long as the tables take. Small
// spaces, checked by brute force, split whatever their set.
inline constexpr uint32_t COMPACT_SPLIT_RUNS = 64;
inline constexpr uint64_t compact_split_most(uint32_t width) {
    uint64_t bits = 1;
    for (uint32_t b = 0; b < width; ++b) bits *= 3;
    return bits / 2 > 4096 ? bits / 2 : 4096;
}

// A covering problem: columns with a cost each, every column a run of row
// numbers, every row in at least one column.
struct cover_matrix {
    uint32_t nrows;
    uint32_t ncols;
    const uint32_t *col_start;  // ncols + 1 offsets into col_rows
    const uint32_t *col_rows;   // rows of each column, ascending
    const int64_t *cost;        // per column, > 0
};

struct cover_answer {
    uint32_t *cols;  // chosen columns, ascending; ncols places, given by the caller
    uint32_t count;
    bool exact;      // the search proved the cost least
    uint64_t steps;
};

// Columns of least total cost that together hold every row, searched
// within `budget` steps (the best found when the budget runs out). A
// matrix too large for the reductions also counts, in ans->steps, the
// steps of building its views, in proportion to its incidences, which its
// search does not take from the budget. 0 or -1.
int l3mac_cover_solve(const cover_matrix *m, uint64_t budget, cover_answer *ans);
