// Bring-up of the service when the connection to the table store stands:
// debug commands, capacity profile, stores, index pools and the timer. The
// capacity flags decide what exists at all.
#include "frame/l3mac_init.h"

#include "decision/l3mac_decision.h"
#include "diag/l3mac_at.h"
#include "diag/l3mac_log.h"
#include "frame/l3mac_cap_keys.h"
#include "frame/l3mac_ctx.h"
#include "store/l3mac_db.h"
#include "tcam/l3mac_tcam.h"

// No failure here ends the process: each is counted and bring-up goes on,
// so that the service still answers its debug commands.
int l3mac_init() {
    int rv = sw_l3mac_at_init();
    if (rv != SS_E_NONE) L3MAC_FAIL(L3MAC_ERR_AT_INIT, "rv == SS_E_NONE", rv, 0);

    rv = l3mac_cap_init();
    if (rv != SS_E_NONE) L3MAC_FAIL(L3MAC_ERR_CAP_READ, "rv == SS_E_NONE", rv, 0);

    l3mac_set_vfi_mask(l3mac_cap_vfi_count(l3mac_ctx.evlan_num));

    rv = l3mac_service_create();
    if (rv != SS_E_NONE) L3MAC_FAIL(L3MAC_ERR_SERVICE_CREATE, "rv == SS_E_NONE", rv, 0);

    // The timer runs even after a failed creation; its rounds then find
    // nothing to do.
    if (l3mac_ctx.is_mng || l3mac_ctx.is_mng2) l3mac_start_decision_timer();
    return rv;
}

// Stops at the first failure with ser_ready left at 0. The report sites
// stay in this routine, which the failure lines name.
int l3mac_service_create() {
    const bool managed = l3mac_ctx.is_mng || l3mac_ctx.is_mng2;
    int rv = user_db_create(&l3mac_ctx.user_db);
    if (rv == SS_E_NONE && managed) rv = mac_db_create(&l3mac_ctx.mac_db);
    if (rv == SS_E_NONE && managed) rv = tcam_db_create(&l3mac_ctx.tcam_db);
    if (rv != SS_E_NONE) {
        L3MAC_FAIL(L3MAC_ERR_STORE_CREATE, "rv == SS_E_NONE", rv, 0);
        return rv;
    }
    if (l3mac_ctx.is_mng) rv = l3mac_create_tcam1();
    // Without tcam2_en this creates nothing and succeeds.
    if (rv == SS_E_NONE && l3mac_ctx.is_mng2) rv = l3mac_create_tcam2();
    if (rv != SS_E_NONE) {
        L3MAC_FAIL(L3MAC_ERR_POOL_CREATE, "rv == SS_E_NONE", rv, 0);
        return rv;
    }
    // A TCAM whose flag is clear takes the direct path, which keeps its
    // records in the mac_hw store.
    if (!(l3mac_ctx.is_mng && l3mac_ctx.is_mng2)) {
        rv = vrrp_db_create(&l3mac_ctx.vrrp_db);
        if (rv != SS_E_NONE) {
            L3MAC_CHECK_RET(L3MAC_ERR_STORE_CREATE, rv, 0);
            return L3MAC_E_FAIL;
        }
    }
    l3mac_ctx.ser_ready = 1;
    return SS_E_NONE;
}
