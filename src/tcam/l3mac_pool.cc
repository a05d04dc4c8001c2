// The index pools of the two my-station TCAMs and the VFI space mask: the
// service's side of the closed index manager sw_res_comm.
#include <cstring>

#include "diag/l3mac_log.h"
#include "frame/l3mac_ctx.h"
#include "request/l3mac_msg.h"
#include "tcam/l3mac_tcam.h"

int l3mac_create_tcam1() {
    return sw_res_comm_create_rm(l3mac_ctx.algo, &l3mac_ctx.tcam_rm[0],
                                 l3mac_ctx.tcam_cap, 0, l3mac_ctx.rsvd_size);
}

int l3mac_create_tcam2() {
    if (!l3mac_ctx.tcam2_en) {
        // A board without a second TCAM is no failure: its requests are
        // refused at intake.
        L3MAC_WARN("L3MAC_CAP_TCAM2_EN", 0, l3mac_ctx.is_mng2);
        return 0;
    }
    return sw_res_comm_create_rm(l3mac_ctx.algo, &l3mac_ctx.tcam_rm[1],
                                 l3mac_ctx.tcam2_cap, 0, l3mac_ctx.rsvd_size);
}

uint32_t l3mac_vfi_mask_of(int32_t n) {
    const uint32_t want = n < 0 ? 0u : static_cast<uint32_t>(n);
    uint32_t v = 1;
    for (int i = 0; i < 31; i++) {
        v <<= 1;
        if (v >= want) break;
    }
    return v - 1;
}

void l3mac_set_vfi_mask(int32_t n) { l3mac_ctx.vfi_mask = l3mac_vfi_mask_of(n); }

int sw_l3mac_op_add_idx(uint32_t mac_type, uint32_t *idx, uint32_t want,
                        uint8_t is_gr) {
    const int tcam_id = l3mac_get_tcam_id(static_cast<uint8_t>(mac_type));
    L3MAC_INFO("mac_type=%d, phase=%d\n", (int)mac_type, tcam_id);

    sw_res_alloc_req req;
    std::memset(&req, 0, sizeof req);
    req.one = 1;
    req.is_gr = is_gr;
    req.count = 1;
    req.want = static_cast<int32_t>(want);  // sign-extended

    // A TCAM without a pool (a backup row of a TCAM that this profile does
    // not give) hands the manager a null handle, which it refuses with a
    // code and nothing held: the row is skipped.
    const int rv = sw_res_comm_alloc_idx(&req, l3mac_ctx.tcam_rm[tcam_id], idx);
    if (rv != SS_E_NONE) {
        L3MAC_WARN("rv == SS_E_NONE", rv, 0);
        return rv;
    }
    return SS_E_NONE;
}

int sw_l3mac_op_del_idx(int tcam_id, uint32_t idx) {
    return sw_res_comm_free_idx_old(idx, 1, l3mac_ctx.tcam_rm[tcam_id]);
}
