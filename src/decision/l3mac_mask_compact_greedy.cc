// The greedy cover's size, counted without its template list. A compact
// search cut short by its budget must never cost more entries than the
// greedy cover; building that cover (a template and its member array per
// sub-cube, list walks for every insert) took as long as the compact search
// itself on dense sets, though only its size is read unless it wins.
//
// The count follows the greedy rule step for step on plain arrays:
//  - each member, in ascending order, brings the largest full sub-cubes
//    that have it as their highest number, found by the greedy search's own
//    finder (l3mac_mask_top_cubes) on the same member bitmap;
//  - a sub-cube goes when one of a higher level holds it. Only one found
//    later can hold it (its highest number is above every number of an
//    earlier one), and holding is transitive, so this is the list the
//    greedy inserts leave, whatever the order of the checks;
//  - the sweep walks what is left as the greedy list stands: ascending
//    level, newest member first, the last found of a member first; a
//    sub-cube above level 0 that is the only cover of none of its numbers
//    goes, and lowers the counts seen by those after it.
#include "decision/l3mac_mask_compact_greedy.h"

#include <algorithm>
#include <bit>
#include <cstring>

#include "decision/l3mac_mask_run.h"
#include "frame/l3mac_ctx.h"
#include "frame/l3mac_mem.h"

