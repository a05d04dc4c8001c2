// The set and delete handlers of the input table: parse, check, and send
// the request down the managed or the direct path by its TCAM's flag.
#include "diag/l3mac_log.h"
#include "frame/l3mac_ctx.h"
#include "request/l3mac_msg.h"
#include "request/l3mac_user.h"
#include "vrrp/l3mac_vrrp.h"

namespace {

// The path is a capability of the request's TCAM, not of its mac_type.
bool l3mac_is_managed(uint8_t mac_type) {
    return l3mac_tcam_is_mng(l3mac_get_tcam_id(mac_type)) != 0;
}

}  // namespace

int l3mac_set_msg_proc(const l3mac_pmsg_t *l3mac_pmsg) {
    l3mac_msg msg;
    int rv = l3mac_input_pmsg_parse(l3mac_pmsg, &msg, 1);
    if (rv != SS_E_NONE) return rv;
    rv = sw_l3mac_user_param_check(&msg, 1);
    if (rv != SS_E_NONE) {
        L3MAC_WARN("rv == SS_E_NONE", rv, 0);
        return rv;
    }
    // Only requests are acted on; a row that this service marked
    // STATUS_FAILED comes back this way and is left alone.
    if (msg.mng_info.status != S_ROUTE__L3TABLE_STATUS_E__STATUS_REQUEST) {
        L3MAC_WARN("msg.mng_info.status == S_ROUTE__L3TABLE_STATUS_E__STATUS_REQUEST",
                   msg.mng_info.status, 0);
        return SS_E_NONE;
    }
    if (l3mac_is_managed(msg.attr.mac_type)) return sw_l3mac_add_user_entry(&msg);
    return sw_l3mac_add_vrrp_msg(&msg);
}

int l3mac_del_msg_proc(const l3mac_pmsg_t *l3mac_pmsg) {
    l3mac_msg msg;
    int rv = l3mac_input_pmsg_parse(l3mac_pmsg, &msg, 0);
    if (rv != SS_E_NONE) return rv;
    rv = sw_l3mac_user_param_check(&msg, 0);
    if (rv != SS_E_NONE) {
        L3MAC_WARN("rv == SS_E_NONE", rv, 0);
        return rv;
    }
    const user_entry *entry = l3mac_get_or_add_user_db(msg.mng_info.user, msg.uuid, 0);
    if (!entry) {
        L3MAC_FAIL(L3MAC_ERR_NO_ENTRY_DEL, "entry != NULL", msg.mng_info.user, 0);
        return L3MAC_E_NOTFOUND;
    }
    // A delete brings no mac_type: the one that the entry holds decides.
    if (l3mac_is_managed(entry->mac_type)) return sw_l3mac_del_user_entry(&msg);
    return sw_l3mac_del_vrrp_msg(&msg);
}
