// Registration of the module's debug commands, in their fixed order: the
// three timing commands, then the 28 others.
#include "diag/l3mac_at.h"

#include "decision/l3mac_decision.h"
#include "diag/l3mac_log.h"
#include "diag/l3mac_time.h"
#include "frame/l3mac_ctx.h"
#include "platform/ss_rt_tbl.h"
#include "platform/ssat.h"
#include "platform/sw_rt_res.h"

namespace {

// Results are not looked at: a command that cannot be registered is simply
// missing from the module.
template <class H> void reg(const char *cmd, const char *fmt, H handler) {
    ssat_reg_mod_cmd(L3MAC_PROC_NAME, cmd, 0, fmt, handler);
}

void reg_time_cmds() {
    reg("time-init-l3mac", " size = %d", l3mac_at_time_init);
    // Shares the format of time-init-l3mac, though it takes the period.
    reg("time-set-l3mac", " size = %d", l3mac_at_time_set);
    reg("time-dump-l3mac", " void ", l3mac_at_time_dump);
}

void reg_show_cmds() {
    reg("debug", "dbg on/off, level=%d log_cnt:%d[-1:unlimited]", l3mac_at_debug);
    reg("show-cap", "show all cap", l3mac_at_show_cap);
    reg("dump-evlan-mbr", "evlan=%d, evlan_mask=%d, is_vfi=%d", l3mac_at_dump_evlan_mbr);
    reg("dump-mac-vlanbmp", "type=%d, mac=%m, phyid=%d", l3mac_at_dump_mac_vlanbmp);
    reg("wk-user-head", "type=%d, mac=%m, phyid=%d", l3mac_at_wk_user_head);
    reg("wk-tcam-head", "type=%d, mac=%m, phyid=%d", l3mac_at_wk_tcam_head);
    reg("get-user-db", "user=%d, uuid=%s", l3mac_at_get_user_db);
    reg("get-tcam-db", "type=%d, mac=%m, evlan=%d, evlan_mask=%d", l3mac_at_get_tcam_db);
    // The handler's third parameter, phyid, is not in the format: it reads 0.
    reg("get-mac-db", "type=%d, mac=%m", l3mac_at_get_mac_db);
    reg("show-user-db", "count=%d, is_form=%d", l3mac_at_show_user_db);
    reg("show-mac-db", "count=%d, is_form=%d", l3mac_at_show_mac_db);
    reg("dump-tcam-db", "count=%d, is_form=%d", l3mac_at_dump_tcam_db);
    reg("show-vrrp-db", "count=%d, is_form=%d", l3mac_at_show_vrrp_db);
    reg("check-memory", "dump malloc counter ", l3mac_at_check_memory);
    reg("find-evlan-by-mac", "type=%d, mac=%m, phyid=%d, evlan=%d", l3mac_at_find_evlan_by_mac);
    reg("find-mask-by-user", "user=%d, uuid=%s", l3mac_at_find_mask_by_user);
    reg("find-mask-by-evlan", "evlan=%d", l3mac_at_find_mask_by_evlan);
}

void reg_drive_cmds() {
    reg("add-mac-user",
        "user=%d, uuid=%s, status=%d, is_match_evlan=%d, evlan=%d, mac_type=%d, mac=%m",
        l3mac_at_add_user_entry);
    reg("del-mac-user", "user=%d, uuid=%s", l3mac_at_del_user_entry);
    reg("get-vrrp-db", "mac=%m, mac_type=%d, evlan=%d, evlan_mask=%d", l3mac_at_get_vrrp_db);
    reg("add-mul-user-entry",
        "user=%d, uuid_base=%d, count=%d, status=%d, is_match_evlan=%d, evlan_base=%d, "
        "mac_type=%d, mac=%m",
        l3mac_at_add_mul_user_entry);
    reg("del-mul-user-entry", "user=%d, uuid_base=%d, count=%d", l3mac_at_del_mul_user_entry);
    reg("set-drv-decision-max-counter", "count=%d", l3mac_at_set_drv_decision_max_counter);
    reg("get-drv-decision-max-counter", " void ", l3mac_at_get_drv_decision_max_counter);
    reg("set-commom-decision-max-counter", "count=%d", l3mac_at_set_commom_decision_max_counter);
    reg("get-commom-decision-max-counter", " void ", l3mac_at_get_commom_decision_max_counter);
    // A forced round: no budget, no timing sample.
    reg("trigger-decision", "trigger l3mac decision", sw_l3mac_mac_decision);
    reg("dump-info", "clean=%d, is_detail=%d", sw_rt_res_app_show_info);
}

}  // namespace

int sw_l3mac_at_init() {
    int rv = ssat_lib_init(l3mac_ctx.global, L3MAC_PROC_NAME);
    if (rv != SS_E_NONE) {
        L3MAC_ERR_LINE("rv = %d\n", rv);
        return rv;
    }
    ss_rt_tbl_ut_init(L3MAC_PROC_NAME);
    reg_time_cmds();
    reg_show_cmds();
    reg_drive_cmds();
    return SS_E_NONE;
}
