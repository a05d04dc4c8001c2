// Primes of a set: every sub-cube of the set (value 0 allowed, the top value
// not) that no larger sub-cube of the set holds.
//
// For each choice F of ignored bits, one bitmap says which sub-cubes with
// exactly those bits ignored lie wholly in the set. It is indexed by the
// compared bits alone (the bits of F squeezed out), so that it has
// 2^(width - |F|) bits and all of them together 3^width bits: 66 KB for
// VLANs, 600 KB for VFIs. With b the lowest bit of F, the sub-cube ignoring
// F is whole when both halves ignoring F minus b are, and b is then also
// the position of b among the compared bits of F minus b, so each bitmap
// comes from one other by a word-wise AND of neighbours and a squeeze.
// A whole sub-cube is prime when no sub-cube that also ignores one more bit
// is whole: the bitmaps one level up, spread back out, tell which.
#include <bit>
#include <cstring>

#include "decision/l3mac_mask_compact_run.h"
#include "frame/l3mac_mem.h"

namespace {

// The bits of x at positions whose bit p is 0, packed into the low half.
uint64_t squeeze_word(uint64_t x, uint32_t p) {
    x &= COMPACT_BIT_ZERO[p];
    for (uint32_t q = p; q < 5; ++q) x = (x | x >> (1u << q)) & COMPACT_BIT_ZERO[q + 1];
    return x;
}

// The inverse: the low 32 bits, each sent to both positions that differ in
// bit p of their position.
uint64_t spread_word(uint64_t x, uint32_t p) {
    x &= COMPACT_BIT_ZERO[5];
    for (uint32_t q = 5; q-- > p;) x = (x | x << (1u << q)) & COMPACT_BIT_ZERO[q];
    return x | x << (1u << p);
}

uint32_t words_of(uint32_t m) { return m <= 6 ? 1 : 1u << (m - 6); }

// r (m - 1 index bits) = pairs of a (m index bits) that differ in bit p,
// both set.
void squeeze_and(const uint64_t *a, uint32_t m, uint32_t p, uint64_t *r) {
    if (p < 6) {
        const uint32_t n = words_of(m);
        const uint32_t s = 1u << p;
        if (n == 1) {
            r[0] = squeeze_word(a[0] & a[0] >> s, p);
            return;
        }
        for (uint32_t i = 0; i < n; i += 2)
            r[i / 2] = squeeze_word(a[i] & a[i] >> s, p) |
                       squeeze_word(a[i + 1] & a[i + 1] >> s, p) << 32;
        return;
    }
    const uint32_t half = 1u << (p - 6), n = words_of(m);
    for (uint32_t blk = 0; blk < n; blk += 2 * half)
        for (uint32_t t = 0; t < half; ++t) r[blk / 2 + t] = a[blk + t] & a[blk + half + t];
}

// a (m index bits) &= ~(r spread across bit p).
void clear_spread(uint64_t *a, uint32_t m, uint32_t p, const uint64_t *r) {
    const uint32_t n = words_of(m);
    if (p < 6) {
        if (n == 1) {
            a[0] &= ~spread_word(r[0], p);
            return;
        }
        for (uint32_t i = 0; i < n; i += 2) {
            a[i] &= ~spread_word(r[i / 2], p);
            a[i + 1] &= ~spread_word(r[i / 2] >> 32, p);
        }
        return;
    }
    const uint32_t half = 1u << (p - 6);
    for (uint32_t blk = 0; blk < n; blk += 2 * half)
        for (uint32_t t = 0; t < half; ++t) {
            a[blk + t] &= ~r[blk / 2 + t];
            a[blk + half + t] &= ~r[blk / 2 + t];
        }
}

// The index bits `j` laid onto the positions of the 1 bits of `onto`.
uint32_t deposit(uint32_t j, uint32_t onto) {
    uint32_t out = 0;
    for (; onto && j; onto &= onto - 1, j >>= 1)
        if (j & 1) out |= onto & (0u - onto);
    return out;
}

struct prime_run {
    uint32_t width;
    uint32_t space;      // 2^width
    uint32_t *offset;    // per F: first word of its bitmap
    uint8_t *whole;      // per F: its bitmap has a bit set
    uint64_t *bits;      // all bitmaps
    uint64_t *scratch;   // one bitmap of the widest kind
    compact_cube *primes;
    uint32_t count, room;
};

uint32_t index_bits(const prime_run *r, uint32_t f) {
    return r->width - compact_bits(f);
}

int open_prime_run(prime_run *r, uint32_t width) {
    r->width = width;
    r->space = 1u << width;
    r->count = r->room = 0;
    r->primes = nullptr;
    r->offset = static_cast<uint32_t *>(l3mac_malloc(r->space * sizeof(uint32_t)));
    r->whole = static_cast<uint8_t *>(l3mac_malloc(r->space));
    uint32_t total = 0;
    if (r->offset)
        for (uint32_t f = 0; f < r->space; ++f) {
            r->offset[f] = total;
            total += words_of(index_bits(r, f));
        }
    r->bits = static_cast<uint64_t *>(l3mac_malloc(sizeof(uint64_t) * total));
    r->scratch = static_cast<uint64_t *>(l3mac_malloc(sizeof(uint64_t) * words_of(width)));
    if (!r->offset || !r->whole || !r->bits || !r->scratch) return -1;
    return 0;
}

void close_prime_run(prime_run *r) {
    l3mac_free(r->offset);
    l3mac_free(r->whole);
    l3mac_free(r->bits);
    l3mac_free(r->scratch);
}

bool any_bit(const uint64_t *a, uint32_t n) {
    for (uint32_t i = 0; i < n; ++i)
        if (a[i]) return true;
    return false;
}

// Bitmaps in ascending order of F: F minus its lowest bit comes first. A
// sub-cube can only be whole if every one of its halves' kinds has one.
void fill_bitmaps(prime_run *r, const uint64_t *on) {
    const uint32_t n0 = words_of(r->width);
    std::memcpy(r->bits, on, n0 * sizeof(uint64_t));
    if (r->width < 6) r->bits[0] &= (1ull << r->space) - 1;
    r->whole[0] = any_bit(r->bits, n0);
    for (uint32_t f = 1; f < r->space; ++f) {
        const uint32_t b = static_cast<uint32_t>(std::countr_zero(f));
        bool able = true;
        for (uint32_t rest = f; rest && able; rest &= rest - 1) able = r->whole[f & ~(rest & (0u - rest))];
        r->whole[f] = 0;
        if (!able) continue;
        const uint32_t g = f & (f - 1);
        uint64_t *dst = r->bits + r->offset[f];
        squeeze_and(r->bits + r->offset[g], index_bits(r, g), b, dst);
        r->whole[f] = any_bit(dst, words_of(index_bits(r, f)));
    }
}

int add_prime(prime_run *r, uint32_t key, uint32_t free) {
    if (!l3mac_room_for_one(&r->primes, r->count, &r->room, 64)) return -1;
    r->primes[r->count++] = {key, free};
    return 0;
}

// The whole sub-cubes ignoring F that no sub-cube ignoring one more bit holds.
int primes_of(prime_run *r, uint32_t f) {
    const uint32_t m = index_bits(r, f), n = words_of(m);
    uint64_t *p = r->scratch;
    std::memcpy(p, r->bits + r->offset[f], n * sizeof(uint64_t));
    const uint32_t compared = (r->space - 1) & ~f;
    for (uint32_t rest = compared; rest; rest &= rest - 1) {
        const uint32_t b = static_cast<uint32_t>(std::countr_zero(rest));
        if (!r->whole[f | 1u << b]) continue;
        const uint32_t pos = compact_bits(compared & ((1u << b) - 1));
        clear_spread(p, m, pos, r->bits + r->offset[f | 1u << b]);
    }
    if (m < 6) p[0] &= (1ull << (1u << m)) - 1;
    for (uint32_t i = 0; i < n; ++i)
        for (uint64_t w = p[i]; w; w &= w - 1) {
            const uint32_t j = i * 64 + static_cast<uint32_t>(std::countr_zero(w));
            if (add_prime(r, deposit(j, compared), f) != 0) return -1;
        }
    return 0;
}

}  // namespace

int l3mac_compact_primes(uint32_t width, const uint64_t *on, compact_cube **primes,
                         uint32_t *count) {
    prime_run r;
    int rv = open_prime_run(&r, width);
    if (rv == 0) {
        fill_bitmaps(&r, on);
        for (uint32_t f = 0; f < r.space && rv == 0; ++f)
            if (r.whole[f]) rv = primes_of(&r, f);
    }
    close_prime_run(&r);
    if (rv != 0) {
        l3mac_free(r.primes);
        return -1;
    }
    *primes = r.primes;
    *count = r.count;
    return 0;
}
