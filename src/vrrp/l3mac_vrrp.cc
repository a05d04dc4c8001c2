// The direct path's records: each mac_hw carries its users, and the table
// learns of it at its first user and at its last user's departure, in the
// request's own call. There is no timer, no pending list and no budget.
#include "vrrp/l3mac_vrrp.h"

#include <cstring>

#include "decision/l3mac_mac.h"
#include "diag/l3mac_log.h"
#include "frame/l3mac_ctx.h"
#include "store/l3mac_db.h"

namespace {

// The mac_hw store's key, built zero-filled. Records made from requests
// have no mask.
struct l3mac_hw_key {
    uint32_t evlan;
    uint32_t evlan_mask;
    uint8_t mac[6];
    uint8_t mac_type;
    uint8_t zero;
};
static_assert(sizeof(l3mac_hw_key) == L3MAC_HW_KEY_LEN);

l3mac_hw_key l3mac_hw_key_of(const user_entry *entry) {
    l3mac_hw_key key;
    std::memset(&key, 0, sizeof key);
    key.evlan = entry->evlan;
    std::memcpy(key.mac, entry->mac, sizeof key.mac);
    key.mac_type = entry->mac_type;
    return key;
}

}  // namespace

// A mac_hw begins with its key, and every bound record is longer than that
// key, so the store can be asked for a record under the record's own first
// bytes: only a mac_hw is found as itself. A managed MAC entry begins with
// its links and never is. This holds whatever attributes the user entry
// holds now, also after a failed bind left it on its old record.
bool l3mac_is_mac_hw(const void *rec) {
    return rec && vrrp_db_get(l3mac_ctx.vrrp_db, rec) == rec;
}

int sw_l3mac_add_vrrp_msg(const l3mac_msg *msg) {
    user_entry *entry = l3mac_get_or_add_user_db(msg->mng_info.user, msg->uuid, 1);
    if (!entry) {
        L3MAC_FAIL(L3MAC_ERR_NO_ENTRY_ADD, "user_entry != NULL", msg->mng_info.user, 0);
        return L3MAC_E_NOMEM;
    }
    l3mac_set_user_attr(entry, msg);
    const l3mac_hw_key key = l3mac_hw_key_of(entry);
    mac_hw *hw = vrrp_db_get_or_add(l3mac_ctx.vrrp_db, &key);
    if (!hw) {
        L3MAC_FAIL(L3MAC_ERR_NO_ENTRY_ADD, "mac_hw != NULL", entry->evlan, entry->mac_type);
        return L3MAC_E_NOMEM;
    }
    return l3mac_user_bind_mac_hw(entry, hw);
}

int sw_l3mac_del_vrrp_msg(const l3mac_msg *msg) {
    user_entry *entry = l3mac_get_or_add_user_db(msg->mng_info.user, msg->uuid, 0);
    if (!entry) {
        L3MAC_FAIL(L3MAC_ERR_NO_ENTRY_DEL, "user_entry != NULL", msg->mng_info.user, 0);
        return L3MAC_E_NOTFOUND;
    }
    // An entry that the managed path bound (only the debug commands inject
    // such a key) is released by the managed rules: its MAC is queued.
    if (!list_empty(&entry->mac_lst) && !l3mac_is_mac_hw(entry->mac_entry)) {
        sw_l3mac_op_user_unbind_mac(entry);
        l3mac_del_user_db(entry);
        return SS_E_NONE;
    }
    const l3mac_hw_key key = l3mac_hw_key_of(entry);
    if (!vrrp_db_get(l3mac_ctx.vrrp_db, &key)) {
        L3MAC_FAIL(L3MAC_ERR_NO_ENTRY_DEL, "mac_hw != NULL", entry->evlan, entry->mac_type);
        return L3MAC_E_NOTFOUND;
    }
    l3mac_user_unbind_mac_hw(entry);
    l3mac_del_user_db(entry);
    return SS_E_NONE;
}

// Unbinding first means that a key moving to another record withdraws the
// old row before the new one is published.
int l3mac_user_bind_mac_hw(user_entry *entry, mac_hw *hw) {
    if (l3mac_info_on()) {
        int rv = vrrp_db_row(hw);
        L3MAC_INFO("mac_hw %d\n", rv);
    }
    if (entry->mac_entry == hw) {
        L3MAC_INFO("not change\n");
        return SS_E_NONE;
    }
    l3mac_user_unbind_mac_hw(entry);
    list_add(&entry->mac_lst, &hw->user_head);
    entry->mac_entry = hw;
    l3mac_hw_dec(hw);
    return SS_E_NONE;
}

// An entry that the managed path bound (a key whose new attributes take
// the direct path) is released by the managed rules: its MAC is queued for
// the decision, which withdraws what is no longer wanted.
int l3mac_user_unbind_mac_hw(user_entry *user_info) {
    if (list_empty(&user_info->mac_lst)) {
        L3MAC_WARN("!list_empty(&user_info->mac_lst)", 0, 0);
        return SS_E_NONE;
    }
    if (!l3mac_is_mac_hw(user_info->mac_entry)) return sw_l3mac_op_user_unbind_mac(user_info);
    mac_hw *hw = static_cast<mac_hw *>(user_info->mac_entry);
    list_del_init(&user_info->mac_lst);
    user_info->mac_entry = nullptr;
    l3mac_del_hw_entry(hw);
    return SS_E_NONE;
}

void l3mac_del_hw_entry(mac_hw *hw) {
    if (l3mac_info_on()) {
        int rv = vrrp_db_row(hw);
        L3MAC_INFO("mac_hw %d\n", rv);
    }
    if (!list_empty(&hw->user_head)) {
        L3MAC_INFO("mac hw user head is not empty\n");
        return;
    }
    l3mac_hw_dec(hw);
    vrrp_db_del(l3mac_ctx.vrrp_db, hw);
}

// The flag is set before the write and kept when the write fails: there
// is no second attempt, and the failure stays in the counters.
int l3mac_hw_dec(mac_hw *hw) {
    const uint8_t wanted = list_empty(&hw->user_head) ? 0 : 1;
    if (wanted == hw->is_hw) return SS_E_NONE;
    hw->is_hw = wanted;
    int rv = sw_l3mac_set_vrrp_hw(hw, wanted);
    if (rv != SS_E_NONE) L3MAC_FAIL(L3MAC_ERR_TBL_WRITE, "rv == SS_E_NONE", hw->evlan, hw->evlan_mask);
    return SS_E_NONE;
}
