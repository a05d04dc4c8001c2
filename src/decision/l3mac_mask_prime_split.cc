// Primes of a set of few runs of consecutive numbers, by splitting on the
// top bit, without the tables of every choice of ignored bits.
//
// With S0 and S1 the halves of a set below and above its top bit, and S01
// their intersection, the primes of the set are
//  - every prime of S01 with the top bit ignored,
//  - every prime of S0 that S01 does not hold, with the top bit 0,
//  - every prime of S1 that S01 does not hold, with the top bit 1;
// and a prime of S0 lies in S01 exactly when a prime of S01 holds it. An
// empty half, a full half, or two equal halves leave one branch only, so a
// run costs a few branches a bit and a set of k runs about k times the
// square of the width, where the tables cost 3^width whatever the set.
// A set of few runs can still have many primes, as a whole space with a
// few numbers missing has, and the halves' primes are held against the
// intersection's one by one: the split counts what it looks at and gives
// up past a bound, for the tables to take over.
// The primes come in the tables' order: ascending ignored bits, then key.
#include <algorithm>
#include <cstring>

#include "decision/l3mac_mask_compact_run.h"
#include "frame/l3mac_mem.h"

namespace {

struct split_run {
    uint64_t *arena;  // intersections, as a stack
    uint32_t arena_at, arena_room;
    compact_cube *out;  // primes found, the open branches' at the end
    uint32_t count, room;
    uint64_t looks, most;  // words and cubes looked at, and the most allowed
};

uint32_t words_for(uint32_t m) { return m <= 6 ? 1 : 1u << (m - 6); }

uint64_t low_mask(uint32_t m) { return m >= 6 ? ~0ull : (1ull << (1u << m)) - 1; }

bool all_zero(const uint64_t *a, uint32_t m) {
    const uint32_t n = words_for(m);
    if (m < 6) return (a[0] & low_mask(m)) == 0;
    for (uint32_t i = 0; i < n; ++i)
        if (a[i]) return false;
    return true;
}

bool all_one(const uint64_t *a, uint32_t m) {
    const uint32_t n = words_for(m);
    if (m < 6) return (a[0] & low_mask(m)) == low_mask(m);
    for (uint32_t i = 0; i < n; ++i)
        if (~a[i]) return false;
    return true;
}

bool same(const uint64_t *a, const uint64_t *b, uint32_t m) {
    if (m < 6) return ((a[0] ^ b[0]) & low_mask(m)) == 0;
    return std::memcmp(a, b, words_for(m) * sizeof(uint64_t)) == 0;
}

int push(split_run *r, compact_cube c) {
    if (!l3mac_room_for_one(&r->out, r->count, &r->room, 64)) return -1;
    r->out[r->count++] = c;
    return 0;
}

// Whether some cube of [from, to) holds c.
bool held_by(split_run *r, const compact_cube *from, const compact_cube *to,
             const compact_cube &c) {
    r->looks += static_cast<uint64_t>(to - from);
    for (const compact_cube *p = from; p != to; ++p)
        if ((c.free & ~p->free) == 0 && (c.key & ~p->free) == p->key) return true;
    return false;
}

// The cubes from `at` on ignore the bit `top` too.
void ignore_top(split_run *r, uint32_t at, uint32_t top) {
    for (uint32_t k = at; k < r->count; ++k) r->out[k].free |= top;
}

// The cubes from `at` on have the bit `top` set.
void set_top(split_run *r, uint32_t at, uint32_t top) {
    for (uint32_t k = at; k < r->count; ++k) r->out[k].key |= top;
}

int primes_of(split_run *r, const uint64_t *s, uint32_t m);

// The halves of s (m bits): their words, or for small m one word each.
void halves(const uint64_t *s, uint32_t m, uint64_t lo[1], uint64_t hi[1], const uint64_t **s0,
            const uint64_t **s1) {
    if (m <= 6) {
        const uint32_t half = 1u << (m - 1);
        lo[0] = s[0] & low_mask(m - 1);
        hi[0] = s[0] >> half & low_mask(m - 1);
        *s0 = lo;
        *s1 = hi;
        return;
    }
    *s0 = s;
    *s1 = s + words_for(m - 1);
}

// Primes of the two halves joined: see the top of the file.
int join(split_run *r, const uint64_t *s0, const uint64_t *s1, uint32_t m) {
    const uint32_t top = 1u << (m - 1), n = words_for(m - 1);
    if (r->arena_at + n > r->arena_room) return -1;  // sized for the deepest stack
    uint64_t *both = r->arena + r->arena_at;
    for (uint32_t i = 0; i < n; ++i) both[i] = s0[i] & s1[i];
    r->arena_at += n;
    const uint32_t at_both = r->count;
    int rv = primes_of(r, both, m - 1);
    const uint32_t at_lo = r->count;
    if (rv == 0) rv = primes_of(r, s0, m - 1);
    const uint32_t at_hi = r->count;
    if (rv == 0) rv = primes_of(r, s1, m - 1);
    r->arena_at -= n;
    if (rv != 0) return rv;
    // The halves' primes that the intersection's hold go; the others and
    // the intersection's get their top bit.
    const compact_cube *pb = r->out + at_both, *pe = r->out + at_lo;
    uint32_t keep = at_lo;
    for (uint32_t k = at_lo; k < r->count; ++k) {
        if (held_by(r, pb, pe, r->out[k])) continue;
        compact_cube c = r->out[k];
        if (k >= at_hi) c.key |= top;
        r->out[keep++] = c;
    }
    r->count = keep;
    for (uint32_t k = at_both; k < at_lo; ++k) r->out[k].free |= top;
    return 0;
}

int primes_of(split_run *r, const uint64_t *s, uint32_t m) {
    r->looks += words_for(m);
    if (r->looks > r->most) return COMPACT_SPLIT_GAVE_UP;
    if (all_zero(s, m)) return 0;
    if (all_one(s, m)) return push(r, {0, (1u << m) - 1});
    // m >= 1 here: a set of one number is either empty or full.
    uint64_t lo[1], hi[1];
    const uint64_t *s0, *s1;
    halves(s, m, lo, hi, &s0, &s1);
    const uint32_t top = 1u << (m - 1);
    const uint32_t at = r->count;
    if (all_zero(s1, m - 1)) return primes_of(r, s0, m - 1);
    if (all_zero(s0, m - 1)) {
        if (const int rv = primes_of(r, s1, m - 1); rv != 0) return rv;
        set_top(r, at, top);
        return 0;
    }
    // Equal halves are their intersection; a full half holds the other,
    // which is then the intersection, and is a prime itself.
    const bool full0 = all_one(s0, m - 1), full1 = all_one(s1, m - 1);
    if (full0 || full1 || same(s0, s1, m - 1)) {
        if (const int rv = primes_of(r, full1 ? s0 : s1, m - 1); rv != 0) return rv;
        ignore_top(r, at, top);
        if (full0 == full1) return 0;
        return push(r, {full1 ? top : 0, top - 1});
    }
    // For m <= 6 the halves live in this frame's lo and hi.
    return join(r, s0, s1, m);
}

bool by_free_key(const compact_cube &a, const compact_cube &b) {
    return a.free != b.free ? a.free < b.free : a.key < b.key;
}

}  // namespace

