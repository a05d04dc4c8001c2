// Mask-list application: turns one MAC's TCAM entries into its new cover,
// adding every new entry before removing an old one, after a test for room
// that touches nothing when it fails.
#include "decision/l3mac_masklist.h"

#include "decision/l3mac_mask.h"
#include "diag/l3mac_log.h"
#include "frame/l3mac_ctx.h"
#include "frame/l3mac_mem.h"
#include "store/l3mac_db.h"
#include "tcam/l3mac_tcam.h"

mac_masklist *l3mac_alloc_masklist() {
    auto *ml = static_cast<mac_masklist *>(l3mac_calloc(1, sizeof(mac_masklist)));
    if (!ml) return nullptr;
    l3mac_ctx.malloc_db++;
    list_init(&ml->retry_lst);
    list_init(&ml->mask_lst);
    ml->mac = nullptr;
    return ml;
}

// A MAC whose change was given up keeps what it has, one claim on each
// entry. An entry restored from the backup and not yet published by this
// process is published now: nothing else would write its rows before the
// end of data smoothing deletes the rows that were not written again.
static void l3mac_keep_entries(mac_entry *mac) {
    for (list_head *pos = mac->tcam_head.next; pos != &mac->tcam_head;
         pos = pos->next) {
        tcam_entry *entry = l3mac_tcam_of(pos);
        entry->ref_cnt = 1;
        if (!entry->is_hw) l3mac_publish_tcam_entry(entry);
    }
}

void l3mac_release_masklist(mac_masklist *ml) {
    if (!list_empty(&ml->mask_lst)) l3mac_masklist_free(&ml->mask_lst);
    if (!list_empty(&ml->retry_lst)) list_del_init(&ml->retry_lst);
    // A finished change has taken its MAC off the pending list; one that is
    // still pending failed.
    mac_entry *mac = ml->mac;
    if (mac && !list_empty(&mac->pending_lst)) {
        list_del_init(&mac->pending_lst);
        l3mac_keep_entries(mac);
    }
    l3mac_ctx.malloc_db--;
    l3mac_free(ml);
}

// The change's end state must fit the pool: the cover and the entries
// held both count whole sets, so an entry that stays cancels out.
static bool l3mac_masklist_fits(const mac_masklist *ml) {
    const uint32_t sum = ml->add_cnt + ml->rm->in_use - ml->del_cnt;
    return sum <= ml->rm->limit;
}

int l3mac_add_masklist(mac_masklist *ml) {
    if (!ml->rm) return L3MAC_E_FAIL;
    if (!l3mac_masklist_fits(ml)) {
        L3MAC_INFO("add mask list fail : lack res, add %d, del %d\n",
                   ml->add_cnt, ml->del_cnt);
        return L3MAC_E_FULL;
    }
    if (l3mac_mac_op_add_tcam(ml) != SS_E_NONE) {
        L3MAC_INFO("add mask list fail : add action fail\n");
        return L3MAC_E_FAIL;
    }
    l3mac_masklist_free(&ml->mask_lst);

    mac_entry *mac = ml->mac;
    l3mac_mac_op_del_tcam(mac);
    list_del_init(&mac->pending_lst);
    // The one place where a MAC is freed: no user wants it and no entry
    // serves it.
    if (list_empty(&mac->user_head) && list_empty(&mac->tcam_head))
        mac_db_del(l3mac_ctx.mac_db, mac);
    return SS_E_NONE;
}

int l3mac_mac_op_add_tcam(mac_masklist *ml) {
    for (list_head *pos = ml->mask_lst.next; pos != &ml->mask_lst;
         pos = pos->next) {
        const mask_template *tpl = l3mac_mask_of(pos);
        int rv = sw_l3mac_add_tcam_entry(tpl, ml->mac);
        if (rv == SS_E_NONE) continue;

        // The pool cannot hold old and new together: the old entries that
        // no template has claimed so far make room now.
        L3MAC_INFO("add tcam entry failed, clear tcam and add tcam again, rv = %d\n",
                   rv);
        l3mac_mac_op_del_tcam(ml->mac);
        rv = sw_l3mac_add_tcam_entry(tpl, ml->mac);
        if (rv == SS_E_NONE) continue;
        L3MAC_WARN("rv == SS_E_NONE", rv, 0);
        return rv;
    }
    return SS_E_NONE;
}

void l3mac_mac_op_del_tcam(mac_entry *mac) {
    L3MAC_INFO("clear tcam which ref_cnt is 0\n");
    // sw_l3mac_del_tcam frees the entry: the walk holds the next one first.
    L3MAC_LIST_FOR_EACH_SAFE(pos, nxt, &mac->tcam_head) {
        tcam_entry *entry = l3mac_tcam_of(pos);
        if (entry->ref_cnt != 0) continue;
        list_del_init(&entry->tcam_lst);
        sw_l3mac_del_tcam(entry);
    }
}
