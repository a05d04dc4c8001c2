// The oracle's mirrors of the output, backup and VRRP tables: kept from the
// table service's journal of this process's writes, step by step, and
// loaded whole from the store after a restart (the end of smoothing may
// drop rows without a write of the service). Also what an entry matches.
#include <algorithm>
#include <cstdio>
#include <vector>

#include "platform/host/hnx_host.h"
#include "support/l3mac_oracle_model.h"

namespace oracle {

namespace {

mac6 mac_of(const PLibpub__Mac *m, bool *ok) {
    mac6 out{};
    *ok = m && m->data.len == 6 && m->data.data;
    if (*ok) std::copy(m->data.data, m->data.data + 6, out.begin());
    return out;
}

ent ent_of(const SRoute__L3macHwAttr *a, bool *ok) {
    ent e;
    e.evlan = a->evlan;
    e.mask = a->evlan_mask;
    e.type = a->mac_type;
    e.phyid = a->phyid;
    e.mac = mac_of(a->mac, ok);
    return e;
}

void hw_put(mirror *m, pos p, const ent &e, step_writes *w) {
    auto at = m->hw.find(p);
    if (at != m->hw.end()) {
        if (at->second == e) return;  // published again where it stood
        m->hw_by_mac[at->second.owner()].erase(at->second);
        if (w) w->entry_macs.insert(at->second.owner());
    }
    m->hw[p] = e;
    auto &mine = m->hw_by_mac[e.owner()];
    auto twin = mine.find(e);
    if (twin != mine.end() && twin->second != p && w) {
        char t[160];
        std::snprintf(t, sizeof t, "output rows %u/%u and %u/%u hold one entry %s", twin->second.first,
                      twin->second.second, p.first, p.second, ent_text(e).c_str());
        w->odd.push_back(t);
    }
    mine[e] = p;
}

void hw_drop(mirror *m, pos p, step_writes *w) {
    auto at = m->hw.find(p);
    if (at == m->hw.end()) return;  // may be gone with the end of smoothing
    if (w) w->entry_macs.insert(at->second.owner());
    auto &mine = m->hw_by_mac[at->second.owner()];
    mine.erase(at->second);
    if (mine.empty()) m->hw_by_mac.erase(at->second.owner());
    m->hw.erase(at);
}

void bak_put(mirror *m, const ent &e, uint32_t hw_id) {
    m->bak[e] = hw_id;
    m->bak_by_mac[e.owner()][e] = hw_id;
}

void bak_drop(mirror *m, const ent &e) {
    m->bak.erase(e);
    auto at = m->bak_by_mac.find(e.owner());
    if (at == m->bak_by_mac.end()) return;
    at->second.erase(e);
    if (at->second.empty()) m->bak_by_mac.erase(at);
}

void apply_hw(mirror *m, const hnx_tbl_write &wr, step_writes *w) {
    auto *r = s_route__l3mac_hw_res__unpack(nullptr, wr.row.size(), wr.row.data());
    if (!r || !r->index) {
        if (w) w->odd.push_back("an output row without its key");
    } else if (!wr.is_add) {
        hw_drop(m, {r->index->hw_id, r->index->phase}, w);
    } else if (!r->attr) {
        if (w) w->odd.push_back("an output row added without its entry");
    } else {
        bool ok;
        ent e = ent_of(r->attr, &ok);
        if (!ok && w) w->odd.push_back("an output row whose MAC is not 6 bytes");
        if (w) w->entry_macs.insert(e.owner());
        hw_put(m, {r->index->hw_id, r->index->phase}, e, w);
    }
    if (r) s_route__l3mac_hw_res__free_unpacked(r, nullptr);
}

void apply_bak(mirror *m, const hnx_tbl_write &wr, step_writes *w) {
    auto *r = s_route__l3mac_bak__unpack(nullptr, wr.row.size(), wr.row.data());
    if (!r || !r->index) {
        if (w) w->odd.push_back("a backup row without its entry");
    } else {
        bool ok;
        ent e = ent_of(r->index, &ok);
        if (!ok && w) w->odd.push_back("a backup row whose MAC is not 6 bytes");
        if (w) w->entry_macs.insert(e.owner());
        if (wr.is_add) bak_put(m, e, r->hw_id);
        else bak_drop(m, e);
    }
    if (r) s_route__l3mac_bak__free_unpacked(r, nullptr);
}

void apply_vrrp(mirror *m, const hnx_tbl_write &wr, step_writes *w) {
    auto *r = s_route__l3mac_vrrp_hw_res__unpack(nullptr, wr.row.size(), wr.row.data());
    if (!r || !r->index) {
        if (w) w->odd.push_back("a VRRP row without its entry");
    } else {
        bool ok;
        ent e = ent_of(r->index, &ok);
        if (!ok && w) w->odd.push_back("a VRRP row whose MAC is not 6 bytes");
        if (w) w->vrrp = true;
        if (wr.is_add) m->vrrp.insert(e);
        else m->vrrp.erase(e);
    }
    if (r) s_route__l3mac_vrrp_hw_res__free_unpacked(r, nullptr);
}

void apply_res(const hnx_tbl_write &wr, step_writes *w) {
    auto *r = s_route__l3mac_res__unpack(nullptr, wr.row.size(), wr.row.data());
    if (!wr.is_add) w->odd.push_back("the service deleted a row of the input table");
    else if (!r || !r->index || !r->index->uuid) w->odd.push_back("an input row without its key");
    else w->failed_rows.push_back({{r->index->t_user, r->index->uuid}, user_row_of(r)});
    if (r) s_route__l3mac_res__free_unpacked(r, nullptr);
}

void apply(mirror *m, const hnx_tbl_write &wr, step_writes *w) {
    if (wr.table == "s_route.l3mac_hw_res") apply_hw(m, wr, w);
    else if (wr.table == "s_route.l3mac_bak") apply_bak(m, wr, w);
    else if (wr.table == "s_route.l3mac_vrrp_hw_res") apply_vrrp(m, wr, w);
    else if (wr.table == "s_route.l3mac_res" && w) apply_res(wr, w);
}

}  // namespace

user_row user_row_of(const SRoute__L3macRes *row) {
    user_row u;
    u.status = static_cast<uint32_t>(row->status);
    if (!row->attr) return u;
    u.has_attr = true;
    u.match = row->attr->is_match_evlan;
    u.evlan = row->attr->evlan;
    u.type = static_cast<uint32_t>(row->attr->mac_type);
    u.phyid = row->attr->phyid;
    if (row->attr->mac) {
        u.mac_len = static_cast<int>(row->attr->mac->data.len);
        bool ok;
        u.mac = mac_of(row->attr->mac, &ok);
    }
    return u;
}

void mirror_load(mirror *m) {
    *m = mirror{};
    for (const char *t : {"s_route.l3mac_hw_res", "s_route.l3mac_bak", "s_route.l3mac_vrrp_hw_res"})
        for (const auto &bytes : hnx_host_tbl_rows(t)) apply(m, {t, true, bytes}, nullptr);
}

void mirror_apply_journal(mirror *m, step_writes *w) {
    for (const hnx_tbl_write &wr : hnx_host_tbl_journal()) apply(m, wr, w);
    hnx_host_tbl_journal_clear();
}

void mirror_forget_dropped(mirror *m, const mirror &after) {
    std::vector<pos> gone;
    for (const auto &[p, e] : m->hw) {
        auto now = after.hw.find(p);
        if (now == after.hw.end() || !(now->second == e)) gone.push_back(p);
    }
    for (pos p : gone) hw_drop(m, p, nullptr);
}

std::string mirror_diff(const mirror &a, const mirror &b) {
    std::string out;
    for (const auto &[p, e] : a.hw)
        if (!b.hw.count(p) || !(b.hw.at(p) == e))
            out += "  output " + std::to_string(p.first) + "/" + std::to_string(p.second) + " " +
                   ent_text(e) + " only in the first\n";
    for (const auto &[p, e] : b.hw)
        if (!a.hw.count(p) || !(a.hw.at(p) == e))
            out += "  output " + std::to_string(p.first) + "/" + std::to_string(p.second) + " " +
                   ent_text(e) + " only in the second\n";
    for (const auto &[e, id] : a.bak)
        if (!b.bak.count(e) || b.bak.at(e) != id)
            out += "  backup " + ent_text(e) + " at " + std::to_string(id) + " only in the first\n";
    for (const auto &[e, id] : b.bak)
        if (!a.bak.count(e) || a.bak.at(e) != id)
            out += "  backup " + ent_text(e) + " at " + std::to_string(id) + " only in the second\n";
    if (a.vrrp != b.vrrp) out += "  the VRRP rows differ\n";
    return out;
}

std::string cover_mismatch(const std::vector<ent> &es, const std::set<uint32_t> &want,
                           uint32_t space) {
    char t[200];
    for (const ent &e : es) {
        if (e.mask & ~space) {
            std::snprintf(t, sizeof t, "entry %s compares bits outside the space %#x",
                          ent_text(e).c_str(), space);
            return t;
        }
        // Every number the entry matches: its compared bits fixed, the
        // others running through all their values. The first stray ends it.
        const uint32_t base = e.evlan & e.mask, free_bits = space & ~e.mask;
        bool real = false;
        for (uint32_t sub = free_bits;; sub = (sub - 1) & free_bits) {
            const uint32_t v = base | sub;
            if (v != 0 && !want.count(v)) {
                std::snprintf(t, sizeof t, "entry %s matches %u, which nobody asked for",
                              ent_text(e).c_str(), v);
                return t;
            }
            real = real || v != 0;
            if (sub == 0) break;
        }
        if (!real) return "entry " + ent_text(e) + " stands for value 0 alone";
    }
    for (uint32_t v : want) {
        bool hit = false;
        for (const ent &e : es) hit = hit || ((v ^ e.evlan) & e.mask) == 0;
        if (!hit) return "no entry matches " + std::to_string(v);
    }
    return "";
}

std::string ent_text(const ent &e) {
    char t[120];
    std::snprintf(t, sizeof t, "{evlan %u mask %#x type %u mac ..:%02x phyid %u}", e.evlan, e.mask,
                  e.type, e.mac[5], e.phyid);
    return t;
}

std::string mac_text(const mac_key &k) {
    char t[80];
    std::snprintf(t, sizeof t, "MAC {type %u ..:%02x:%02x phyid %u}", k.type, k.mac[4], k.mac[5],
                  k.phyid);
    return t;
}

}  // namespace oracle