uint32_t l3mac_compact_runs(uint32_t width, const uint64_t *on) {
    uint32_t runs = 0;
    uint64_t carry = 0;  // the last bit of the word before
    for (uint32_t i = 0; i < words_for(width); ++i) {
        const uint64_t w = on[i] & low_mask(width);
        for (uint64_t starts = w & ~(w << 1 | carry); starts; starts &= starts - 1) ++runs;
        carry = w >> 63;
    }
    return runs;
}

int l3mac_compact_primes_split(uint32_t width, const uint64_t *on, uint64_t most,
                               compact_cube **primes, uint32_t *count) {
    split_run r = {};
    r.most = most;
    // Each level's intersection is half the level above: all of them
    // together fit in one bitmap of the whole width.
    r.arena_room = words_for(width) + COMPACT_MAX_WIDTH;
    r.arena = static_cast<uint64_t *>(l3mac_malloc(r.arena_room * sizeof(uint64_t)));
    int rv = r.arena ? 0 : -1;
    if (rv == 0) rv = primes_of(&r, on, width);
    l3mac_free(r.arena);
    if (rv != 0) {
        l3mac_free(r.out);
        return rv;
    }
    std::sort(r.out, r.out + r.count, by_free_key);
    *primes = r.out;
    *count = r.count;
    return 0;
}
