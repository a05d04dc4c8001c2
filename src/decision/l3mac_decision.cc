// Decision round and its timer: every pending MAC gets its VLAN set rebuilt
// from its users, a new cover, and the application of that cover; MACs
// without room get a second pass once the others have given up what they
// no longer need, and are reported when they fail again.
#include "decision/l3mac_decision.h"

#include <cstring>

#include "decision/l3mac_mask.h"
#include "decision/l3mac_mask_compact.h"
#include "diag/l3mac_log.h"
#include "diag/l3mac_time.h"
#include "frame/l3mac_ctx.h"
#include "frame/l3mac_ds.h"
#include "frame/l3mac_mem.h"
#include "platform/printk_syslog.h"
#include "request/l3mac_msg.h"
#include "store/l3mac_db.h"
#include "tcam/l3mac_tcam.h"
#include "vrrp/l3mac_vrrp.h"

namespace {

// Takes every claim off the MAC's entries; the count is what the change
// gives back to the pool at most.
uint32_t l3mac_reset_claims(mac_entry *mac) {
    uint32_t n = 0;
    for (list_head *pos = mac->tcam_head.next; pos != &mac->tcam_head;
         pos = pos->next, n++)
        l3mac_tcam_of(pos)->ref_cnt = 0;
    return n;
}

void l3mac_claim_all(mac_entry *mac) {
    for (list_head *pos = mac->tcam_head.next; pos != &mac->tcam_head;
         pos = pos->next)
        l3mac_tcam_of(pos)->ref_cnt = 1;
}

// The set is rebuilt from scratch as the union of the users' evlans. An
// evlan of 16384 or more has no bit: its user takes no part in the set
// rather than have anything written past the bitmap.
void l3mac_rebuild_bmp(mac_entry *mac) {
    std::memset(&mac->evlan_bmp, 0, sizeof mac->evlan_bmp);
    mac->evlan_bmp.is_vfi = sw_l3mac_type_is_vfi(mac->mac_type);
    for (list_head *pos = mac->user_head.next; pos != &mac->user_head;
         pos = pos->next) {
        const user_entry *user = l3mac_user_of(pos);
        if (user->evlan >= L3MAC_BMP_BITS) {
            L3MAC_ERR_LINE("evlan %d out of range: user = %d , uuid = %s\n",
                           user->evlan, user->user, user->uuid);
            continue;
        }
        l3mac_bmp_set(&mac->evlan_bmp, user->evlan);
    }
}

// A cover search without memory leaves no cover. Applying the empty list
// would remove every entry of the MAC, so the MAC is treated as a failed
// application instead: it keeps its entries with one claim each and its
// former set, and stays pending for the next round.
int l3mac_cover_failed(mac_masklist *ml, mac_entry *mac, int rv) {
    L3MAC_WARN("rv == SS_E_NONE", rv, mac->mac_type);
    mac->evlan_bmp = ml->old_bmp;
    l3mac_claim_all(mac);
    return L3MAC_E_FAIL;
}

// The cover of the MAC's rebuilt set in the board's mode. The compact
// search also weighs the entries that the MAC holds, so that it keeps what
// it can. 0, or -1 without memory.
int l3mac_cover_of(mac_entry *mac, uint32_t held_cnt, list_head *head) {
    if (!l3mac_ctx.compact_cover) return l3mac_masklist_calc(&mac->evlan_bmp, head);
    auto *have = static_cast<mask_held *>(l3mac_malloc((held_cnt + 1) * sizeof(mask_held)));
    if (!have) return L3MAC_E_NOMEM_CALC;
    uint32_t n = 0;
    for (list_head *pos = mac->tcam_head.next; pos != &mac->tcam_head && n < held_cnt;
         pos = pos->next, n++)
        have[n] = {l3mac_tcam_of(pos)->key.evlan, l3mac_tcam_of(pos)->key.evlan_mask};
    const int rv = l3mac_masklist_calc_compact(&mac->evlan_bmp, have, n, head);
    l3mac_free(have);
    return rv;
}

// Prepares and applies the change of one MAC in the first pass. The
// result is the application's: 0, -6 (held over) or -11 (stays pending).
int l3mac_decide_mac(mac_masklist *ml, mac_entry *mac) {
    ml->mac = mac;
    ml->rm = nullptr;
    if (l3mac_get_tcam_id(mac->mac_type) == MY_STATION_TCAM_1) {
        ml->rm = l3mac_ctx.tcam_rm[0];
    } else {
        ml->rm = l3mac_ctx.tcam_rm[1];
        // No second pool: the MAC is left as it is and stays pending.
        if (!ml->rm) return l3mac_add_masklist(ml);
    }
    ml->old_bmp = mac->evlan_bmp;
    ml->del_cnt = l3mac_reset_claims(mac);
    l3mac_rebuild_bmp(mac);
    list_init(&ml->mask_lst);
    const int rv = l3mac_cover_of(mac, ml->del_cnt, &ml->mask_lst);
    if (rv != SS_E_NONE) return l3mac_cover_failed(ml, mac, rv);
    ml->add_cnt = l3mac_mark_and_count_new_tcam(ml, mac);
    return l3mac_add_masklist(ml);
}

// The second chance of the MACs held over, in the order in which they
// failed; the pool now holds what the first pass gave back.
void l3mac_second_pass(list_head *retry) {
    for (list_head *pos = retry->next; pos != retry; pos = pos->next) {
        mac_masklist *ml = l3mac_masklist_of_retry(pos);
        if (l3mac_add_masklist(ml) != L3MAC_E_FULL) continue;
        l3mac_no_res_log();
        l3mac_tcam_fail_notice(ml);
    }
}

void l3mac_release_held_over(list_head *retry) {
    // Each release unlinks and frees its record: hold the next one first.
    L3MAC_LIST_FOR_EACH_SAFE(pos, nxt, retry)
        l3mac_release_masklist(l3mac_masklist_of_retry(pos));
}

}  // namespace

