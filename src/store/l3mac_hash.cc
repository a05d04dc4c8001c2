// lookup2, Bob Jenkins' hash, over a store key's raw bytes with init value 0.
#include <cstdint>
#include <cstring>

#include "store/l3mac_db.h"

namespace {

inline uint32_t word_at(const uint8_t *p) {
    uint32_t w;
    std::memcpy(&w, p, sizeof w);
    return w;  // little-endian words on the service's processor
}

inline void mix(uint32_t &a, uint32_t &b, uint32_t &c) {
    a -= b; a -= c; a ^= c >> 13;
    b -= c; b -= a; b ^= a << 8;
    c -= a; c -= b; c ^= b >> 13;
    a -= b; a -= c; a ^= c >> 12;
    b -= c; b -= a; b ^= a << 16;
    c -= a; c -= b; c ^= b >> 5;
    a -= b; a -= c; a ^= c >> 3;
    b -= c; b -= a; b ^= a << 10;
    c -= a; c -= b; c ^= b >> 15;
}

}  // namespace

uint32_t l3mac_hash(const void *key, uint32_t n) {
    const uint8_t *p = static_cast<const uint8_t *>(key);
    uint32_t a = 0x9E3779B9u, b = 0x9E3779B9u, c = 0;
    uint32_t left = n;
    for (; left >= 12; left -= 12, p += 12) {
        a += word_at(p);
        b += word_at(p + 4);
        c += word_at(p + 8);
        mix(a, b, c);
    }
    c += n;
    // The tail, byte by byte as lookup2 takes it; c's lowest byte is n's.
    switch (left) {
    case 11: c += uint32_t{p[10]} << 24; [[fallthrough]];
    case 10: c += uint32_t{p[9]} << 16; [[fallthrough]];
    case 9: c += uint32_t{p[8]} << 8; [[fallthrough]];
    case 8: b += uint32_t{p[7]} << 24; [[fallthrough]];
    case 7: b += uint32_t{p[6]} << 16; [[fallthrough]];
    case 6: b += uint32_t{p[5]} << 8; [[fallthrough]];
    case 5: b += p[4]; [[fallthrough]];
    case 4: a += uint32_t{p[3]} << 24; [[fallthrough]];
    case 3: a += uint32_t{p[2]} << 16; [[fallthrough]];
    case 2: a += uint32_t{p[1]} << 8; [[fallthrough]];
    case 1: a += p[0]; break;
    default: break;
    }
    mix(a, b, c);
    return c;
}
