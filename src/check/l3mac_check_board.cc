// The board that the rules judge by: the one the running service brought
// up, or the one it would bring up from a profile, read through the
// capability service by the same table of keys and defaults as bring-up.
#include "check/l3mac_check.h"
#include "frame/l3mac_cap_keys.h"
#include "frame/l3mac_ctx.h"
#include "platform/libkw_cap.h"
#include "tcam/l3mac_tcam.h"

namespace {

uint32_t l3mac_check_limit(int32_t cap, int32_t rsvd) {
    return cap > rsvd ? static_cast<uint32_t>(cap - rsvd) : 0;
}

// Pools as bring-up makes them: the first for is_mng, the second for
// is_mng2 on a board with a second TCAM, and none after a pool that the
// index manager refused (a negative size).
l3mac_check_board l3mac_check_board_of(const l3mac_cap_values &v, uint32_t vfi_mask) {
    l3mac_check_board b;
    b.is_mng = {v.is_mng != 0, v.is_mng2 != 0};
    b.cap = {v.tcam_cap, v.tcam2_cap};
    b.tcam2_en = v.tcam2_en != 0;
    b.copy_to_tcam2 = v.copy_to_tcam2 != 0;
    b.vfi_mask = vfi_mask;
    b.compact_cover = v.compact_cover != 0;
    const bool rsvd_ok = v.rsvd_size >= 0;
    b.pool[0] = b.is_mng[0] && rsvd_ok && v.tcam_cap >= 0;
    b.pool[1] = b.is_mng[1] && b.tcam2_en && rsvd_ok && v.tcam2_cap >= 0 &&
                (!b.is_mng[0] || b.pool[0]);
    for (int t = 0; t < 2; t++)
        b.limit[t] = b.pool[t] ? l3mac_check_limit(b.cap[t], v.rsvd_size) : 0;
    return b;
}

// The profile that bring-up left in the service's state.
l3mac_cap_values l3mac_check_values_live() {
    const l3mac_ctx_t &c = l3mac_ctx;
    return {c.algo,     c.tcam_cap, c.tcam2_cap, c.rsvd_size,     c.dec_cnt,      c.evlan_num,
            c.tcam2_en, c.is_mng,   c.is_mng2,   c.copy_to_tcam2, c.compact_cover};
}

}  // namespace

l3mac_check_board l3mac_check_board_live() {
    l3mac_check_board b = l3mac_check_board_of(l3mac_check_values_live(), l3mac_ctx.vfi_mask);
    for (int t = 0; t < 2; t++) {
        const sw_res_rm *rm = l3mac_ctx.tcam_rm[t];
        b.pool[t] = rm != nullptr;
        b.limit[t] = rm ? rm->limit : 0;
    }
    return b;
}

// A tool holds no runtime record: the capability service reads the
// profile under the file root without one. A profile that cannot be read
// gives the built-in values, as it does at bring-up.
l3mac_check_board l3mac_check_board_of_profile(bool defaults) {
    l3mac_cap_values v = l3mac_cap_defaults();
    if (!defaults && libkw_cap_init(nullptr, L3MAC_PROC_NAME) == SS_E_NONE)
        l3mac_cap_read(nullptr, &v);
    return l3mac_check_board_of(v, l3mac_vfi_mask_of(l3mac_cap_vfi_count(v.evlan_num)));
}
