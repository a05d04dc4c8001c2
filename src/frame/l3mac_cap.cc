// The board's capacity profile: ten values of the capability service, each
// with a default that takes over when it cannot be read, and their dump;
// beside them the choice of the cover search, which most boards leave out.
#include <cstdio>
#include <cstring>

#include "diag/l3mac_log.h"
#include "frame/l3mac_ctx.h"
#include "frame/l3mac_init.h"
#include "platform/libkw_cap.h"

namespace {

struct l3mac_cap_int {
    const char *path;
    int32_t l3mac_ctx_t::*field;
    int32_t dflt;
};

struct l3mac_cap_flag {
    const char *path;
    uint8_t l3mac_ctx_t::*field;
    uint8_t dflt;
};

// In reading order. The defaults describe one managed TCAM of 256 entries
// and no VFI numbers beyond the 4096 VLANs.
constexpr l3mac_cap_int l3mac_cap_ints[] = {
    {"s_route/l3mac/capacity/algo", &l3mac_ctx_t::algo, 2},
    {"s_route/l3mac/capacity/tcam-cap", &l3mac_ctx_t::tcam_cap, 256},
    {"s_route/l3mac/capacity/tcam2-cap", &l3mac_ctx_t::tcam2_cap, 256},
    {"s_route/l3mac/capacity/rsvd-size", &l3mac_ctx_t::rsvd_size, 0},
    {"s_route/l3intf/capacity/l3mac-dec-cnt", &l3mac_ctx_t::dec_cnt, 5},
    {"s_bridge/ebridge/capacity/evlan_num", &l3mac_ctx_t::evlan_num, 4096},
};

constexpr l3mac_cap_flag l3mac_cap_flags[] = {
    {"s_route/l3mac/ability/tcam2-en", &l3mac_ctx_t::tcam2_en, 0},
    {"s_route/l3mac/ability/is-mng", &l3mac_ctx_t::is_mng, 1},
    {"s_route/l3mac/ability/is-mng2", &l3mac_ctx_t::is_mng2, 1},
    {"s_route/l3mac/ability/copy-to-tcam2", &l3mac_ctx_t::copy_to_tcam2, 1},
};

// The compact cover search is chosen by boards that want it; a profile
// without the value keeps the greedy search.
constexpr l3mac_cap_flag l3mac_cap_compact = {"s_route/l3mac/ability/compact-cover",
                                              &l3mac_ctx_t::compact_cover, 0};

void l3mac_cap_set_defaults() {
    for (const l3mac_cap_int &c : l3mac_cap_ints) l3mac_ctx.*c.field = c.dflt;
    for (const l3mac_cap_flag &c : l3mac_cap_flags) l3mac_ctx.*c.field = c.dflt;
    l3mac_ctx.*l3mac_cap_compact.field = l3mac_cap_compact.dflt;
}

// A line of the dump goes through at_snprintf like every line of the
// debug commands.
template <class... A>
void l3mac_cap_line(const char *fmt, A... args) {
    char buf[L3MAC_LOG_BUF];
    std::memset(buf, 0, sizeof buf);
    at_snprintf(buf, sizeof buf, fmt, args...);
    std::printf("%s", buf);
}

}  // namespace

int l3mac_cap_init() {
    int rv = libkw_cap_init(l3mac_ctx.global, L3MAC_PROC_NAME);
    if (rv != SS_E_NONE) {
        L3MAC_FAIL(L3MAC_ERR_CAP_READ, "rv == SS_E_NONE", rv, 0);
        l3mac_cap_set_defaults();
        l3mac_ctx.drv_decision_max_counter = 5;
        return rv;
    }
    l3mac_get_cap();
    return SS_E_NONE;
}

void l3mac_get_cap() {
    int merged = 0;
    for (const l3mac_cap_int &c : l3mac_cap_ints) {
        int rv = libkw_cap_get_capacity_int32(l3mac_ctx.global, c.path, &(l3mac_ctx.*c.field));
        if (rv != SS_E_NONE) l3mac_ctx.*c.field = c.dflt;
        merged |= rv;
    }
    for (const l3mac_cap_flag &c : l3mac_cap_flags) {
        int rv = libkw_cap_get_capacity_bool(l3mac_ctx.global, c.path, &(l3mac_ctx.*c.field));
        if (rv != SS_E_NONE) l3mac_ctx.*c.field = c.dflt;
        merged |= rv;
    }
    // Not one of the ten: its absence is the normal case and no failure.
    const l3mac_cap_flag &c = l3mac_cap_compact;
    if (libkw_cap_get_capacity_bool(l3mac_ctx.global, c.path, &(l3mac_ctx.*c.field)) != SS_E_NONE)
        l3mac_ctx.*c.field = c.dflt;
    l3mac_ctx.drv_decision_max_counter = static_cast<uint32_t>(l3mac_ctx.dec_cnt);
    if (merged != 0) L3MAC_FAIL(L3MAC_ERR_CAP_READ, "rv == SS_E_NONE", merged, 0);
}

void l3mac_cap_dump() {
    const char *rule = "==============L3TB L3MAC CAP DUMP==============\r\n";
    l3mac_cap_line("%s", rule);
    l3mac_cap_line("algo       = %d\n", l3mac_ctx.algo);
    l3mac_cap_line("tcam cap   = %d\n", l3mac_ctx.tcam_cap);
    l3mac_cap_line("tcam2 en   = %d\n", l3mac_ctx.tcam2_en);
    l3mac_cap_line("tcam2 cap  = %d\n", l3mac_ctx.tcam2_cap);
    l3mac_cap_line("rsvd sz    = %d\n", l3mac_ctx.rsvd_size);
    l3mac_cap_line("dec cnt    = %d\n", l3mac_ctx.dec_cnt);
    l3mac_cap_line("evlan cap  = %d\n", l3mac_ctx.evlan_num);
    l3mac_cap_line("is mng     = %d\n", l3mac_ctx.is_mng);
    l3mac_cap_line("is mng2    = %d\n", l3mac_ctx.is_mng2);
    l3mac_cap_line("is copy tcam2 = %d\n", l3mac_ctx.copy_to_tcam2);
    l3mac_cap_line("%s", rule);
}
