// The in-process check of the live state: the four stores as hash tables,
// the lists between their records, the pending list, the pools and the
// count of live records.
#include <map>
#include <set>

#include "check/l3mac_check_live.h"
#include "store/l3mac_store_traits.h"

namespace {

// Walks a list whose links must agree both ways, at most `bound` records.
// False, with nothing more visited, at the first broken link.
template <class Fn>
bool l3mac_check_walk(const list_head *head, size_t bound, Fn fn) {
    size_t n = 0;
    for (const list_head *p = head->next; p != head; p = p->next) {
        if (p->next->prev != p || p->prev->next != p || ++n > bound) return false;
        fn(const_cast<list_head *>(p));
    }
    return head->next->prev == head && head->prev->next == head;
}

// Buckets, counts and the reach of every live record by its own key.
template <class Rec>
void l3mac_check_store(l3mac_store<Rec> *db, const char *name, std::set<const void *> *recs,
                       l3mac_check_report *rep) {
    if (!db) return;
    const uint32_t n = db->bucket;
    if (n == 0) {
        if (db->cur || db->used) rep->violation("%s: no buckets but %u live", name, db->cur);
        return;
    }
    if (n < 4 || (n & (n - 1)) || db->limit != l3mac_store_limit(n))
        rep->violation("%s: %u buckets with limit %u", name, n, db->limit);
    uint32_t live = 0, del = 0;
    for (uint32_t i = 0; i < n; i++) {
        const uint32_t st = l3mac_bkt_state(db->flags, i);
        if (st == (L3MAC_BKT_DEL | L3MAC_BKT_EMPTY))
            rep->violation("%s: bucket %u both deleted and empty", name, i);
        if (st == L3MAC_BKT_DEL) del++;
        if (st != 0) continue;
        live++;
        Rec *rec = db->slots[i];
        if (!recs->insert(rec).second) rep->violation("%s: a record in two buckets", name);
        if (db->get(l3mac_store_traits<Rec>::key(rec)) != rec)
            rep->violation("%s: the record of bucket %u is not found by its key", name, i);
    }
    if (live != db->cur || live + del != db->used || db->used > db->limit)
        rep->violation("%s: %u live and %u deleted buckets, counted cur %u used %u limit %u",
                       name, live, del, db->cur, db->used, db->limit);
}

template <class Rec>
uint32_t l3mac_check_cur(const l3mac_store<Rec> *db) {
    return db ? db->cur : 0;
}

bool l3mac_check_same_mac(const user_entry *u, const mac_entry *m) {
    return u->mac_type == m->mac_type && std::memcmp(u->mac, m->mac, 6) == 0 &&
           u->phyid == m->phyid;
}

bool l3mac_check_same_mac(const tcam_entry *e, const mac_entry *m) {
    return e->key.mac_type == m->mac_type && std::memcmp(e->key.mac, m->mac, 6) == 0 &&
           e->key.phyid == m->phyid;
}

void l3mac_check_mac_users(l3mac_check_live_ctx &c, mac_entry *mac, const l3mac_check_who &who) {
    bool ok = l3mac_check_walk(&mac->user_head, c.bound, [&](list_head *p) {
        user_entry *u = l3mac_user_of(p);
        if (!c.users.count(u)) {
            c.rep->violation("%s: user_head holds a record of no store", who.c_str());
            return;
        }
        if (!c.owner.emplace(u, mac).second)
            c.rep->violation("%s: user '%s' is on two lists", who.c_str(), u->uuid);
        if (u->mac_entry != mac)
            c.rep->violation("%s: user '%s' on its list is bound elsewhere", who.c_str(), u->uuid);
        // A bind that found no memory for the new MAC leaves the user, with
        // its new request, on the old one until its next add.
        if (l3mac_check_same_mac(u, mac)) return;
        if (c.opts.faults) c.strays.insert(mac);
        else c.rep->violation("%s: user '%s' asks for another MAC", who.c_str(), u->uuid);
    });
    if (!ok) c.rep->violation("%s: user_head list is broken", who.c_str());
}

void l3mac_check_mac_entries(l3mac_check_live_ctx &c, mac_entry *mac,
                             const l3mac_check_who &who) {
    bool ok = l3mac_check_walk(&mac->tcam_head, c.bound, [&](list_head *p) {
        tcam_entry *e = l3mac_tcam_of(p);
        if (!c.entries.count(e)) {
            c.rep->violation("%s: tcam_head holds a record of no store", who.c_str());
            return;
        }
        if (!c.entry_owner.emplace(e, mac).second)
            c.rep->violation("%s: an entry is on two lists", who.c_str());
        if (!l3mac_check_same_mac(e, mac))
            c.rep->violation("%s: holds the entry of another MAC", who.c_str());
    });
    if (!ok) c.rep->violation("%s: tcam_head list is broken", who.c_str());
}

void l3mac_check_mac(l3mac_check_live_ctx &c, mac_entry *mac) {
    const l3mac_check_who who(mac);
    l3mac_check_mac_users(c, mac, who);
    l3mac_check_mac_entries(c, mac, who);
    if (mac->evlan_bmp.is_vfi != (mac->mac_type == 1))
        c.rep->violation("%s: is_vfi %u", who.c_str(), mac->evlan_bmp.is_vfi);
    const bool pending = !list_empty(&mac->pending_lst);
    if (!pending && list_empty(&mac->user_head) && list_empty(&mac->tcam_head))
        c.rep->violation("%s: settled with neither users nor entries", who.c_str());
    if (pending && c.opts.round_done && !c.opts.faults &&
        c.board.pool[l3mac_check_tcam_of(c.board, mac->mac_type)])
        c.rep->violation("%s: still pending after a finished round", who.c_str());
    if (pending || !l3mac_is_ds_end()) return;
    for (list_head *p = mac->tcam_head.next; p != &mac->tcam_head; p = p->next) {
        const tcam_entry *e = l3mac_tcam_of(p);
        if (e->ref_cnt == 0 || !e->is_hw)
            c.rep->violation("%s: settled entry %u/%#x with ref_cnt %u is_hw %u", who.c_str(),
                             e->key.evlan, e->key.evlan_mask, e->ref_cnt, e->is_hw);
    }
    l3mac_check_mac_cover(c, mac, who);
}

void l3mac_check_pending(l3mac_check_live_ctx &c) {
    std::set<const void *> seen;
    bool ok = l3mac_check_walk(&l3mac_pending_head, c.bound, [&](list_head *p) {
        const mac_entry *mac = l3mac_mac_of_pending(p);
        if (!c.macs.count(mac)) c.rep->violation("pending list holds a record of no store");
        else if (!seen.insert(mac).second) c.rep->violation("a MAC is pending twice");
    });
    if (!ok) c.rep->violation("the pending list is broken");
    for (const void *m : c.macs) {
        const auto *mac = static_cast<const mac_entry *>(m);
        if (!list_empty(&mac->pending_lst) && !seen.count(mac))
            c.rep->violation("%s: linked on another list than the pending list",
                             l3mac_check_mac_text(l3mac_check_key_of(mac)).c_str());
    }
}

void l3mac_check_entry(l3mac_check_live_ctx &c, tcam_entry *e,
                       std::map<std::pair<int, uint32_t>, int> *taken) {
    char text[96] = "";
    auto who = [&] {  // named only in a line that reports something
        if (!text[0])
            std::snprintf(text, sizeof text, "entry %u/%#x type %u idx %u", e->key.evlan,
                          e->key.evlan_mask, e->key.mac_type, e->idx);
        return text;
    };
    if (!c.entry_owner.count(e)) c.rep->violation("%s: on no MAC's tcam_head", who());
    if (e->valid != 1 || e->key.rsvd != 0)
        c.rep->violation("%s: valid %u filler %u", who(), e->valid, e->key.rsvd);
    const int t = l3mac_check_tcam_of(c.board, e->key.mac_type);
    if (!c.board.pool[t]) c.rep->violation("%s: TCAM %d has no pool", who(), t);
    if (c.board.cap[t] <= 0 || e->idx >= uint32_t(c.board.cap[t]))
        c.rep->violation("%s: at or above the capacity %d of TCAM %d", who(), c.board.cap[t], t);
    if (++(*taken)[{t, e->idx}] == 2) c.rep->violation("%s: index shared in TCAM %d", who(), t);
    c.in_tcam[t]++;
}

void l3mac_check_entries(l3mac_check_live_ctx &c) {
    std::map<std::pair<int, uint32_t>, int> taken;
    for (const void *e : c.entries)
        l3mac_check_entry(c, static_cast<tcam_entry *>(const_cast<void *>(e)), &taken);
    for (int t = 0; t < 2; t++) {
        const sw_res_rm *rm = l3mac_ctx.tcam_rm[t];
        if (!rm) continue;
        if (rm->in_use != c.in_tcam[t])
            c.rep->violation("pool of TCAM %d: %u in use for %u entries", t, rm->in_use,
                             c.in_tcam[t]);
        if (rm->in_use > rm->limit)
            c.rep->violation("pool of TCAM %d: %u in use above its limit %u", t, rm->in_use,
                             rm->limit);
    }
}

void l3mac_check_mac_hw(l3mac_check_live_ctx &c, mac_hw *hw) {
    char text[96] = "";
    auto who = [&] {
        if (!text[0])
            std::snprintf(text, sizeof text, "mac_hw evlan %u type %u", hw->evlan, hw->mac_type);
        return text;
    };
    bool ok = l3mac_check_walk(&hw->user_head, c.bound, [&](list_head *p) {
        user_entry *u = l3mac_user_of(p);
        if (!c.users.count(u)) {
            c.rep->violation("%s: user_head holds a record of no store", who());
            return;
        }
        if (!c.owner.emplace(u, hw).second)
            c.rep->violation("%s: user '%s' is on two lists", who(), u->uuid);
        if (u->mac_entry != hw) c.rep->violation("%s: user '%s' bound elsewhere", who(), u->uuid);
        if (!c.opts.faults && (u->evlan != hw->evlan || u->mac_type != hw->mac_type ||
                               std::memcmp(u->mac, hw->mac, 6) != 0))
            c.rep->violation("%s: user '%s' asks for another record", who(), u->uuid);
    });
    if (!ok) c.rep->violation("%s: user_head list is broken", who());
    if (list_empty(&hw->user_head)) c.rep->violation("%s: has no user", who());
    if (hw->is_hw != !list_empty(&hw->user_head) || hw->evlan_mask != 0 || hw->rsvd != 0)
        c.rep->violation("%s: is_hw %u mask %#x", who(), hw->is_hw, hw->evlan_mask);
}

void l3mac_check_user(l3mac_check_live_ctx &c, const user_entry *u) {
    const bool linked = !list_empty(&u->mac_lst);
    if (linked != (u->mac_entry != nullptr))
        c.rep->violation("user '%s': linked %d but bound to %p", u->uuid, linked, u->mac_entry);
    if (u->uuid[127] != 0) c.rep->violation("user %u: uuid not terminated", u->user);
    if (!linked) return;
    auto own = c.owner.find(u);
    if (own == c.owner.end() || own->second != u->mac_entry)
        c.rep->violation("user '%s': bound to a record that does not list it", u->uuid);
}

}  // namespace

