// Restore of TCAM entries from the backup table during data smoothing: each
// row takes its old index again, so that entries stay where the hardware
// has them while the requests come back.
#include <cstring>

#include "decision/l3mac_mac.h"
#include "diag/l3mac_log.h"
#include "frame/l3mac_ctx.h"
#include "platform/ss_rt_tbl.h"
#include "request/l3mac_msg.h"
#include "store/l3mac_db.h"
#include "s_route.pb-c.h"
#include "tcam/l3mac_output.h"
#include "tcam/l3mac_tcam.h"
#include "tcam/l3mac_witness.h"

int l3mac_backup_pmsg_parse(void *scan_rec, tcam_entry *entry) {
    const auto *rec = static_cast<const kw_mom_scan_rec *>(scan_rec);
    const auto *backup_pmsg =
        rec ? reinterpret_cast<const SRoute__L3macBak *>(rec->row) : nullptr;
    if (!backup_pmsg || !backup_pmsg->index) {
        L3MAC_FAIL(L3MAC_ERR_ROW_PARSE, "backup_pmsg->index != NULL", 0, 0);
        return L3MAC_E_PARAM;
    }
    std::memset(entry, 0, sizeof *entry);
    l3mac_key_of_attr(backup_pmsg->index, &entry->key);
    entry->idx = backup_pmsg->hw_id;
    return SS_E_NONE;
}

int l3mac_tcam_param_check(const tcam_entry *entry) {
    if (!(entry->key.mac_type < S_ROUTE__L3MAC_TYPE_E__L3MAC_MAX)) {
        L3MAC_FAIL(L3MAC_ERR_BACKUP_REFUSED,
                   "tcam_entry->key.mac_type < S_ROUTE__L3MAC_TYPE_E__L3MAC_MAX",
                   entry->key.mac_type, 0);
        return L3MAC_E_PARAM;
    }
    const uint8_t is_vfi =
        entry->key.mac_type == S_ROUTE__L3MAC_TYPE_E__L3MAC_OL;
    if (L3MAC_TCAM_EVLAN_INVALID(entry->key.evlan, is_vfi)) {
        L3MAC_FAIL(L3MAC_ERR_BACKUP_REFUSED,
                   "!L3MAC_TCAM_EVLAN_INVALID(tcam_entry->key.evlan, is_vfi)",
                   entry->key.evlan, entry->key.evlan_mask);
        return L3MAC_E_PARAM;
    }
    const int32_t cap = l3mac_get_tcam_id(entry->key.mac_type) == 0
                            ? l3mac_ctx.tcam_cap
                            : l3mac_ctx.tcam2_cap;
    if (!(cap > 0 && entry->idx < static_cast<uint32_t>(cap))) {
        L3MAC_FAIL(L3MAC_ERR_BACKUP_REFUSED, "tcam_entry->idx < cap",
                   entry->idx, 0);
        return L3MAC_E_PARAM;
    }
    return SS_E_NONE;
}

namespace {

// Undoes a record that this restore made: its index goes back to the pool
// (no entry holds it any more) and the record is freed. A record that was
// linked already belongs to its MAC and stays as it was.
void l3mac_gr_drop_new(tcam_entry *entry, bool holds_idx) {
    if (!list_empty(&entry->tcam_lst)) return;
    if (holds_idx)
        sw_l3mac_op_del_idx(l3mac_get_tcam_id(entry->key.mac_type), entry->idx);
    l3mac_del_tcam_db(entry);
}

int l3mac_gr_now = L3MAC_GR_ALL;  // the pass under way

// Whether this pass leaves the row to the other one. A row that cannot be
// read is left to the second pass, which reports it once.
bool l3mac_gr_skip(void *scan_rec) {
    if (l3mac_gr_now == L3MAC_GR_ALL) return false;
    const auto *rec = static_cast<const kw_mom_scan_rec *>(scan_rec);
    const auto *bak = rec ? reinterpret_cast<const SRoute__L3macBak *>(rec->row) : nullptr;
    if (!bak || !bak->index) return l3mac_gr_now == L3MAC_GR_AGREED;
    tcam_entry row;
    std::memset(&row, 0, sizeof row);
    l3mac_key_of_attr(bak->index, &row.key);
    row.idx = bak->hw_id;
    const bool agreed = l3mac_witness_agrees(&row);
    return l3mac_gr_now == L3MAC_GR_AGREED ? !agreed : agreed;
}

}  // namespace

void l3mac_tcam_gr_set_pass(int pass) { l3mac_gr_now = pass; }

int l3mac_tcam_gr_backup(void * /*arg*/, void *scan_rec) {
    if (l3mac_gr_skip(scan_rec)) return SS_E_NONE;
    tcam_entry row;
    if (l3mac_backup_pmsg_parse(scan_rec, &row) != SS_E_NONE) return L3MAC_E_PARAM;
    if (l3mac_tcam_param_check(&row) != SS_E_NONE) {
        L3MAC_WARN("rv == SS_E_NONE", L3MAC_E_PARAM, 0);
        return L3MAC_E_PARAM;
    }
    tcam_entry *entry = tcam_db_get_or_add(l3mac_ctx.tcam_db, &row.key);
    if (!entry) {
        L3MAC_FAIL(L3MAC_ERR_NO_ENTRY_ADD, "tcam_entry != NULL", 0, 0);
        return L3MAC_E_NOMEM;
    }
    // Taken into a local first: a refused index leaves a restored record's
    // own idx untouched.
    uint32_t idx = 0;
    const int rv = sw_l3mac_op_add_idx(entry->key.mac_type, &idx, row.idx, 1);
    if (rv != SS_E_NONE) {
        L3MAC_INFO("add idx failed, rv = %d\n", rv);
        l3mac_gr_drop_new(entry, false);
        return rv;
    }
    // Only rows from elsewhere name one entry twice (a MAC that is not 6
    // bytes reads as the all-zero address). The entry takes the later row's
    // index, as from any row, and gives back the one it held: no entry
    // would give that back otherwise.
    if (entry->valid) sw_l3mac_op_del_idx(l3mac_get_tcam_id(entry->key.mac_type), entry->idx);
    entry->idx = idx;
    entry->is_hw = 0;
    entry->valid = 1;

    const uint8_t mac_type = entry->key.mac_type;
    mac_entry *mac = sw_l3mac_get_or_add_mac_db(mac_type, entry->key.mac,
                                                entry->key.phyid, 1);
    if (!mac) {
        l3mac_gr_drop_new(entry, true);
        L3MAC_FAIL(L3MAC_ERR_NO_ENTRY_ADD, "0", mac_type, 0);
        return L3MAC_E_NOMEM;
    }
    l3mac_update_tcam_entry(entry, mac);
    l3mac_mac_queue(mac);
    return SS_E_NONE;
}
