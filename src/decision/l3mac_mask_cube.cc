// Sub-cube finder of the mask cover search: the largest full sub-cubes
// through the newest member, found without walking its whole neighbourhood.
//
// Members join in ascending order, so the neighbours of v are below it and
// differ from it in bits that are 1 in v: `dims`. A sub-cube of level L
// through v ignores L bits of dims, and it is full only if every two of its
// bits are joined: v with both flipped is a member too. So the finder
//  - bounds the level by the degrees of v's neighbours (L of them need L
//    joined bits each),
//  - walks, level by level from that bound down, only the combinations
//    whose bits are pairwise joined, in lexicographic order of their
//    positions in dims, with l3mac_ctx.mask_comb as the walk's stack,
//  - checks each combination against the member bitmap, a word at a time,
//    and remembers each number found missing, so that no later combination
//    that spans it is checked.
// A level is always walked to its end, so every full sub-cube of the first
// level that has one is found, in the order in which the list wants them.
#include <bit>

#include "decision/l3mac_bit_count.h"
#include "decision/l3mac_mask_run.h"

namespace {

constexpr uint32_t MAX_HOLES = 32;
constexpr uint32_t NO_BIT = ~0u;
constexpr uint32_t WORD_BITS = 0x1F;  // bits that pick a number within a word

// Bits are numbered as in the numbers themselves; positions count the bits
// of dims from 0, ascending, as mask_comb holds them.
struct cube_search {
    mask_run *r;
    uint32_t v;
    uint32_t n;                       // bits in dims
    uint32_t dims_bits;               // dims as a mask
    uint32_t dims[MASK_MAX_LEVEL];    // position -> bit
    uint32_t pos[MASK_MAX_LEVEL + 1]; // bit -> position
    uint32_t joined[MASK_MAX_LEVEL + 1];  // per bit: bits of dims joined to it
    uint32_t degree[MASK_MAX_LEVEL + 1];  // per bit: how many
    uint32_t nholes;
    uint32_t holes[MAX_HOLES];        // bits that lead from v to a non-member
    uint32_t count;                   // sub-cubes found at this level
};

void collect_dims(cube_search *cs) {
    const uint32_t *nbr = cs->r->nbr;
    cs->dims_bits = nbr[cs->v];
    for (uint32_t across = cs->dims_bits; across; across &= across - 1) {
        const uint32_t d = std::countr_zero(across);
        cs->pos[d] = cs->n;
        cs->dims[cs->n++] = d;
        cs->joined[d] = nbr[cs->v ^ (1u << d)] & cs->dims_bits;
        cs->degree[d] = bit_count(cs->joined[d]);
    }
}

// A sub-cube of level L needs L neighbours of v with L joined bits each
// (the bit towards v counts).
uint32_t start_level(const cube_search *cs) {
    uint32_t with_degree[MASK_MAX_LEVEL + 1] = {};
    for (uint32_t i = 0; i < cs->n; ++i) ++with_degree[cs->degree[cs->dims[i]]];
    uint32_t able = 0;  // neighbours of degree `level` or more
    for (uint32_t level = cs->n; level > 1; --level) {
        able += with_degree[level];
        if (able >= level) return level;
    }
    return 1;
}

bool spans_hole(const cube_search *cs, uint32_t bits) {
    for (uint32_t i = 0; i < cs->nholes; ++i)
        if ((bits & cs->holes[i]) == cs->holes[i]) return true;
    return false;
}

// The numbers of one member bitmap word that the sub-cube of v across the
// low `bits` holds, as a mask of that word.
uint32_t word_pattern(uint32_t v, uint32_t low_bits) {
    uint32_t pattern = 1u << (v & WORD_BITS & ~low_bits);
    for (uint32_t b = low_bits; b; b &= b - 1) pattern |= pattern << (1u << std::countr_zero(b));
    return pattern;
}

// The bits that lead from v to a non-member of the sub-cube across `bits`,
// or 0 when it is full. One member word answers for all the numbers that
// differ only in the low bits.
uint32_t find_hole(const cube_search *cs, uint32_t bits) {
    const uint32_t low = bits & WORD_BITS, high = bits & ~WORD_BITS;
    const uint32_t pattern = word_pattern(cs->v, low);
    uint32_t s = 0;
    do {
        const uint32_t x = cs->v ^ s;
        const uint32_t missing = pattern & ~cs->r->member[x / 32];
        if (missing) return s | ((x & WORD_BITS) ^ std::countr_zero(missing));
        s = (s - high) & high;
    } while (s != 0);
    return 0;
}

void check_cube(cube_search *cs, uint32_t bits) {
    const uint32_t hole = find_hole(cs, bits);
    if (hole == 0)
        cs->r->cubes[cs->count++] = bits;
    else if (cs->nholes < MAX_HOLES)
        cs->holes[cs->nholes++] = hole;
}

// The lowest bit of `cand` that can extend the combination whose bits are
// `bits`, with `need` bits still to choose; NO_BIT when there is none.
uint32_t next_bit(const cube_search *cs, uint32_t cand, uint32_t need, uint32_t bits) {
    for (uint32_t left = bit_count(cand); left >= need && cand; --left) {
        const uint32_t d = std::countr_zero(cand);
        if (!spans_hole(cs, bits | 1u << d)) return d;
        cand &= cand - 1;
    }
    return NO_BIT;
}

// Walks the combinations of `level` pairwise joined bits of dims in
// lexicographic order of their positions. comb[k] is the position chosen at
// depth k, -1 before the first; cand[k] and bits[k] describe the prefix
// comb[0..k).
void scan_level(cube_search *cs, uint32_t level) {
    int32_t *comb = cs->r->comb;
    uint32_t cand[MASK_MAX_LEVEL + 1], bits[MASK_MAX_LEVEL + 1];
    cand[0] = cs->dims_bits;
    bits[0] = 0;
    comb[0] = -1;
    int32_t depth = 0;
    while (depth >= 0) {
        const uint32_t k = static_cast<uint32_t>(depth);
        const uint32_t above = comb[k] < 0 ? ~0u : ~0u << (cs->dims[comb[k]] + 1);
        const uint32_t d = next_bit(cs, cand[k] & above, level - k, bits[k]);
        if (d == NO_BIT) {
            --depth;
            continue;
        }
        comb[k] = static_cast<int32_t>(cs->pos[d]);
        const uint32_t with = bits[k] | 1u << d;
        if (k + 1 == level) {
            check_cube(cs, with);
            continue;
        }
        cand[k + 1] = cand[k] & cs->joined[d] & (~0u << (d + 1));
        bits[k + 1] = with;
        comb[k + 1] = -1;
        ++depth;
    }
}

}  // namespace

int32_t l3mac_mask_top_cubes(mask_run *r, uint32_t v, uint32_t *count) {
    cube_search cs;
    cs.r = r;
    cs.v = v;
    cs.n = 0;
    cs.nholes = 0;
    cs.count = 0;
    collect_dims(&cs);
    if (cs.n == 0) {
        r->cubes[0] = 0;
        *count = 1;
        return 0;
    }
    uint32_t level = start_level(&cs);
    for (; level > 1; --level) {
        scan_level(&cs, level);
        if (cs.count != 0) break;
    }
    if (level == 1) {  // v and any one neighbour
        for (uint32_t i = 0; i < cs.n; ++i) r->cubes[i] = 1u << cs.dims[i];
        cs.count = cs.n;
    }
    *count = cs.count;
    return static_cast<int32_t>(level);
}