int sw_l3mac_mac_decision() {
    if (!l3mac_is_ds_end()) {
        L3MAC_WARN("l3mac_is_ds_end()", 0, 0);
        return SS_E_NONE;
    }
    mac_masklist *ml = l3mac_alloc_masklist();
    if (!ml) {
        L3MAC_WARN("mac_masklist != NULL", L3MAC_ERR_NO_ENTRY_ADD, 0);
        return L3MAC_E_FAIL;
    }
    L3MAC_INFO("tcam change first round.\n");

    list_head retry;
    list_init(&retry);
    int result = SS_E_NONE;
    // A treated MAC leaves the pending list and may even be freed: the walk
    // holds the next MAC before it treats the current one.
    L3MAC_LIST_FOR_EACH_SAFE(pos, nxt, &l3mac_pending_head) {
        if (l3mac_decide_mac(ml, l3mac_mac_of_pending(pos)) != L3MAC_E_FULL) {
            l3mac_masklist_free(&ml->mask_lst);  // serves the next MAC
            continue;
        }
        list_add_tail(&ml->retry_lst, &retry);
        ml = l3mac_alloc_masklist();
        if (!ml) {
            L3MAC_FAIL(L3MAC_ERR_NO_ENTRY_ADD, "mac_masklist != NULL", 0, 0);
            result = L3MAC_E_NOMEM;
            break;
        }
    }
    if (result == SS_E_NONE) {
        ml->mac = nullptr;
        l3mac_release_masklist(ml);
        L3MAC_INFO("add tcam second time\n");
        if (list_empty(&retry)) return SS_E_NONE;
        l3mac_second_pass(&retry);
    }
    l3mac_release_held_over(&retry);
    return result;
}

uint32_t l3mac_mark_and_count_new_tcam(mac_masklist *ml, mac_entry *mac) {
    uint32_t cnt = 0;
    for (list_head *pos = ml->mask_lst.next; pos != &ml->mask_lst;
         pos = pos->next) {
        if (sw_l3mac_mark_tcam_entry(l3mac_mask_of(pos), mac) == SS_E_NONE) cnt++;
        L3MAC_INFO("add cnt = %d\n", cnt);
    }
    return cnt;
}

void l3mac_tcam_fail_notice(mac_masklist *ml) {
    mac_entry *mac = ml->mac;
    for (list_head *pos = mac->user_head.next; pos != &mac->user_head;
         pos = pos->next) {
        user_entry *user = l3mac_user_of(pos);
        // A VLAN that was in the set before this round is still served; an
        // evlan without a bit never took part in the set.
        if (user->evlan >= L3MAC_BMP_BITS || l3mac_bmp_test(&ml->old_bmp, user->evlan))
            continue;
        L3MAC_INFO("change tcam fail: user = %d , uuid = %s\n", user->user,
                   user->uuid);
        if (mac->mac_type == S_ROUTE__L3MAC_TYPE_E__L3MAC_VRRP)
            sw_l3mac_set_vrrp_fail(user);
    }
}

namespace {

kw_timeval l3mac_time_since(const kw_timeval &now, const kw_timeval &then) {
    kw_timeval d = {now.tv_sec - then.tv_sec, now.tv_usec - then.tv_usec};
    if (d.tv_usec < 0) {
        d.tv_sec -= 1;
        d.tv_usec += 1000000;
    }
    return d;
}

}  // namespace

// A failure that keeps recurring at the message's own pace is told five
// times at each interval, the interval doubling from 1 up to 16 seconds; a
// pause longer than the interval (plus 100 ms) starts again at 1 second.
void l3mac_no_res_log() {
    l3mac_no_res_log_t &log = l3mac_ctx.no_res_log;
    kw_timeval now;
    kw_monotime(&now);
    const int64_t e = kw_timeval_to_us(l3mac_time_since(now, log.last));

    if (log.interval == 0) {
        log.burst++;
        log.interval = 1;
        log.last = now;
    } else {
        const int64_t t = static_cast<int64_t>(log.interval) * 1000000;
        if (e < t) return;
        log.last = now;
        if (e <= t + 100000) {
            if (log.burst + 1 >= 5) {
                log.burst = 0;
                if (log.interval < 16) log.interval *= 2;
            } else {
                log.burst++;
            }
        } else {
            log.burst = 0;
            log.interval = 1;
        }
    }
    printk_syslog_lc(4, "EFHW", "L3MAC_NO_RESOURCE", "L3MAC table is full.");
}

static void l3mac_arm_decision_timer() {
    kw_thread_insert_timer(l3mac_ctx.global->thread, &l3mac_ctx.decision_timer,
                           l3mac_decision_timer, nullptr, 2, "sw_l3mac");
}

int l3mac_start_decision_timer() {
    if (!l3mac_ctx.global) return L3MAC_E_PARAM;
    l3mac_arm_decision_timer();
    return SS_E_NONE;
}

int l3mac_decision_timer(void * /*arg*/) {
    // The direct-decision budgets count per tick.
    l3mac_ctx.commom_decision_cnt = 0;
    l3mac_ctx.drv_decision_cnt = 0;
    if (!list_empty(&l3mac_pending_head)) {
        l3mac_time_start(0, 1);
        sw_l3mac_mac_decision();
        l3mac_time_end();
    }
    if (l3mac_ctx.global) l3mac_arm_decision_timer();
    L3MAC_COUNT(L3MAC_ERR_TIMER_TICK, 0, 0);
    return SS_E_NONE;
}
