// The one process-wide state record of the service, all zero at start, and
// the two statics that start at other values. Every field has one owner:
// the module named beside it.
#pragma once

#include <cstdint>

#include "diag/l3mac_time.h"
#include "frame/l3mac_codes.h"
#include "frame/l3mac_list.h"
#include "platform/kw_runtime.h"
#include "platform/ss_rt_tbl.h"
#include "platform/sw_res_comm.h"
#include "store/l3mac_store_fwd.h"

struct l3mac_no_res_log_t {
    kw_timeval last;    // monotonic time of the last message
    uint32_t burst;     // messages since the last change of the interval
    uint64_t interval;  // seconds between two messages; 0 before the first
};

struct l3mac_ctx_t {
    struct {
        int32_t vfi[14];  // scratch of the cover search, VFI space
        int32_t vlan[12]; // and VLAN space; nothing between searches
    } mask_comb;                              // decision/l3mac_mask
    sw_res_rm *tcam_rm[2];                    // tcam: pools by TCAM id
    l3mac_no_res_log_t no_res_log;            // decision: pacing
    kw_timer *decision_timer;                 // decision: the timer
    uint8_t ser_ready;                        // frame: service created
    uint8_t is_ds_end;                        // frame: smoothing read both tables
    uint8_t is_connected;                     // frame: connect callback ran
    l3mac_time_ring_t l3mac_time_ring;        // diag: timing probe
    mac_db_t *mac_db;                         // decision: MAC store
    tcam_db_t *tcam_db;                       // tcam: TCAM store
    uint32_t vfi_mask;                        // tcam: all-ones VFI mask
    uint32_t drv_decision_max_counter;        // request: L3MAC_VRRP budget
    uint32_t drv_decision_cnt;
    uint32_t commom_decision_cnt;             // request: other types' count
    user_db_t *user_db;                       // request: user store
    vrrp_db_t *vrrp_db;                       // vrrp: mac_hw store
    int32_t algo;                             // frame: capacities
    int32_t tcam_cap;
    int32_t tcam2_cap;
    int32_t rsvd_size;
    int32_t dec_cnt;
    int32_t evlan_num;
    uint8_t tcam2_en;                         // frame: capabilities
    uint8_t is_mng;                           // is_mng, is_mng2 are also
    uint8_t is_mng2;                          // read as an array by TCAM id
    uint8_t copy_to_tcam2;
    uint8_t compact_cover;                    // frame: cover search mode
    kw_global *global;                        // frame: runtime record
    ss_rt_tbl *tbl_res;                       // frame: the four tables
    ss_rt_tbl *tbl_hw_res;
    ss_rt_tbl *tbl_bak;
    ss_rt_tbl *tbl_vrrp_hw_res;
    uint32_t malloc_db;                       // store: live records
};

extern l3mac_ctx_t l3mac_ctx;

// Limit of direct decisions per tick for every mac_type but L3MAC_VRRP.
extern uint32_t l3mac_commom_decision_counter;

// The managed flag of a TCAM id: is_mng for the first, is_mng2 for the
// second (the two flags lie side by side, as the board's table has them).
inline uint8_t l3mac_tcam_is_mng(int tcam_id) {
    return tcam_id == MY_STATION_TCAM_1 ? l3mac_ctx.is_mng : l3mac_ctx.is_mng2;
}