namespace {

constexpr uint8_t NOT_MEMBER = 0xFF;

struct greedy_count {
    mask_run r;          // the finder's view: member bitmap, neighbours
    uint32_t space;
    uint32_t *first;     // per number: its first sub-cube; space + 1 places
    uint8_t *level;      // per number: level of its sub-cubes, or NOT_MEMBER
    uint32_t *bits;      // per sub-cube: the bits it ignores
    uint8_t *gone;       // per sub-cube: held by a larger one, or swept
    uint32_t ncubes, cap;
    int32_t *cnt;        // per number: sub-cubes left that hold it
};

void close_count(greedy_count *g) {
    l3mac_free(g->r.nbr);
    l3mac_free(g->r.member);
    l3mac_free(g->first);
    l3mac_free(g->level);
    l3mac_free(g->bits);
    l3mac_free(g->gone);
    l3mac_free(g->cnt);
}

int open_count(greedy_count *g, uint32_t width) {
    std::memset(g, 0, sizeof(*g));
    g->space = 1u << width;
    g->r.width = width;
    g->r.space = g->space;
    g->r.comb = width == 14 ? l3mac_ctx.mask_comb.vfi : l3mac_ctx.mask_comb.vlan;
    g->r.nbr = static_cast<uint32_t *>(l3mac_malloc(g->space * sizeof(uint32_t)));
    g->r.member = static_cast<uint32_t *>(l3mac_calloc(g->space / 32, sizeof(uint32_t)));
    g->first = static_cast<uint32_t *>(l3mac_malloc((g->space + 1) * sizeof(uint32_t)));
    g->level = static_cast<uint8_t *>(l3mac_malloc(g->space));
    g->cnt = static_cast<int32_t *>(l3mac_calloc(g->space, sizeof(int32_t)));
    g->cap = g->space;
    g->bits = static_cast<uint32_t *>(l3mac_malloc(g->cap * sizeof(uint32_t)));
    if (!g->r.nbr || !g->r.member || !g->first || !g->level || !g->cnt || !g->bits) {
        close_count(g);
        return -1;
    }
    return 0;
}

bool in_set(const uint64_t *set, uint32_t x) { return set[x / 64] >> (x % 64) & 1u; }

// The member joins as in the greedy search: its neighbours below it, the
// bit across to it in theirs, then its largest sub-cubes.
int add_member(greedy_count *g, uint32_t v) {
    mask_run *r = &g->r;
    r->member[v / 32] |= 1u << (v % 32);
    uint32_t around = 0;
    for (uint32_t ones = v; ones; ones &= ones - 1) {
        const uint32_t b = 1u << std::countr_zero(ones);
        if (mask_is_member(r, v ^ b)) {
            around |= b;
            r->nbr[v ^ b] |= b;
        }
    }
    r->nbr[v] = around;
    uint32_t count = 0;
    g->level[v] = static_cast<uint8_t>(l3mac_mask_top_cubes(r, v, &count));
    if (g->ncubes + count > g->cap) {
        const uint32_t cap = std::max(g->cap * 2, g->ncubes + count);
        auto *bits = static_cast<uint32_t *>(l3mac_realloc(g->bits, cap * sizeof(uint32_t)));
        if (!bits) return -1;
        g->bits = bits;
        g->cap = cap;
    }
    std::memcpy(g->bits + g->ncubes, r->cubes, count * sizeof(uint32_t));
    g->ncubes += count;
    return 0;
}

int find_cubes(greedy_count *g, const uint64_t *set) {
    const uint32_t top = g->space - 1;
    for (uint32_t x = 0; x < g->space; ++x) {
        g->first[x] = g->ncubes;
        g->level[x] = NOT_MEMBER;
        if (x != 0 && (x == top || !in_set(set, x))) continue;
        if (add_member(g, x) != 0) return -1;
    }
    g->first[g->space] = g->ncubes;
    return 0;
}

// The sub-cubes of lower levels inside each one go. Each lies inside it
// through its own highest number, one of its numbers below its top.
void drop_held(greedy_count *g) {
    for (uint32_t v = 0; v < g->space; ++v) {
        const uint32_t lv = g->level[v];
        if (lv == NOT_MEMBER || lv == 0) continue;
        for (uint32_t i = g->first[v]; i < g->first[v + 1]; ++i) {
            const uint32_t b = g->bits[i];
            for (uint32_t s = b & (0u - b); s != 0; s = (s - b) & b) {
                const uint32_t x = v ^ s;
                if (g->level[x] >= lv) continue;
                for (uint32_t j = g->first[x]; j < g->first[x + 1]; ++j)
                    if ((g->bits[j] & ~b) == 0) g->gone[j] = 1;
            }
        }
    }
}

// Adds `delta` to the count of every number of sub-cube i of v.
void count_cube(greedy_count *g, uint32_t v, uint32_t i, int32_t delta) {
    const uint32_t b = g->bits[i];
    uint32_t s = 0;
    do {
        g->cnt[v ^ s] += delta;
        s = (s - b) & b;
    } while (s != 0);
}

bool sole_cover(const greedy_count *g, uint32_t v, uint32_t i) {
    const uint32_t b = g->bits[i];
    uint32_t s = 0;
    do {
        if (g->cnt[v ^ s] == 1) return true;
        s = (s - b) & b;
    } while (s != 0);
    return false;
}

void sweep(greedy_count *g) {
    uint32_t levels = 0;
    for (uint32_t v = 0; v < g->space; ++v) {
        if (g->level[v] == NOT_MEMBER) continue;
        levels |= 1u << g->level[v];
        for (uint32_t i = g->first[v]; i < g->first[v + 1]; ++i)
            if (!g->gone[i]) count_cube(g, v, i, 1);
    }
    for (uint32_t lv = 1; lv <= MASK_MAX_LEVEL; ++lv) {
        if (!(levels >> lv & 1u)) continue;
        for (uint32_t v = g->space; v-- > 0;) {
            if (g->level[v] != lv) continue;
            for (uint32_t i = g->first[v + 1]; i-- > g->first[v];) {
                if (g->gone[i] || sole_cover(g, v, i)) continue;
                g->gone[i] = 1;
                count_cube(g, v, i, -1);
            }
        }
    }
}

bool cube_less(const compact_cube &a, const compact_cube &b) {
    return a.key != b.key ? a.key < b.key : a.free < b.free;
}

// Entries left (value 0's own, the filler, not counted) and those held.
int tally(const greedy_count *g, const compact_cube *held, uint32_t nheld, uint32_t *entries,
          uint32_t *kept) {
    auto *sorted = static_cast<compact_cube *>(l3mac_malloc((nheld + 1) * sizeof(compact_cube)));
    if (!sorted) return -1;
    if (nheld) std::memcpy(sorted, held, nheld * sizeof(compact_cube));
    std::sort(sorted, sorted + nheld, cube_less);
    *entries = *kept = 0;
    for (uint32_t v = 0; v < g->space; ++v) {
        if (g->level[v] == NOT_MEMBER) continue;
        for (uint32_t i = g->first[v]; i < g->first[v + 1]; ++i) {
            if (g->gone[i] || (v == 0 && g->bits[i] == 0)) continue;
            ++*entries;
            const compact_cube q = {v & ~g->bits[i], g->bits[i]};
            *kept += std::binary_search(sorted, sorted + nheld, q, cube_less);
        }
    }
    l3mac_free(sorted);
    return 0;
}

}  // namespace

int l3mac_compact_greedy_count(uint32_t width, const uint64_t *set, const compact_cube *held,
                               uint32_t nheld, uint32_t *entries, uint32_t *kept) {
    greedy_count g;
    if (open_count(&g, width) != 0) return -1;
    int rv = find_cubes(&g, set);
    if (rv == 0) {
        g.gone = static_cast<uint8_t *>(l3mac_calloc(g.ncubes + 1, 1));
        rv = g.gone ? 0 : -1;
    }
    if (rv == 0) {
        drop_held(&g);
        sweep(&g);
        rv = tally(&g, held, nheld, entries, kept);
    }
    close_count(&g);
    return rv;
}
