// The VLAN set of one MAC: a bitmap of 16384 numbers followed by the flag
// that tells VFI numbers from VLANs, cleared, copied and searched as one.
#pragma once

#include <cstdint>

inline constexpr uint32_t L3MAC_BMP_BITS = 16384;
inline constexpr uint32_t L3MAC_BMP_WORDS = L3MAC_BMP_BITS / 32;

struct evlan_bmp_t {
    uint32_t bmp[L3MAC_BMP_WORDS];
    uint8_t is_vfi;
};

inline bool l3mac_bmp_test(const evlan_bmp_t *b, uint32_t n) {
    return n < L3MAC_BMP_BITS && (b->bmp[n / 32] >> (n % 32)) & 1u;
}

inline void l3mac_bmp_set(evlan_bmp_t *b, uint32_t n) {
    if (n < L3MAC_BMP_BITS) b->bmp[n / 32] |= 1u << (n % 32);
}
