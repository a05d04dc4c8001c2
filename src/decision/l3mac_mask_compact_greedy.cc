// The greedy cover's size, counted without its template list. A compact
// search cut short by its budget must never cost more entries than the
// greedy cover; building that cover (a template and its member array per
// sub-cube, list walks for every insert) took as long as the compact search
// itself on dense sets, though only its size is read unless it wins.
//
// The count follows the greedy rule step for step on plain arrays:
//  - each member brings the largest full sub-cubes that have it as their
//    highest number, in the order of the greedy search's finder. They are
//    read off one bitmap per choice of ignored bits, of the numbers that
//    top a whole sub-cube, word by word: on dense sets a fraction of the
//    finder's walk through each member's neighbourhood;
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
#include <bit>
#include <cstring>

#include "decision/l3mac_mask_run.h"
#include "frame/l3mac_mem.h"

namespace {

constexpr uint8_t NOT_MEMBER = 0xFF;

struct greedy_count {
    uint32_t space;
    uint32_t *first;     // per number: its first sub-cube; space + 1 places
    uint8_t *level;      // per number: level of its sub-cubes, or NOT_MEMBER
    uint8_t *spare;      // per member: its set bits beyond its level
    uint32_t *bits;      // per sub-cube: the bits it ignores
    uint8_t *gone;       // per sub-cube: held by a larger one, or swept
    uint32_t ncubes;
    int32_t *cnt;        // per number: sub-cubes left that hold it
};

void close_count(greedy_count *g) {
    l3mac_free(g->first);
    l3mac_free(g->level);
    l3mac_free(g->spare);
    l3mac_free(g->bits);
    l3mac_free(g->gone);
    l3mac_free(g->cnt);
}

int open_count(greedy_count *g, uint32_t width) {
    std::memset(g, 0, sizeof(*g));
    g->space = 1u << width;
    g->first = static_cast<uint32_t *>(l3mac_calloc(g->space + 1, sizeof(uint32_t)));
    g->level = static_cast<uint8_t *>(l3mac_malloc(g->space));
    g->spare = static_cast<uint8_t *>(l3mac_malloc(g->space));
    g->cnt = static_cast<int32_t *>(l3mac_calloc(g->space, sizeof(int32_t)));
    if (!g->first || !g->level || !g->spare || !g->cnt) {
        close_count(g);
        return -1;
    }
    std::memset(g->level, NOT_MEMBER, g->space);
    return 0;
}

// The order of the greedy finder: ascending bit positions compared
// lexicographically, so the first of two differs in the lower bit.
bool finder_before(uint32_t a, uint32_t b) {
    const uint32_t d = a ^ b;
    return (a & d & (0u - d)) != 0;
}

// The tops of the whole sub-cubes ignoring F are a bitmap W_F of the
// space: x is in W_F when F's bits are set in x and every number that
// differs from x in F's bits alone is in the set. W_{} is the set, and
// with b the lowest bit of F, W_F = W_{F-b} at x and at x - 2^b, b set in
// x. Ignoring F is ignoring F minus b as well, so W_F lies in W_{F-b} and
// a walk that adds ever lower bits can stop where a bitmap is empty.
//
// A bit of F above the sixth picks words: W_F keeps only the words whose
// index has it set, packed, with their places beside them. Walking down,
// such bits come first, so the bit added next is always below every
// packed one and keeps its place in the packed index. With k the bits of
// a word index (6 for VLANs, 8 for VFIs), the walk then reads (4/3)^k
// times fewer words than with whole bitmaps.
struct tops_walk {
    greedy_count *g;
    uint32_t words;   // of the space
    uint64_t *stack;  // per depth: W_F, packed
    uint32_t *where;  // per depth: the word of the space each packed word is
    uint64_t *at;     // per level L: numbers with a whole sub-cube of L bits below them
    uint32_t *pairs;  // found sub-cubes, number << 16 | ignored bits
    uint32_t npairs, room;
    bool collect;
    bool failed;      // no memory for the pairs
};

void add_pair(tops_walk *w, uint32_t x, uint32_t f) {
    if (!l3mac_room_for_one(&w->pairs, w->npairs, &w->room, 1024)) {
        w->failed = true;
        return;
    }
    w->pairs[w->npairs++] = x << 16 | f;
}

// W_F into `dst` from W_{F-b} in `src` (n packed words), b below the sixth
// bit; whether any bit is set.
bool low_tops(const uint64_t *src, uint32_t n, uint32_t b, uint64_t *dst) {
    uint64_t any = 0;
    for (uint32_t i = 0; i < n; ++i) {
        dst[i] = src[i] & src[i] << (1u << b) & ~COMPACT_BIT_ZERO[b];
        any |= dst[i];
    }
    return any != 0;
}

// The same for a bit q = b - 6 of the word index: pairs of words that
// differ in it, packed to half as many.
bool high_tops(const uint64_t *src, const uint32_t *from, uint32_t n, uint32_t q, uint64_t *dst,
               uint32_t *to) {
    const uint32_t half = 1u << q;
    uint64_t any = 0;
    for (uint32_t blk = 0; blk < n; blk += 2 * half)
        for (uint32_t t = 0; t < half; ++t) {
            dst[blk / 2 + t] = src[blk + t] & src[blk + half + t];
            to[blk / 2 + t] = from[blk + half + t];
            any |= dst[blk / 2 + t];
        }
    return any != 0;
}

// The first walk ORs each W_F into the bitmap of its level; the second
// takes the numbers of W_F whose level is F's, and goes deeper only where
// a number of a higher level is left.
void walk(tops_walk *w, uint32_t f, uint32_t depth, uint32_t n, const uint32_t *where) {
    const uint64_t *tops = w->stack + static_cast<size_t>(depth) * w->words;
    uint64_t *lv = w->at + static_cast<size_t>(depth) * w->words;
    if (!w->collect) {
        for (uint32_t i = 0; i < n; ++i) lv[where[i]] |= tops[i];
    } else {
        const uint64_t *up = lv + w->words;
        bool higher = false;
        for (uint32_t i = 0; i < n; ++i) {
            higher |= (tops[i] & up[where[i]]) != 0;
            for (uint64_t m = tops[i] & ~up[where[i]]; m; m &= m - 1)
                add_pair(w, where[i] * 64 + static_cast<uint32_t>(std::countr_zero(m)), f);
        }
        if (!higher) return;
    }
    const uint32_t below = f ? static_cast<uint32_t>(std::countr_zero(f))
                             : static_cast<uint32_t>(std::countr_zero(w->g->space));
    uint64_t *next = w->stack + static_cast<size_t>(depth + 1) * w->words;
    uint32_t *next_where = w->where + static_cast<size_t>(depth + 1) * w->words;
    for (uint32_t b = 0; b < below; ++b) {
        if (b < 6) {
            if (low_tops(tops, n, b, next)) walk(w, f | 1u << b, depth + 1, n, where);
        } else if (high_tops(tops, where, n, b - 6, next, next_where)) {
            walk(w, f | 1u << b, depth + 1, n / 2, next_where);
        }
    }
}

// The largest full sub-cubes whose highest number is x: those whose level,
// the bits they ignore, is the highest of any whole sub-cube below x. A
// number with a whole sub-cube of L + 1 bits below it has one of L bits,
// so the level bitmaps nest: x's level is the last that holds it.
// `on` is the set; value 0 is taken as a member and the top value not.
int find_cubes(greedy_count *g, uint32_t width, const uint64_t *on) {
    tops_walk w = {g, g->space / 64, nullptr, nullptr, nullptr, nullptr, 0, 0, false, false};
    const size_t maps = static_cast<size_t>(width) + 2;
    w.stack = static_cast<uint64_t *>(l3mac_malloc(maps * w.words * sizeof(uint64_t)));
    w.where = static_cast<uint32_t *>(l3mac_malloc(maps * w.words * sizeof(uint32_t)));
    w.at = static_cast<uint64_t *>(l3mac_calloc(maps * w.words, sizeof(uint64_t)));
    int rv = w.stack && w.where && w.at ? 0 : -1;
    if (rv == 0) {
        std::memcpy(w.stack, on, w.words * sizeof(uint64_t));
        w.stack[0] |= 1;
        w.stack[w.words - 1] &= ~(1ull << 63);
        for (uint32_t i = 0; i < w.words; ++i) w.where[i] = i;
        walk(&w, 0, 0, w.words, w.where);
        for (uint32_t lv = 0; lv <= width; ++lv) {
            const uint64_t *mine = w.at + static_cast<size_t>(lv) * w.words;
            for (uint32_t i = 0; i < w.words; ++i)
                for (uint64_t m = mine[i] & ~mine[i + w.words]; m; m &= m - 1) {
                    const uint32_t x = i * 64 + static_cast<uint32_t>(std::countr_zero(m));
                    g->level[x] = static_cast<uint8_t>(lv);
                    g->spare[x] = static_cast<uint8_t>(compact_bits(x) - lv);
                }
        }
        w.collect = true;
        walk(&w, 0, 0, w.words, w.where);
        rv = w.failed ? -1 : 0;
    }
    if (rv == 0) g->bits = static_cast<uint32_t *>(l3mac_malloc((w.npairs + 1) * sizeof(uint32_t)));
    if (rv == 0 && g->bits) {
        // Grouped by number, each group in the finder's order.
        for (uint32_t k = 0; k < w.npairs; ++k) ++g->first[(w.pairs[k] >> 16) + 1];
        for (uint32_t x = 0; x < g->space; ++x) g->first[x + 1] += g->first[x];
        for (uint32_t k = 0; k < w.npairs; ++k)
            g->bits[g->first[w.pairs[k] >> 16]++] = w.pairs[k] & 0xFFFF;
        for (uint32_t x = g->space; x-- > 0;) g->first[x + 1] = g->first[x];
        g->first[0] = 0;
        for (uint32_t x = 0; x < g->space; ++x)
            if (g->first[x + 1] - g->first[x] > 1)
                std::sort(g->bits + g->first[x], g->bits + g->first[x + 1], finder_before);
        g->ncubes = w.npairs;
    } else {
        rv = -1;
    }
    l3mac_free(w.stack);
    l3mac_free(w.where);
    l3mac_free(w.at);
    l3mac_free(w.pairs);
    return rv;
}

// The sub-cubes of lower levels inside each one go. One of x inside (v, b)
// ignores bits of b & x only, and the sub-cube below x that ignores all of
// b & x lies in (v, b) and is whole: x's level is at least |b & x|, and
// only a sub-cube of exactly that level, ignoring exactly b & x, can lie
// inside. x lacks |v| - |x| of b's bits, so that level leaves x as many
// spare bits as v has. Higher numbers go first, so a sub-cube that went
// is passed over: what it holds, the one that holds it holds too.
void drop_held(greedy_count *g) {
    for (uint32_t v = g->space; v-- > 0;) {
        const uint32_t lv = g->level[v];
        if (lv == NOT_MEMBER || lv == 0) continue;
        for (uint32_t i = g->first[v]; i < g->first[v + 1]; ++i) {
            if (g->gone[i]) continue;
            const uint32_t b = g->bits[i];
            for (uint32_t s = b & (0u - b); s != 0; s = (s - b) & b) {
                const uint32_t x = v ^ s;
                if (g->spare[x] != g->spare[v]) continue;
                for (uint32_t j = g->first[x]; j < g->first[x + 1]; ++j)
                    if (g->bits[j] == (b & x)) {
                        g->gone[j] = 1;
                        break;
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

int l3mac_compact_greedy_count(uint32_t width, const uint64_t *on, const compact_cube *held,
                               uint32_t nheld, uint32_t *entries, uint32_t *kept) {
    greedy_count g;
    if (open_count(&g, width) != 0) return -1;
    int rv = find_cubes(&g, width, on);
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
