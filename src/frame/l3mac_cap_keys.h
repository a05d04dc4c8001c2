// The board's capacity profile as the capability service gives it: the ten
// keys that bring-up reads, each with the default that takes over when it
// cannot be read, and the choice of the cover search, which most boards
// leave out. One table for every reader of a profile: the service's
// bring-up and the consistency check's view of a board.
#pragma once

#include <cstdint>

#include "platform/kw_runtime.h"

struct l3mac_cap_values {
    int32_t algo;
    int32_t tcam_cap;
    int32_t tcam2_cap;
    int32_t rsvd_size;
    int32_t dec_cnt;
    int32_t evlan_num;
    uint8_t tcam2_en;
    uint8_t is_mng;
    uint8_t is_mng2;
    uint8_t copy_to_tcam2;
    uint8_t compact_cover;
};

struct l3mac_cap_int {
    const char *path;
    int32_t l3mac_cap_values::*field;
    int32_t dflt;
};

struct l3mac_cap_flag {
    const char *path;
    uint8_t l3mac_cap_values::*field;
    uint8_t dflt;
};

// In reading order. The defaults describe one managed TCAM of 256 entries
// and no VFI numbers beyond the 4096 VLANs.
inline constexpr l3mac_cap_int l3mac_cap_ints[] = {
    {"s_route/l3mac/capacity/algo", &l3mac_cap_values::algo, 2},
    {"s_route/l3mac/capacity/tcam-cap", &l3mac_cap_values::tcam_cap, 256},
    {"s_route/l3mac/capacity/tcam2-cap", &l3mac_cap_values::tcam2_cap, 256},
    {"s_route/l3mac/capacity/rsvd-size", &l3mac_cap_values::rsvd_size, 0},
    {"s_route/l3intf/capacity/l3mac-dec-cnt", &l3mac_cap_values::dec_cnt, 5},
    {"s_bridge/ebridge/capacity/evlan_num", &l3mac_cap_values::evlan_num, 4096},
};

inline constexpr l3mac_cap_flag l3mac_cap_flags[] = {
    {"s_route/l3mac/ability/tcam2-en", &l3mac_cap_values::tcam2_en, 0},
    {"s_route/l3mac/ability/is-mng", &l3mac_cap_values::is_mng, 1},
    {"s_route/l3mac/ability/is-mng2", &l3mac_cap_values::is_mng2, 1},
    {"s_route/l3mac/ability/copy-to-tcam2", &l3mac_cap_values::copy_to_tcam2, 1},
};

// The compact cover search is chosen by boards that want it; a profile
// without the value keeps the greedy search.
inline constexpr l3mac_cap_flag l3mac_cap_compact = {"s_route/l3mac/ability/compact-cover",
                                                      &l3mac_cap_values::compact_cover, 0};

// The built-in values: the board of a missing or unreadable profile.
l3mac_cap_values l3mac_cap_defaults();

// Reads every key of the profile that the capability service holds (after
// libkw_cap_init) into *v; a key that cannot be read takes its default.
// 0, or the codes of the ten keys that failed or'ed together: the cover
// search's key is not one of them, its absence is the normal case.
int l3mac_cap_read(kw_global *global, l3mac_cap_values *v);

// The VFI numbers that evlan_num gives beyond the 4096 VLANs. The profile
// may hold any 32-bit value: none are fewer than zero.
inline int32_t l3mac_cap_vfi_count(int32_t evlan_num) {
    return evlan_num > 4096 ? evlan_num - 4096 : 0;
}
