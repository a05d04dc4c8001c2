// Debug commands that look records up by key or walk a MAC's lists: the
// users and TCAM entries of a MAC, single records of the four stores, and
// which TCAM entries cover a user or a number.
#include <cstdio>
#include <cstring>

#include "diag/l3mac_at.h"
#include "diag/l3mac_at_util.h"
#include "diag/l3mac_log.h"
#include "frame/l3mac_ctx.h"
#include "store/l3mac_db.h"

namespace {

// The 12 key bytes of the MAC store, with the filler byte 0.
struct mac_key {
    uint8_t mac_type;
    uint8_t mac[6];
    uint8_t zero;
    uint32_t phyid;
};
static_assert(sizeof(mac_key) == L3MAC_MAC_KEY_LEN);

// A TCAM entry serves number v when v agrees with its value on every bit
// that its mask compares.
bool covers(const tcam_entry *te, uint32_t evlan) {
    return ((evlan ^ te->key.evlan) & te->key.evlan_mask) == 0;
}

// The user entry's reference is a mac_entry only on the managed path; on
// the direct path it is a mac_hw, and it is null while unbound. The MAC
// store, asked for the entry's attributes, tells which: only a mac_entry is
// found there under its own reference.
mac_entry *bound_mac_entry(const user_entry *u) {
    if (u->mac_entry == nullptr) return nullptr;
    mac_key key;
    std::memset(&key, 0, sizeof key);
    key.mac_type = u->mac_type;
    std::memcpy(key.mac, u->mac, sizeof key.mac);
    key.phyid = u->phyid;
    mac_entry *m = mac_db_get(l3mac_ctx.mac_db, &key);
    return m == u->mac_entry ? m : nullptr;
}

int show_if_covers(tcam_entry *te, void *arg) {
    if (covers(te, *static_cast<const uint32_t *>(arg))) tcam_db_show(te, 1);
    return 0;
}

}  // namespace

int l3mac_at_wk_user_head(int32_t type, const uint8_t *mac, uint32_t phyid) {
    mac_entry *m = l3mac_at_find_mac(type, mac, phyid);
    if (m == nullptr) return l3mac_at_not_found();
    L3MAC_LIST_FOR_EACH_SAFE(pos, nxt, &m->user_head) user_db_show(l3mac_user_of(pos), 1);
    return 0;
}

int l3mac_at_wk_tcam_head(int32_t type, const uint8_t *mac, uint32_t phyid) {
    mac_entry *m = l3mac_at_find_mac(type, mac, phyid);
    if (m == nullptr) return l3mac_at_not_found();
    L3MAC_LIST_FOR_EACH_SAFE(pos, nxt, &m->tcam_head) tcam_db_show(l3mac_tcam_of(pos), 1);
    return 0;
}

int l3mac_at_get_user_db(int32_t user, const char *uuid) {
    char key[128];
    l3mac_at_copy_uuid(key, uuid);
    return l3mac_get_or_add_user_db((uint32_t)user, key, 0) ? 0 : L3MAC_E_NOTFOUND;
}

int l3mac_at_get_mac_db(int32_t type, const uint8_t *mac, uint32_t phyid) {
    return l3mac_at_find_mac(type, mac, phyid) ? 0 : L3MAC_E_NOTFOUND;
}

int l3mac_at_get_tcam_db(int32_t type, const uint8_t *mac, uint32_t evlan,
                         uint32_t evlan_mask) {
    tcam_key key;
    std::memset(&key, 0, sizeof key);
    key.evlan = evlan;
    key.evlan_mask = evlan_mask;
    if (mac != nullptr) std::memcpy(key.mac, mac, sizeof key.mac);
    key.mac_type = (uint8_t)type;
    return tcam_db_show(tcam_db_get(l3mac_ctx.tcam_db, &key), 1);
}

int l3mac_at_get_vrrp_db(const uint8_t *mac, int32_t mac_type, uint32_t evlan,
                         uint32_t evlan_mask) {
    mac_hw key;  // the key is the record's first 16 bytes
    std::memset(&key, 0, sizeof key);
    key.evlan = evlan;
    key.evlan_mask = evlan_mask;
    if (mac != nullptr) std::memcpy(key.mac, mac, sizeof key.mac);
    key.mac_type = (uint8_t)mac_type;
    const mac_hw *hw = vrrp_db_get(l3mac_ctx.vrrp_db, &key);
    if (hw == nullptr) {
        std::printf("entry is null\n");
        return L3MAC_E_NOTFOUND;
    }
    return vrrp_db_show(hw, 1);
}

int l3mac_at_find_evlan_by_mac(int32_t type, const uint8_t *mac, uint32_t phyid,
                               uint32_t evlan) {
    const mac_entry *m = l3mac_at_find_mac(type, mac, phyid);
    if (m == nullptr) return l3mac_at_not_found();
    // A number beyond the bitmap tests as absent: l3mac_bmp_test bounds it.
    const bool has = l3mac_bmp_test(&m->evlan_bmp, evlan);
    std::printf(has ? "contain evlan %d\n\n" : "not contain evlan %d\n\n", (int)evlan);
    return 0;
}

int l3mac_at_find_mask_by_user(int32_t user, const char *uuid) {
    char key[128];
    l3mac_at_copy_uuid(key, uuid);
    user_entry *u = l3mac_get_or_add_user_db((uint32_t)user, key, 0);
    if (u == nullptr) {
        L3MAC_FAIL(L3MAC_ERR_NO_ENTRY_DEL, "user_entry != NULL", user, 0);
        return L3MAC_E_NOTFOUND;
    }
    std::printf("\nThe user entry is : \n");
    user_db_show(u, 1);
    std::printf("\nThe tcam entry is : \n");
    mac_entry *m = bound_mac_entry(u);
    if (m == nullptr) return 0;
    L3MAC_LIST_FOR_EACH_SAFE(pos, nxt, &m->tcam_head) {
        tcam_entry *te = l3mac_tcam_of(pos);
        if (covers(te, u->evlan)) tcam_db_show(te, 1);
    }
    return 0;
}

int l3mac_at_find_mask_by_evlan(uint32_t evlan) {
    tcam_db_scan(l3mac_ctx.tcam_db, show_if_covers, &evlan);
    return 0;
}
