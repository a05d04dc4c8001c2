// Data smoothing: after a start, the entries come back from the backup
// table at their old indexes and the requests from the input table; the
// first working decision round then publishes the outcome between the
// begin and end of smoothing on both output tables and on the backup
// table. The backup's window sweeps the rows that no entry stands behind
// (rows the restore refused, or written by another process), which would
// otherwise move real entries at every start and never go.
#include "frame/l3mac_ds.h"

#include "decision/l3mac_decision.h"
#include "diag/l3mac_log.h"
#include "frame/l3mac_ctx.h"
#include "platform/ss_rt_tbl.h"
#include "s_route.pb-c.h"
#include "tcam/l3mac_output.h"
#include "tcam/l3mac_witness.h"

int l3mac_data_check() {
    if (!l3mac_ctx.ser_ready) {
        L3MAC_WARN("RT_L3TABLE_L3MAC_SER_READY", 0, 0);
        return SS_E_NONE;
    }
    l3mac_ctx.is_ds_end = 0;
    ss_rt_tbl_ds_begin_detail(l3mac_ctx.tbl_hw_res, 3600, 0);
    ss_rt_tbl_ds_begin_detail(l3mac_ctx.tbl_vrrp_hw_res, 3600, 0);
    ss_rt_tbl_ds_begin_detail(l3mac_ctx.tbl_bak, 3600, 0);

    SRoute__L3macHwAttr attr = S_ROUTE__L3MAC_HW_ATTR__INIT;
    SRoute__L3macBak tpl = S_ROUTE__L3MAC_BAK__INIT;
    tpl.index = &attr;
    // Where two backup rows claim one index, the one that the output table
    // agrees with keeps it: its rows are read first.
    l3mac_witness_load();
    for (int pass : {L3MAC_GR_AGREED, L3MAC_GR_REST}) {
        l3mac_tcam_gr_set_pass(pass);
        kw_mom_scan_sync(l3mac_ctx.global, 16, &tpl.base, 0, l3mac_tcam_gr_backup, 0);
    }
    l3mac_tcam_gr_set_pass(L3MAC_GR_ALL);
    l3mac_witness_clear();
    ss_rt_tbl_scan_detail(l3mac_ctx.tbl_res, 0, 0);

    l3mac_ctx.is_ds_end = 1;
    sw_l3mac_mac_decision();
    ss_rt_tbl_ds_end_detail(l3mac_ctx.tbl_hw_res, 0);
    ss_rt_tbl_ds_end_detail(l3mac_ctx.tbl_vrrp_hw_res, 0);
    ss_rt_tbl_ds_end_detail(l3mac_ctx.tbl_bak, 0);
    return SS_E_NONE;
}

uint8_t l3mac_is_ds_end() { return l3mac_ctx.is_ds_end; }
