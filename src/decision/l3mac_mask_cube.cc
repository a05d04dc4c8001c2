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
//  - checks each combination number by number, and remembers each number
//    found missing, so that no later combination that spans it is checked.
// A level is always walked to its end, so every full sub-cube of the first
// level that has one is found.
#include <bit>

#include "decision/l3mac_mask_run.h"

namespace {

constexpr uint32_t MAX_HOLES = 32;
constexpr uint32_t NO_POS = ~0u;

struct cube_search {
    mask_run *r;
    uint32_t v;
    uint32_t n;                     // bits in dims
    uint32_t dims[MASK_MAX_LEVEL];  // ascending
    uint32_t joined[MASK_MAX_LEVEL];  // per position: positions joined to it
    uint32_t nholes;
    uint32_t holes[MAX_HOLES];      // bits that lead from v to a non-member
    uint32_t count;                 // sub-cubes found at this level
};

void collect_dims(cube_search *cs) {
    const uint32_t *nbr = cs->r->nbr;
    for (uint32_t across = nbr[cs->v]; across; across &= across - 1)
        cs->dims[cs->n++] = std::countr_zero(across);
    for (uint32_t i = 0; i < cs->n; ++i) {
        const uint32_t around = nbr[cs->v ^ (1u << cs->dims[i])];
        cs->joined[i] = 0;
        for (uint32_t j = 0; j < cs->n; ++j)
            if (around >> cs->dims[j] & 1u) cs->joined[i] |= 1u << j;
    }
}

// A sub-cube of level L needs L neighbours of v with L joined bits each
// (the bit towards v counts).
uint32_t start_level(const cube_search *cs) {
    for (uint32_t level = cs->n; level > 1; --level) {
        uint32_t able = 0;
        for (uint32_t i = 0; i < cs->n; ++i)
            able += std::popcount(cs->joined[i]) >= static_cast<int>(level);
        if (able >= level) return level;
    }
    return 1;
}

bool spans_hole(const cube_search *cs, uint32_t bits) {
    for (uint32_t i = 0; i < cs->nholes; ++i)
        if ((bits & cs->holes[i]) == cs->holes[i]) return true;
    return false;
}

// The bits that lead from v to the first non-member of the sub-cube, or 0
// when it is full. Subsets are taken in ascending order; v itself is
// always a member.
uint32_t find_hole(const cube_search *cs, uint32_t bits) {
    for (uint32_t s = bits & (0u - bits); s != 0; s = (s - bits) & bits)
        if (!mask_is_member(cs->r, cs->v ^ s)) return s;
    return 0;
}

void check_cube(cube_search *cs, uint32_t bits) {
    const uint32_t hole = find_hole(cs, bits);
    if (hole == 0)
        cs->r->cubes[cs->count++] = bits;
    else if (cs->nholes < MAX_HOLES)
        cs->holes[cs->nholes++] = hole;
}

// The first position from `from` on that can extend the combination whose
// bits are `bits` and whose remaining candidates are `cand`, with `need`
// positions still to choose; NO_POS when there is none.
uint32_t next_pos(const cube_search *cs, uint32_t cand, uint32_t from,
                  uint32_t need, uint32_t bits) {
    for (cand &= ~0u << from; cand; cand &= cand - 1) {
        if (static_cast<uint32_t>(std::popcount(cand)) < need) return NO_POS;
        const uint32_t p = std::countr_zero(cand);
        if (!spans_hole(cs, bits | 1u << cs->dims[p])) return p;
    }
    return NO_POS;
}

// Walks the combinations of `level` pairwise joined positions in
// lexicographic order. comb[k] is the position chosen at depth k; cand[k]
// and bits[k] describe the prefix comb[0..k).
void scan_level(cube_search *cs, uint32_t level) {
    int32_t *comb = cs->r->comb;
    uint32_t cand[MASK_MAX_LEVEL + 1], bits[MASK_MAX_LEVEL + 1];
    cand[0] = (1u << cs->n) - 1;
    bits[0] = 0;
    comb[0] = -1;
    int32_t depth = 0;
    while (depth >= 0) {
        const uint32_t k = static_cast<uint32_t>(depth);
        const uint32_t p = next_pos(cs, cand[k], comb[k] + 1, level - k, bits[k]);
        if (p == NO_POS) {
            --depth;
            continue;
        }
        comb[k] = static_cast<int32_t>(p);
        const uint32_t with = bits[k] | 1u << cs->dims[p];
        if (k + 1 == level) {
            check_cube(cs, with);
            continue;
        }
        cand[k + 1] = cand[k] & cs->joined[p] & (~0u << (p + 1));
        bits[k + 1] = with;
        comb[k + 1] = static_cast<int32_t>(p);
        ++depth;
    }
}

}  // namespace

int32_t l3mac_mask_top_cubes(mask_run *r, uint32_t v, uint32_t *count) {
    cube_search cs{};
    cs.r = r;
    cs.v = v;
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
