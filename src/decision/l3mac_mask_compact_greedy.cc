// The greedy cover's size, counted without its template list. A compact
// search cut short by its budget must never cost more entries than the
// greedy cover; building that cover (a template and its member array per
// sub-cube, list walks for every insert) took as long as the compact search
// itself on dense sets, though only its size is read unless it wins.
//
// The count follows the greedy rule step for step on plain arrays:
//  - each member brings the largest full sub-cubes that have it as their
//    highest number, in the order of the greedy search's finder. They are
//    read off the primes the compact search already has, which costs a
//    fraction of the finder's walk through the member's neighbourhood on
//    dense sets;
//  - a sub-cube goes when one of a higher level holds it. Only one found
//    later can hold it (its highest number is above every number of an
//    earlier one), and holding is transitive, so this is the list the
//    greedy inserts leave, whatever the order of the checks;
//  - the sweep walks what is left as the greedy list stands: ascending
//    level, newest member first, the last found of a member first; a
//    sub-cube above level 0 that is the only cover of none of its numbers
//    goes, and lowers the counts seen by those after it;
//  - as the compact search gives the greedy cover: without a sub-cube
//    through value 0 that no other number of it needs.
#include "decision/l3mac_mask_compact_greedy.h"

#include <algorithm>
#include <cstring>

#include "decision/l3mac_mask_run.h"
#include "frame/l3mac_mem.h"