namespace {

void l3mac_check_all_stores(l3mac_check_live_ctx &c) {
    l3mac_check_store(l3mac_ctx.mac_db, "mac_db", &c.macs, c.rep);
    l3mac_check_store(l3mac_ctx.tcam_db, "tcam_db", &c.entries, c.rep);
    l3mac_check_store(l3mac_ctx.user_db, "user_db", &c.users, c.rep);
    l3mac_check_store(l3mac_ctx.vrrp_db, "vrrp_db", &c.hws, c.rep);
    const uint32_t live = l3mac_check_cur(l3mac_ctx.mac_db) + l3mac_check_cur(l3mac_ctx.tcam_db) +
                          l3mac_check_cur(l3mac_ctx.user_db) + l3mac_check_cur(l3mac_ctx.vrrp_db);
    if (l3mac_ctx.malloc_db != live)
        c.rep->violation("malloc_db is %u for %u live records", l3mac_ctx.malloc_db, live);
}

}  // namespace

void l3mac_check_stores(l3mac_check_report *rep) {
    const l3mac_check_live_opts opts;
    l3mac_check_live_ctx c(opts, rep);
    l3mac_check_all_stores(c);
}

void l3mac_check_state(l3mac_check_live_ctx &c) {
    l3mac_check_all_stores(c);
    c.bound = c.macs.size() + c.entries.size() + c.users.size() + c.hws.size() + 1;
    for (const void *m : c.macs) l3mac_check_mac(c, static_cast<mac_entry *>(const_cast<void *>(m)));
    for (const void *h : c.hws) l3mac_check_mac_hw(c, static_cast<mac_hw *>(const_cast<void *>(h)));
    for (const void *u : c.users) l3mac_check_user(c, static_cast<const user_entry *>(u));
    l3mac_check_pending(c);
    l3mac_check_entries(c);
}
