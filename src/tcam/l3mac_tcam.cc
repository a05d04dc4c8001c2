// TCAM entries: creating, claiming, publishing and removing the entries
// that serve a MAC, each holding one index of its TCAM's pool.
#include "tcam/l3mac_tcam.h"

#include <cstring>

#include "diag/l3mac_log.h"
#include "frame/l3mac_ctx.h"
#include "request/l3mac_msg.h"
#include "store/l3mac_db.h"
#include "tcam/l3mac_output.h"

namespace {

// The mask of the MAC's number space: 12-bit VLANs or the VFI space.
uint32_t l3mac_space_mask(uint8_t is_vfi) {
    return is_vfi ? (l3mac_ctx.vfi_mask & 0xFFFF) : 4095u;
}

uint32_t l3mac_cut_mask(const mask_template *tpl, uint8_t is_vfi) {
    return tpl->mask & 0xFFFF & l3mac_space_mask(is_vfi);
}

// The template of value 0 alone: the cover search always adds VLAN 0,
// which is no real VLAN and gets no entry.
bool l3mac_is_filler(const mask_template *tpl, uint32_t cut, uint8_t is_vfi) {
    return tpl->key == 0 && cut == (is_vfi ? l3mac_ctx.vfi_mask : 4095u);
}

// Keys are built in zeroed memory, so that the filler byte compares equal.
void l3mac_build_key(tcam_key *key, const mask_template *tpl, uint32_t cut,
                     const mac_entry *mac, uint32_t phyid) {
    std::memset(key, 0, sizeof *key);
    key->evlan = tpl->key;
    key->evlan_mask = cut;
    std::memcpy(key->mac, mac->mac, sizeof key->mac);
    key->mac_type = mac->mac_type;
    key->phyid = phyid;
}

}  // namespace

// The publishing step of the add: output row, then is_hw, then backup row.
// It bears the add's name because its lines and the failure report are the
// add's, also when a failed change publishes the entries that it keeps
// (l3mac_publish_tcam_entry). is_hw is set even if a write failed, so that a
// repeated add does not write again.
static int sw_l3mac_add_tcam_entry(tcam_entry *entry) {
    L3MAC_INFO("mac_type=%d, index=%d\n", entry->key.mac_type, entry->idx);
    const int rv_out = l3mac_set_output(entry, 1);
    entry->is_hw = 1;
    const int rv_bak = l3mac_set_backup(entry, 1);
    if (rv_out != SS_E_NONE || rv_bak != SS_E_NONE) {
        L3MAC_FAIL(L3MAC_ERR_TBL_WRITE, "rv == SS_E_NONE", entry->key.mac_type,
                   entry->idx);
        return rv_out | rv_bak;
    }
    return SS_E_NONE;
}

int l3mac_publish_tcam_entry(tcam_entry *entry) {
    return sw_l3mac_add_tcam_entry(entry);
}

int sw_l3mac_add_tcam_entry(const mask_template *tpl, mac_entry *mac) {
    const uint8_t is_vfi = mac->evlan_bmp.is_vfi;
    L3MAC_INFO("is_vfi=%d, mask=%#x\n", is_vfi, tpl->mask);
    const uint32_t cut = l3mac_cut_mask(tpl, is_vfi);
    if (l3mac_is_filler(tpl, cut, is_vfi)) {
        L3MAC_INFO("evlan %d\n", 0);
        return SS_E_NONE;
    }

    tcam_key key;
    l3mac_build_key(&key, tpl, cut, mac, mac->phyid);
    L3MAC_INFO("mac_type=%d, evlan=%d, mask=%#x, mac=%m, phyid=%d\n",
               key.mac_type, key.evlan, key.evlan_mask, key.mac, key.phyid);

    tcam_entry *entry = tcam_db_get_or_add(l3mac_ctx.tcam_db, &key);
    if (!entry) {
        L3MAC_FAIL(L3MAC_ERR_NO_ENTRY_ADD, "entry != NULL", key.evlan,
                   key.evlan_mask);
        return L3MAC_E_NOMEM;
    }
    if (!entry->valid) {
        const int rv = sw_l3mac_op_add_idx(entry->key.mac_type, &entry->idx, 0, 0);
        if (rv != SS_E_NONE) {
            // A record made just now goes again: a full pool leaves nothing.
            if (list_empty(&entry->tcam_lst)) l3mac_del_tcam_db(entry);
            L3MAC_INFO("add idx failed, rv = %d\n", rv);
            return rv;
        }
        entry->valid = 1;
    }
    l3mac_update_tcam_entry(entry, mac);
    if (entry->is_hw) return SS_E_NONE;  // published: nothing to write
    return sw_l3mac_add_tcam_entry(entry);
}

int sw_l3mac_mark_tcam_entry(const mask_template *tpl, mac_entry *mac) {
    const uint8_t is_vfi = mac->evlan_bmp.is_vfi;
    L3MAC_INFO("is_vfi=%d, mask=%#x\n", is_vfi, tpl->mask);
    const uint32_t cut = l3mac_cut_mask(tpl, is_vfi);
    if (l3mac_is_filler(tpl, cut, is_vfi)) {
        L3MAC_INFO("evlan %d\n", 0);
        return L3MAC_E_PARAM;  // keeps the filler out of the cover's count
    }

    // Keyed with phyid 0 whatever the MAC's phyid: a MAC with a phyid is
    // claimed only by the add.
    tcam_key key;
    l3mac_build_key(&key, tpl, cut, mac, 0);
    L3MAC_INFO("mac_type=%d, evlan=%d, mask=%#x, mac=%m\n", key.mac_type,
               key.evlan, key.evlan_mask, key.mac);

    tcam_entry *entry = tcam_db_get(l3mac_ctx.tcam_db, &key);
    if (entry) {
        l3mac_update_tcam_entry(entry, mac);
        L3MAC_INFO("mac_type=%d, index=%d\n", entry->key.mac_type, entry->idx);
        return SS_E_NONE;
    }
    // The ordinary case of a growing set: the add makes the entry.
    L3MAC_FAIL_WARN(L3MAC_ERR_NO_ENTRY_DEL, "entry != NULL", key.evlan,
                    key.evlan_mask);
    return SS_E_NONE;
}

void l3mac_update_tcam_entry(tcam_entry *entry, mac_entry *mac) {
    if (list_empty(&entry->tcam_lst)) list_add(&entry->tcam_lst, &mac->tcam_head);
    entry->ref_cnt++;
    if (l3mac_info_on()) {
        const int rv = tcam_db_show(entry, 1);
        L3MAC_INFO("tcam entry %d\n", rv);
    }
}

int sw_l3mac_del_tcam(tcam_entry *entry) {
    if (l3mac_info_on()) {
        const int rv = tcam_db_show(entry, 1);
        L3MAC_INFO("del tcam entry %d\n", rv);
    }
    const int rv = sw_l3mac_op_del_idx(l3mac_get_tcam_id(entry->key.mac_type),
                                       entry->idx);
    if (rv != SS_E_NONE) L3MAC_INFO("free idx failed, rv = %d\n", rv);
    // Also for an entry that this process never published: the rows of an
    // earlier process go with it.
    l3mac_set_output(entry, 0);
    l3mac_set_backup(entry, 0);
    l3mac_del_tcam_db(entry);
    return SS_E_NONE;
}

void l3mac_del_tcam_db(tcam_entry *entry) {
    tcam_db_del(l3mac_ctx.tcam_db, entry);
}
