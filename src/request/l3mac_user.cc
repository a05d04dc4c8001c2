// User entries: the service's memory of each request {user, uuid}, and the
// managed path's add and delete with the budget of direct decisions.
#include "request/l3mac_user.h"

#include <cstring>

#include "decision/l3mac_decision.h"
#include "decision/l3mac_mac.h"
#include "diag/l3mac_log.h"
#include "diag/l3mac_time.h"
#include "frame/l3mac_ctx.h"
#include "store/l3mac_db.h"

namespace {

// The user store's key: the first bytes of the record, built zero-filled
// so that the bytes behind the uuid's text compare equal.
struct l3mac_user_key {
    uint32_t user;
    char uuid[128];
};
static_assert(sizeof(l3mac_user_key) == L3MAC_USER_KEY_LEN);

// One of the two budgets of direct decisions between two timer ticks.
struct l3mac_budget {
    uint32_t *cnt;
    uint32_t limit;
};

l3mac_budget l3mac_budget_of(uint8_t mac_type) {
    if (mac_type == S_ROUTE__L3MAC_TYPE_E__L3MAC_VRRP)
        return {&l3mac_ctx.drv_decision_cnt, l3mac_ctx.drv_decision_max_counter};
    return {&l3mac_ctx.commom_decision_cnt, l3mac_commom_decision_counter};
}

// Runs a decision at once while the budget of the mac_type lasts; beyond
// it the MAC waits on the pending list for the next tick. The count is
// strict: a limit of 0 allows no direct decision.
void l3mac_direct_decision(uint8_t mac_type) {
    l3mac_budget b = l3mac_budget_of(mac_type);
    if (*b.cnt >= b.limit) return;
    (*b.cnt)++;
    l3mac_time_start(mac_type, 0);
    sw_l3mac_mac_decision();
    l3mac_time_end();
}

}  // namespace

user_entry *l3mac_get_or_add_user_db(uint32_t user, const char *uuid, int is_add) {
    l3mac_user_key key;
    std::memset(&key, 0, sizeof key);
    key.user = user;
    if (uuid) std::memcpy(key.uuid, uuid, strnlen(uuid, sizeof key.uuid - 1));
    user_entry *entry = is_add ? user_db_get_or_add(l3mac_ctx.user_db, &key)
                               : user_db_get(l3mac_ctx.user_db, &key);
    if (l3mac_info_on()) {
        int rv = user_db_show(entry, 1);
        L3MAC_INFO("user entry %d\n", rv);
    }
    return entry;
}

void l3mac_set_user_attr(user_entry *entry, const l3mac_msg *msg) {
    entry->is_match_evlan = msg->attr.is_match_evlan;
    entry->mac_type = msg->attr.mac_type;
    std::memcpy(entry->mac, msg->attr.mac, sizeof entry->mac);
    entry->evlan = msg->attr.evlan;
    entry->phyid = msg->attr.phyid;
}

// An add is a full re-statement of the request: the entry takes the new
// attributes and is bound again; the bind finds out what moved. A key that
// the direct path holds is released there first, by the bind's unbind.
int sw_l3mac_add_user_entry(const l3mac_msg *msg) {
    // A number without a bit in the VLAN set could never be placed, and
    // the checks leave it through when the board's flags switch the range
    // test off: refuse it here, before anything changes.
    if (!(msg->attr.evlan < L3MAC_BMP_BITS)) {
        L3MAC_FAIL(L3MAC_ERR_ATTR_REFUSED, "msg->attr.evlan < L3MAC_BMP_BITS",
                   msg->attr.evlan, msg->attr.mac_type);
        return L3MAC_E_PARAM;
    }
    user_entry *entry = l3mac_get_or_add_user_db(msg->mng_info.user, msg->uuid, 1);
    if (!entry) {
        L3MAC_FAIL(L3MAC_ERR_NO_ENTRY_ADD, "entry != NULL", msg->mng_info.user, 0);
        return L3MAC_E_NOMEM;
    }
    l3mac_set_user_attr(entry, msg);
    // A failed bind is reported there; the entry keeps its old binding and
    // the next add of the key tries again.
    sw_l3mac_op_user_bind_mac(entry);
    l3mac_direct_decision(entry->mac_type);
    return SS_E_NONE;
}

// A delete runs no decision: the MAC stays pending until the next one.
int sw_l3mac_del_user_entry(const l3mac_msg *msg) {
    user_entry *entry = l3mac_get_or_add_user_db(msg->mng_info.user, msg->uuid, 0);
    if (!entry) {
        L3MAC_FAIL(L3MAC_ERR_NO_ENTRY_DEL, "entry != NULL", msg->mng_info.user, 0);
        return L3MAC_E_NOTFOUND;
    }
    sw_l3mac_op_user_unbind_mac(entry);
    l3mac_del_user_db(entry);
    return SS_E_NONE;
}

void l3mac_del_user_db(user_entry *entry) {
    // The record is freed below; a link left behind would dangle in the
    // user list of its MAC.
    if (!list_empty(&entry->mac_lst)) {
        L3MAC_COUNT(L3MAC_ERR_USER_LINKED, 0, 0);
        list_del_init(&entry->mac_lst);
    }
    user_db_del(l3mac_ctx.user_db, entry);
}
