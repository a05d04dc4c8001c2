// The in-process check: the live state (l3mac_check_state.cc), each settled
// MAC's entries against the cover of its users, and the rows of the output,
// backup and direct tables against the records that stand for them.
#include <tuple>

#include "check/l3mac_check_live.h"

namespace {

using l3mac_row_tuple = std::tuple<uint32_t, uint32_t, uint32_t, uint32_t, uint32_t,
                                   std::array<uint8_t, 6>, uint32_t>;

l3mac_row_tuple l3mac_check_tuple(const l3mac_check_hw &h) {
    return {h.hw_id, h.phase, h.evlan, h.evlan_mask, h.mac_type, h.mac, h.phyid};
}

l3mac_check_hw l3mac_check_hw_of(const tcam_key &k) {
    l3mac_check_hw h;
    h.has_attr = h.mac_ok = true;
    h.evlan = k.evlan;
    h.evlan_mask = k.evlan_mask;
    h.mac_type = k.mac_type;
    h.phyid = k.phyid;
    std::memcpy(h.mac.data(), k.mac, 6);
    return h;
}

std::set<uint32_t> l3mac_check_users_set(const mac_entry *mac) {
    std::set<uint32_t> out;
    for (const list_head *p = mac->user_head.next; p != &mac->user_head; p = p->next) {
        const uint32_t evlan = l3mac_user_of(const_cast<list_head *>(p))->evlan;
        if (evlan < L3MAC_BMP_BITS) out.insert(evlan);
    }
    return out;
}

// Word by word, set bits only: the check runs after every step of a fuzz
// input, and a bitmap of the whole space mostly holds a few numbers.
std::set<uint32_t> l3mac_check_bmp_set(const evlan_bmp_t &bmp) {
    static_assert(L3MAC_BMP_BITS == L3MAC_BMP_WORDS * 32);
    std::set<uint32_t> out;
    for (uint32_t w = 0; w < L3MAC_BMP_WORDS; w++)
        for (uint32_t bits = bmp.bmp[w]; bits != 0; bits &= bits - 1)
            out.insert(w * 32 + static_cast<uint32_t>(__builtin_ctz(bits)));
    return out;
}

l3mac_pairs l3mac_check_pairs_of(const mac_entry *mac) {
    l3mac_pairs out;
    for (const list_head *p = mac->tcam_head.next; p != &mac->tcam_head; p = p->next) {
        const tcam_entry *e = l3mac_tcam_of(const_cast<list_head *>(p));
        out.emplace(e->key.evlan, e->key.evlan_mask);
    }
    return out;
}

// The numbers that the entries match, within the readable part of the space.
std::set<uint32_t> l3mac_check_matched(const l3mac_pairs &entries, bool is_vfi) {
    std::set<uint32_t> out;
    const uint32_t top = is_vfi ? 16383 : 4095;
    for (uint32_t v = 1; v < top; v++)
        for (const auto &[evlan, mask] : entries)
            if (((v ^ evlan) & mask) == 0) {
                out.insert(v);
                break;
            }
    return out;
}

// Rows that the records call for against the rows that stand.
template <class T>
void l3mac_check_mirror(l3mac_check_report *rep, const char *table, const std::set<T> &want,
                        const std::multiset<T> &have, bool extra_ok = false) {
    uint32_t missing = 0, extra = 0;
    for (const T &t : want) missing += have.count(t) == 0;
    // Rows that the service did not write may also read alike: a key whose
    // address is not 6 bytes reads as the all-zero address.
    for (const T &t : have) extra += !extra_ok && (want.count(t) == 0 || have.count(t) > 1);
    if (missing || extra)
        rep->violation("%s: %u rows missing and %u rows standing for no record", table,
                       missing, extra);
}

void l3mac_check_rows_mirror(l3mac_check_live_ctx &c, const l3mac_check_rows &rows) {
    std::set<l3mac_row_tuple> out_want, bak_want, vrrp_want;
    std::multiset<l3mac_row_tuple> out_have, bak_have, vrrp_have;
    for (const void *p : c.entries) {
        const auto *e = static_cast<const tcam_entry *>(p);
        l3mac_check_hw h = l3mac_check_hw_of(e->key);
        const int t = l3mac_check_tcam_of(c.board, e->key.mac_type);
        h.phase = e->key.mac_type == 1;
        h.hw_id = l3mac_check_hw_id_of(c.board, t, e->idx, h.phase);
        out_want.insert(l3mac_check_tuple(h));
        h.hw_id = e->idx;
        h.phase = 0;
        bak_want.insert(l3mac_check_tuple(h));
    }
    for (const void *p : c.hws) {
        const auto *hw = static_cast<const mac_hw *>(p);
        if (!hw->is_hw) continue;
        tcam_key k{};
        k.evlan = hw->evlan;
        k.mac_type = hw->mac_type;
        std::memcpy(k.mac, hw->mac, 6);
        vrrp_want.insert(l3mac_check_tuple(l3mac_check_hw_of(k)));
    }
    for (const l3mac_check_hw &h : rows.hw_res) out_have.insert(l3mac_check_tuple(h));
    for (const l3mac_check_hw &h : rows.bak) bak_have.insert(l3mac_check_tuple(h));
    for (const l3mac_check_hw &h : rows.vrrp) vrrp_have.insert(l3mac_check_tuple(h));
    l3mac_check_mirror(c.rep, "s_route.l3mac_hw_res", out_want, out_have);
    l3mac_check_mirror(c.rep, "s_route.l3mac_bak", bak_want, bak_have, c.opts.foreign_backup);
    l3mac_check_mirror(c.rep, "s_route.l3mac_vrrp_hw_res", vrrp_want, vrrp_have);
}

// A MAC that failed keeps the entries of its last successful change, which
// are the cover of the set it had then: of nothing else can they be.
void l3mac_check_failed_mac(l3mac_check_live_ctx &c, const mac_entry *mac,
                            const l3mac_pairs &placed, const l3mac_pairs &cover,
                            const l3mac_check_who &who) {
    const bool is_vfi = mac->mac_type == 1;
    const int t = l3mac_check_tcam_of(c.board, mac->mac_type);
    c.rep->unserved_macs++;
    const int64_t need = int64_t(cover.size()) + c.in_tcam_now[t] - int64_t(placed.size());
    if (c.opts.restarted && need <= int64_t(c.board.limit[t]))
        c.rep->violation("%s: %zu entries where its cover has %zu, and TCAM %d has room",
                         who.c_str(), placed.size(), cover.size(), t);
    const bool whole_space = !is_vfi || (c.board.vfi_mask & 0x3FFF) == 0x3FFF;
    if (c.opts.faults || c.opts.foreign_backup || !whole_space) return;
    if (l3mac_check_cover(l3mac_check_matched(placed, is_vfi), is_vfi, c.board.vfi_mask) != placed)
        c.rep->violation("%s: its entries are the cover of no set", who.c_str());
}

}  // namespace