namespace {

constexpr uint8_t NOT_MEMBER = 0xFF;

struct greedy_count {
    uint32_t space;
    uint32_t *first;     // per number: its first sub-cube; space + 1 places
    uint8_t *level;      // per number: level of its sub-cubes, or NOT_MEMBER
    uint32_t *bits;      // per sub-cube: the bits it ignores
    uint8_t *gone;       // per sub-cube: held by a larger one, or swept
    uint32_t ncubes;
    int32_t *cnt;        // per number: sub-cubes left that hold it
    uint16_t *left;      // per number: its sub-cubes not yet gone
};

void close_count(greedy_count *g) {
    l3mac_free(g->first);
    l3mac_free(g->level);
    l3mac_free(g->bits);
    l3mac_free(g->gone);
    l3mac_free(g->cnt);
    l3mac_free(g->left);
}

int open_count(greedy_count *g, uint32_t width) {
    std::memset(g, 0, sizeof(*g));
    g->space = 1u << width;
    g->first = static_cast<uint32_t *>(l3mac_calloc(g->space + 1, sizeof(uint32_t)));
    g->level = static_cast<uint8_t *>(l3mac_malloc(g->space));
    g->cnt = static_cast<int32_t *>(l3mac_calloc(g->space, sizeof(int32_t)));
    g->left = static_cast<uint16_t *>(l3mac_malloc(g->space * sizeof(uint16_t)));
    if (!g->first || !g->level || !g->cnt || !g->left) {
        close_count(g);
        return -1;
    }
    std::memset(g->level, NOT_MEMBER, g->space);
    return 0;
}

// Walks the numbers of a prime with the bits of each that the prime
// ignores: those of a sub-cube through the number inside the prime.
template <class F> void each_number(const compact_cube &p, F f) {
    uint32_t s = 0;
    do {
        f(p.key | s, s);
        s = (s - p.free) & p.free;
    } while (s != 0);
}

// The order of the greedy finder: ascending bit positions compared
// lexicographically, so the first of two differs in the lower bit.
bool finder_before(uint32_t a, uint32_t b) {
    const uint32_t d = a ^ b;
    return (a & d & (0u - d)) != 0;
}

// The largest full sub-cubes whose highest number is x ignore bits of x
// only, and each lies in a prime through x: they are the largest sets of
// x's bits that a prime through x ignores. Every member is in a prime;
// value 0's only sub-cube is itself.
int find_cubes(greedy_count *g, const compact_cube *primes, uint32_t nprimes) {
    // The level of each number, and how many primes reach it there.
    for (uint32_t k = 0; k < nprimes; ++k)
        each_number(primes[k], [&](uint32_t x, uint32_t s) {
            const uint8_t lv = static_cast<uint8_t>(compact_bits(s));
            if (g->level[x] == NOT_MEMBER || lv > g->level[x]) {
                g->level[x] = lv;
                g->first[x + 1] = 1;
            } else {
                g->first[x + 1] += lv == g->level[x];
            }
        });
    for (uint32_t x = 0; x < g->space; ++x) g->first[x + 1] += g->first[x];
    g->bits = static_cast<uint32_t *>(l3mac_malloc((g->first[g->space] + 1) * sizeof(uint32_t)));
    if (!g->bits) return -1;
    // Each number's first place moves up as its sub-cubes go in, to its
    // end; they are then sorted and made unique, packed to the front.
    for (uint32_t k = 0; k < nprimes; ++k)
        each_number(primes[k], [&](uint32_t x, uint32_t s) {
            if (compact_bits(s) == g->level[x]) g->bits[g->first[x]++] = s;
        });
    uint32_t at = 0, lo = 0;
    for (uint32_t x = 0; x < g->space; ++x) {
        const uint32_t hi = g->first[x];
        g->first[x] = at;
        std::sort(g->bits + lo, g->bits + hi, finder_before);
        for (uint32_t i = lo; i < hi; ++i)
            if (i == lo || g->bits[i] != g->bits[i - 1]) g->bits[at++] = g->bits[i];
        lo = hi;
    }
    g->first[g->space] = at;
    g->ncubes = at;
    return 0;
}

// The sub-cubes of lower levels inside each one go. Each lies inside it
// through its own highest number, one of its numbers below its top; a
// number whose sub-cubes have all gone is passed over.
void drop_held(greedy_count *g) {
    for (uint32_t x = 0; x < g->space; ++x)
        g->left[x] = static_cast<uint16_t>(g->first[x + 1] - g->first[x]);
    for (uint32_t v = 0; v < g->space; ++v) {
        const uint32_t lv = g->level[v];
        if (lv == NOT_MEMBER || lv == 0) continue;
        for (uint32_t i = g->first[v]; i < g->first[v + 1]; ++i) {
            const uint32_t b = g->bits[i];
            for (uint32_t s = b & (0u - b); s != 0; s = (s - b) & b) {
                const uint32_t x = v ^ s;
                if (g->level[x] >= lv || g->left[x] == 0) continue;
                for (uint32_t j = g->first[x]; j < g->first[x + 1]; ++j)
                    if (!g->gone[j] && (g->bits[j] & ~b) == 0) {
                        g->gone[j] = 1;
                        --g->left[x];
                    }
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

// The sub-cubes through value 0 are those whose key is 0: at v, the one
// that ignores every bit of v. When only one is left, it is value 0's only
// cover, and goes when none of its other numbers counts on it.
void drop_value_zero_cube(greedy_count *g) {
    uint32_t at = 0, found = 0, v0 = 0;
    for (uint32_t v = 1; v < g->space; ++v) {
        if (g->level[v] == NOT_MEMBER) continue;
        for (uint32_t i = g->first[v]; i < g->first[v + 1]; ++i)
            if (!g->gone[i] && g->bits[i] == v) {
                at = i;
                v0 = v;
                ++found;
            }
    }
    if (found != 1) return;
    uint32_t s = 0;
    do {
        const uint32_t x = v0 ^ s;
        if (x != 0 && g->cnt[x] == 1) return;
        s = (s - v0) & v0;
    } while (s != 0);
    g->gone[at] = 1;
    count_cube(g, v0, at, -1);
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

int l3mac_compact_greedy_count(uint32_t width, const compact_cube *primes, uint32_t nprimes,
                               const compact_cube *held, uint32_t nheld, uint32_t *entries,
                               uint32_t *kept) {
    greedy_count g;
    if (open_count(&g, width) != 0) return -1;
    int rv = find_cubes(&g, primes, nprimes);
    if (rv == 0) {
        g.gone = static_cast<uint8_t *>(l3mac_calloc(g.ncubes + 1, 1));
        rv = g.gone ? 0 : -1;
    }
    if (rv == 0) {
        drop_held(&g);
        sweep(&g);
        drop_value_zero_cube(&g);
        rv = tally(&g, held, nheld, entries, kept);
    }
    close_count(&g);
    return rv;
}
