// The rules between the four tables: the requests of the input table as the
// service reads them, the entries of the output and backup tables, and the
// rows of the direct path.
#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <map>
#include <set>
#include <tuple>

#include "decision/l3mac_mask.h"
#include "check/l3mac_check.h"
#include "check/l3mac_check_intake.h"
#include "check/l3mac_check_model.h"

namespace {

constexpr uint32_t kOl = 1;             // L3MAC_OL
constexpr uint32_t kStatusRequest = 1;  // STATUS_REQUEST
constexpr uint32_t kStatusFailed = 3;   // STATUS_FAILED

// --- requests ---------------------------------------------------------------

using l3mac_req_key = std::pair<uint32_t, std::string>;

l3mac_req_key l3mac_check_key_of(const l3mac_check_res &r) {
    return {r.t_user & 0xFF, r.uuid.substr(0, 127)};
}

void l3mac_check_want(l3mac_check_model *m, const l3mac_check_res &r, bool need,
                      const l3mac_check_board &b) {
    const uint32_t type = r.mac_type & 0xFF;
    if (!need && (r.status & 0xFF) == kStatusFailed) {
        m->failed[{static_cast<uint8_t>(type), r.mac}].insert(r.evlan);
        return;
    }
    if (l3mac_check_managed(b, type)) {
        l3mac_check_wanted &w = m->macs[{static_cast<uint8_t>(type), r.mac, r.phyid}];
        (need ? w.need : w.may).insert(r.evlan);
        return;
    }
    const l3mac_direct_key k{r.evlan, type, r.mac};
    if (need) m->direct_need[k]++;
    else m->direct_may.insert(k);
}

// A row is acted on when the checks pass, it is a request, and no other
// row reads as the same key (user in one byte, uuid cut at 127); of such
// aliases the service holds whichever it read last. A row that the service
// marked failed may stand for a user that it still holds: it writes the
// mark in a round, also in the first round after a start, and keeps the
// user. Any other row asks for nothing. A running service does keep what
// the key of a refused or idle row asked before, but the tables are judged
// against the input table as it stands: an entry that only such a row can
// explain is one that the switch forwards with and nobody wants now.
void l3mac_check_requests(const l3mac_check_rows &rows, const l3mac_check_board &b,
                          l3mac_check_model *m, l3mac_check_report *rep) {
    std::map<l3mac_req_key, int> seen;
    for (const l3mac_check_res &r : rows.res)
        if (r.has_index) seen[l3mac_check_key_of(r)]++;
    for (const l3mac_check_res &r : rows.res) {
        const std::string why = l3mac_check_refusal(r, b);
        // A key whose user the check refuses never had a request.
        if (!why.empty() && l3mac_check_user_ok(r)) m->untaken.emplace_back(&r, why);
        if (!l3mac_check_refused(r, b).empty()) {
            m->refused++;
            continue;
        }
        const bool request = (r.status & 0xFF) == kStatusRequest;
        const bool failed = (r.status & 0xFF) == kStatusFailed;
        const bool alias = seen[l3mac_check_key_of(r)] > 1;
        if (request && !alias) {
            l3mac_check_want(m, r, true, b);
            (l3mac_check_managed(b, r.mac_type & 0xFF) ? rep->managed_requests
                                                       : rep->direct_requests)++;
        } else if (request || failed) {
            l3mac_check_want(m, r, false, b);
        }
        if (alias) m->aliases++;
    }
    if (m->aliases) rep->note("%u input rows share their key with another row", m->aliases);
}

// --- output and backup ---------------------------------------------------

struct l3mac_placed_at {
    int tcam;
    uint32_t idx;
};

std::string l3mac_check_entry_text(const l3mac_check_hw &e) {
    char buf[128];
    std::snprintf(buf, sizeof buf, "%s evlan %u mask %#x", l3mac_check_mac_text(
                      {static_cast<uint8_t>(e.mac_type), e.mac, e.phyid}).c_str(),
                  e.evlan, e.evlan_mask);
    return buf;
}

// One output row: its entry, its place, and the TCAM it belongs to.
bool l3mac_check_output_row(const l3mac_check_hw &e, const l3mac_check_board &b,
                            l3mac_check_report *rep, l3mac_placed_at *at) {
    if (!e.has_attr || !e.mac_ok) {
        rep->violation("output row hw_id %u phase %u holds no whole entry", e.hw_id, e.phase);
        return false;
    }
    auto what = [&e] { return l3mac_check_entry_text(e); };  // for a line that reports
    at->tcam = l3mac_check_tcam_of(b, e.mac_type);
    at->idx = l3mac_check_idx_of(b, at->tcam, e.hw_id, e.phase);
    if (e.phase != (e.mac_type == kOl ? 1u : 0u))
        rep->violation("output row hw_id %u: %s has phase %u", e.hw_id, what().c_str(), e.phase);
    if (!l3mac_check_managed(b, e.mac_type) || !b.pool[at->tcam])
        rep->violation("output row hw_id %u: %s belongs to TCAM %d, which the service does "
                       "not manage", e.hw_id, what().c_str(), at->tcam);
    if (b.cap[at->tcam] <= 0 || at->idx >= static_cast<uint32_t>(b.cap[at->tcam]))
        rep->violation("output row hw_id %u: %s stands at index %u of TCAM %d, whose "
                       "capacity is %d", e.hw_id, what().c_str(), at->idx, at->tcam,
                       b.cap[at->tcam]);
    return true;
}

void l3mac_check_output(const l3mac_check_rows &rows, const l3mac_check_board &b,
                        l3mac_check_model *m, l3mac_check_report *rep) {
    // Rows by place; their text is made only for a line that reports them.
    std::map<std::pair<int, uint32_t>, const l3mac_check_hw *> taken;
    for (const l3mac_check_hw &e : rows.hw_res) {
        l3mac_placed_at at;
        if (!l3mac_check_output_row(e, b, rep, &at)) continue;
        auto what = [&e] { return l3mac_check_entry_text(e); };
        auto [it, fresh] = taken.emplace(std::make_pair(at.tcam, at.idx), &e);
        if (!fresh)
            rep->violation("TCAM %d index %u holds two entries: %s and %s", at.tcam, at.idx,
                           l3mac_check_entry_text(*it->second).c_str(), what().c_str());
        const l3mac_mac_key mk{static_cast<uint8_t>(e.mac_type), e.mac, e.phyid};
        if (!m->placed[mk].emplace(e.evlan, e.evlan_mask).second)
            rep->violation("%s stands at two indexes of the output table", what().c_str());
        m->output[{mk, e.evlan, e.evlan_mask}] = at.idx;
        rep->fill[at.tcam]++;
    }
}

// Both tables describe the same entries at the same indexes.
void l3mac_check_backup(const l3mac_check_rows &rows, const l3mac_check_board &b,
                        const l3mac_check_model &m, l3mac_check_report *rep) {
    std::set<std::pair<int, uint32_t>> taken;
    std::set<l3mac_entry_key> backed;
    for (const l3mac_check_hw &e : rows.bak) {
        if (!e.has_attr) {
            rep->violation("backup row hw_id %u holds no entry", e.hw_id);
            continue;
        }
        auto what = [&e] { return l3mac_check_entry_text(e); };
        const int tcam = l3mac_check_tcam_of(b, e.mac_type);
        if (!taken.emplace(tcam, e.hw_id).second)
            rep->violation("backup rows of TCAM %d share index %u: %s", tcam, e.hw_id,
                           what().c_str());
        const l3mac_entry_key k{{static_cast<uint8_t>(e.mac_type), e.mac, e.phyid}, e.evlan,
                                e.evlan_mask};
        backed.insert(k);
        auto out = m.output.find(k);
        if (out == m.output.end())
            rep->violation("backup row of %s at index %u has no output row", what().c_str(),
                           e.hw_id);
        else if (out->second != e.hw_id)
            rep->violation("%s stands at index %u in the output table and %u in the backup",
                           what().c_str(), out->second, e.hw_id);
    }
    for (const auto &[k, idx] : m.output)
        if (!backed.count(k))
            rep->violation("output entry %s evlan %u mask %#x at index %u has no backup row",
                           l3mac_check_mac_text(k.mac).c_str(), k.evlan, k.evlan_mask, idx);
}

// --- the direct path ------------------------------------------------------

void l3mac_check_direct(const l3mac_check_rows &rows, const l3mac_check_board &b,
                        const l3mac_check_model &m, l3mac_check_report *rep) {
    std::set<l3mac_direct_key> rowed;
    for (const l3mac_check_hw &e : rows.vrrp) {
        rep->direct_rows++;
        const l3mac_direct_key k{e.evlan, e.mac_type, e.mac};
        const std::string what = l3mac_check_direct_text(k);
        if (!e.has_attr || !e.mac_ok || e.evlan_mask != 0 || e.phyid != 0)
            rep->violation("direct row %s is malformed (mask %#x, phyid %u)", what.c_str(),
                           e.evlan_mask, e.phyid);
        if (l3mac_check_managed(b, e.mac_type))
            rep->violation("direct row %s belongs to a managed TCAM", what.c_str());
        rowed.insert(k);
        if (m.direct_need.count(k) || m.direct_may.count(k)) continue;
        const std::string from = l3mac_check_untaken_text(m, e.mac, [&](const l3mac_check_res &r) {
            return (r.mac_type & 0xFF) == e.mac_type && r.mac == e.mac && r.evlan == e.evlan;
        });
        rep->violation("direct row %s stands for no request: no standing input row asks for "
                       "it%s", what.c_str(), from.c_str());
    }
    for (const auto &[k, n] : m.direct_need)
        if (!rowed.count(k))
            rep->violation("%d direct requests of %s have no row", n,
                           l3mac_check_direct_text(k).c_str());
}

}  // namespace

void l3mac_check_tables(const l3mac_check_rows &rows, const l3mac_check_board &b,
                        const l3mac_check_opts &opts, l3mac_check_report *rep) {
    l3mac_check_model m;
    rep->limit = b.limit;
    // The rules are the same for a service that has just started: that
    // changes only how an entry left for a row it does not take came to be.
    m.restarted = opts.restarted;
    l3mac_check_requests(rows, b, &m, rep);
    l3mac_check_output(rows, b, &m, rep);
    l3mac_check_backup(rows, b, m, rep);
    l3mac_check_macs(b, m, rep);
    l3mac_check_direct(rows, b, m, rep);
    for (int t = 0; t < 2; t++)
        if (rep->fill[t] > b.limit[t])
            rep->violation("TCAM %d holds %u entries, above its limit %u", t, rep->fill[t],
                           b.limit[t]);
}