l3mac_mac_key l3mac_check_key_of(const mac_entry *mac) {
    l3mac_mac_key k{mac->mac_type, {}, mac->phyid};
    std::memcpy(k.mac.data(), mac->mac, 6);
    return k;
}

void l3mac_check_mac_cover(l3mac_check_live_ctx &c, const mac_entry *mac,
                           const l3mac_check_who &who) {
    // Such a MAC's users no longer tell what it was placed for.
    if (c.strays.count(mac)) return;
    const std::set<uint32_t> users = l3mac_check_users_set(mac);
    if (l3mac_check_bmp_set(mac->evlan_bmp) != users)
        c.rep->violation("%s: settled, but its bitmap is not its users' set", who.c_str());
    const l3mac_pairs placed = l3mac_check_pairs_of(mac);
    const bool is_vfi = mac->mac_type == 1;
    const l3mac_pairs cover = l3mac_check_cover(users, is_vfi, c.board.vfi_mask);
    if (placed == cover) return;
    const l3mac_check_wanted w{users, {}};
    if (l3mac_check_compact_fits(c.board, placed, cover, w, l3mac_check_top(c.board, is_vfi)))
        return;
    l3mac_check_failed_mac(c, mac, placed, cover, who);
}

void l3mac_check_live(const l3mac_check_live_opts &opts, l3mac_check_report *rep) {
    l3mac_check_live_ctx c(opts, rep);
    for (int t = 0; t < 2; t++) {
        const sw_res_rm *rm = l3mac_ctx.tcam_rm[t];
        c.in_tcam_now[t] = rm ? rm->in_use : 0;
    }
    l3mac_check_state(c);
    rep->macs = static_cast<uint32_t>(c.macs.size());
    rep->fill = c.in_tcam;
    rep->limit = c.board.limit;
    for (const auto &[user, rec] : c.owner)
        (c.macs.count(rec) ? rep->managed_requests : rep->direct_requests)++;
    if (!opts.tables || !opts.round_done || !l3mac_is_ds_end()) return;
    l3mac_check_rows rows;
    l3mac_check_read_tables(&rows);
    rep->direct_rows = static_cast<uint32_t>(rows.vrrp.size());
    l3mac_check_rows_mirror(c, rows);
}
