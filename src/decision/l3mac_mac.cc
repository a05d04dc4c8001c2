// MAC entries of the managed path: the binding of user entries to the MAC
// of their {mac_type, mac, phyid}, and the pending list that hands touched
// MACs to the decision round. Neither operation frees anything: a MAC whose
// last user has left waits on the pending list for the decision.
#include "decision/l3mac_mac.h"

#include <cstring>

#include "diag/l3mac_log.h"
#include "frame/l3mac_ctx.h"
#include "store/l3mac_db.h"
#include "vrrp/l3mac_vrrp.h"

namespace {

// The MAC store's key, built zero-filled so that the filler byte is 0.
struct l3mac_mac_key {
    uint8_t mac_type;
    uint8_t mac[6];
    uint8_t zero;
    uint32_t phyid;
};
static_assert(sizeof(l3mac_mac_key) == L3MAC_MAC_KEY_LEN);

}  // namespace

// At the front: the decision walks from the front, so that the MAC queued
// last is treated first. A pending MAC keeps its place.
void l3mac_mac_queue(mac_entry *mac) {
    if (list_empty(&mac->pending_lst)) list_add(&mac->pending_lst, &l3mac_pending_head);
}

mac_entry *sw_l3mac_get_or_add_mac_db(uint8_t mac_type, const uint8_t *mac,
                                      uint32_t phyid, int is_add) {
    l3mac_mac_key key;
    std::memset(&key, 0, sizeof key);
    key.mac_type = mac_type;
    std::memcpy(key.mac, mac, sizeof key.mac);
    key.phyid = phyid;
    mac_entry *rec = is_add ? mac_db_get_or_add(l3mac_ctx.mac_db, &key)
                            : mac_db_get(l3mac_ctx.mac_db, &key);
    if (l3mac_info_on()) {
        int rv = mac_db_show(rec, 1);
        L3MAC_INFO("mac db: %d\n", rv);
    }
    return rec;
}

// The entry's attributes are already the new ones. A new user goes to the
// front of user_head, so the list runs from the newest user to the oldest.
int sw_l3mac_op_user_bind_mac(user_entry *user_info) {
    mac_entry *mac = sw_l3mac_get_or_add_mac_db(user_info->mac_type, user_info->mac,
                                                user_info->phyid, 1);
    if (!mac) {
        L3MAC_FAIL(L3MAC_ERR_NO_ENTRY_ADD, "mac_entry != NULL", user_info->mac_type,
                   user_info->user);
        return L3MAC_E_NOMEM;
    }
    if (user_info->mac_entry == mac) {
        L3MAC_INFO("mac entry not chg, but user update\n");
        l3mac_mac_queue(mac);
        return SS_E_NONE;
    }
    sw_l3mac_op_user_unbind_mac(user_info);
    list_add(&user_info->mac_lst, &mac->user_head);
    user_info->mac_entry = mac;
    l3mac_mac_queue(mac);
    return SS_E_NONE;
}

// An entry that the direct path bound (a key whose new attributes take the
// managed path, or a debug command's delete) is released by the direct
// path's own rules: its mac_hw loses a user and goes with its last one.
int sw_l3mac_op_user_unbind_mac(user_entry *user_info) {
    if (list_empty(&user_info->mac_lst)) {
        L3MAC_WARN("!list_empty(&user_info->mac_lst)", 0, 0);
        return SS_E_NONE;
    }
    if (l3mac_is_mac_hw(user_info->mac_entry)) return l3mac_user_unbind_mac_hw(user_info);
    mac_entry *mac = static_cast<mac_entry *>(user_info->mac_entry);
    list_del_init(&user_info->mac_lst);
    user_info->mac_entry = nullptr;
    l3mac_mac_queue(mac);
    if (l3mac_info_on()) {
        int rv = mac_db_show(mac, 1);
        L3MAC_INFO("mac db: %d\n", rv);
    }
    return SS_E_NONE;
}
