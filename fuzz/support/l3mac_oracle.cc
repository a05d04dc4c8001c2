// The oracle's request model: the intake rules, the two paths, the MACs'
// VLAN sets and pending state, the direct-decision budgets, and what a
// decision round and a restart must leave in the tables. See l3mac_oracle.h.
#include "support/l3mac_oracle.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <deque>

#include "decision/l3mac_decision.h"
#include "platform/host/hnx_host.h"
#include "platform/ss_rt_tbl.h"
#include "platform/sw_res_comm.h"
#include "platform/sw_rt_res.h"
#include "request/l3mac_msg.h"
#include "support/fuzz_world.h"
#include "support/l3mac_oracle_model.h"

using namespace oracle;

namespace {

constexpr uint32_t kRequest = 1, kFailed = 3, kVrrp = 2, kOl = 1;

// What one round promises, fixed before its writes are looked at.
struct round_plan {
    bool ran = false;
    bool restart = false;
    std::set<mac_key> treated;
    std::array<bool, 2> sure{};  // the TCAM had room for every treated MAC
    std::map<mac_key, std::map<ent, uint32_t>> before;  // backup rows of each treated MAC
    std::map<mac_key, std::set<uint32_t>> old_bmp;
};

struct model {
    l3mac_caps caps;
    std::array<bool, 2> is_mng{}, pool{};
    std::array<uint32_t, 2> limit{};
    uint32_t vfi_mask = 1;   // all ones over the VFI space
    uint32_t vfi_space = 1;  // its low 16 bits, which cut the entries' masks
    uint32_t commom_max = 5, drv_max = 5, commom_cnt = 0, drv_cnt = 0;
    std::map<row_key, user_row> rows;
    std::map<req_key, req> live;
    std::map<mac_key, mac_state> macs;
    std::map<ent, int> direct;  // VRRP rows wanted, with their users
    bool direct_touched = false;  // the step bound or unbound a direct request
    mirror mir;
    round_plan plan;
    std::deque<std::string> history;
};
model M;

[[noreturn]] void fail(const std::string &what) {
    std::fprintf(stderr, "oracle: %s\n  board: %s\n  operations, oldest first:\n", what.c_str(),
                 l3mac_caps_json(M.caps).c_str());
    for (const std::string &h : M.history) std::fprintf(stderr, "    %s\n", h.c_str());
    std::abort();
}

void note(const std::string &op) {
    M.history.push_back(op);
    if (M.history.size() > 80) M.history.pop_front();
}

// --- the board --------------------------------------------------------------

uint32_t vfi_mask_of(int32_t evlan_num) {
    const int64_t n = std::max<int64_t>(0, int64_t{evlan_num} - 4096);
    uint64_t v = 1;
    for (int i = 0; i < 31 && (i == 0 || v < static_cast<uint64_t>(n)); i++) v *= 2;
    return static_cast<uint32_t>(v - 1);
}

void board_read() {
    M.is_mng = {M.caps.is_mng, M.caps.is_mng2};
    M.pool = {M.caps.is_mng, M.caps.is_mng2 && M.caps.tcam2_en};
    for (int t = 0; t < 2; t++) {
        // The pool's own figure: how the reserved size counts is the pool's.
        const sw_res_rm *rm = l3mac_ctx.tcam_rm[t];
        if (M.pool[t] != (rm != nullptr)) fail("a TCAM's index pool is missing or one too many");
        M.limit[t] = rm ? rm->limit : 0;
    }
    M.vfi_mask = vfi_mask_of(M.caps.evlan_num);
    M.vfi_space = M.vfi_mask & 0xFFFF;
    M.commom_max = 5;
    M.drv_max = static_cast<uint32_t>(M.caps.dec_cnt);
    M.commom_cnt = M.drv_cnt = 0;
}

int tcam_of(uint32_t type) {
    if (M.caps.copy_to_tcam2 && M.pool[1]) return 1;
    return type == kOl || type == 3 ? 1 : 0;
}

bool is_vfi(uint32_t type) { return type == kOl; }
uint32_t space_of(uint32_t type) { return is_vfi(type) ? M.vfi_space : 4095; }
uint32_t top_of(uint32_t type) { return is_vfi(type) ? 16383 : 4095; }

// --- intake -----------------------------------------------------------------

// The handler's result for a set message, and the request when it takes
// one. A refusal also tells its failure code and first data word.
struct refusal {
    int code = 0;
    int32_t data1 = 0;
};

int intake_set(uint32_t t_user, const user_row &r, bool *takes, req *out, refusal *why) {
    *takes = false;
    const uint32_t user = t_user & 0xFF, type = r.type & 0xFF;
    const int32_t evlan = static_cast<int32_t>(r.evlan);
    if (!r.has_attr) return *why = {122, 0}, -11;
    if (user < 1 || user > 41) return *why = {126, static_cast<int32_t>(user)}, -4;
    if (type >= 5) return *why = {53, static_cast<int32_t>(type)}, -4;
    const int tcam = tcam_of(type);
    if (tcam == 1 && !M.caps.tcam2_en) return *why = {53, static_cast<int32_t>(type)}, -4;
    if (M.caps.is_mng && r.evlan >= 4096 && type != kOl) return *why = {53, evlan}, -4;
    if (M.caps.is_mng2 && r.evlan >= 8192 && type == kOl) return *why = {53, evlan}, -4;
    if ((r.status & 0xFF) != kRequest) return 0;
    // A number with no bit in a MAC's set can never be placed; where the
    // board's flags leave the range test off, the managed path refuses it
    // before anything changes.
    if (M.is_mng[tcam] && r.evlan >= 16384) return *why = {53, evlan}, -4;
    *takes = true;
    out->managed = M.is_mng[tcam];
    out->type = type;
    out->mac = r.mac_len == 6 ? r.mac : mac6{};
    out->evlan = r.evlan;
    out->phyid = r.phyid;
    out->match = r.match;
    return 0;
}

req_key live_key(uint32_t t_user, const std::string &uuid) {
    return {t_user & 0xFF, uuid.substr(0, 127)};
}

// A number the service can know nothing certain about: no bit in the MAC's
// set, or a VFI beyond the board's VFI space, whose entries' masks are cut
// to that space and which the restore refuses.
bool opaque(uint32_t type, uint32_t evlan) {
    return evlan >= 16384 || (is_vfi(type) && evlan >= M.vfi_mask && evlan < top_of(type));
}

// The numbers the cover search reads for a MAC: 1 to the top value minus 1.
std::set<uint32_t> wanted(const mac_key &k, const mac_state &ms, bool *unknown) {
    std::set<uint32_t> w;
    for (const req_key &u : ms.users) {
        const uint32_t v = M.live.at(u).evlan;
        if (opaque(k.type, v)) *unknown = true;
        else if (v >= 1 && v < top_of(k.type)) w.insert(v);
    }
    return w;
}

std::set<uint32_t> bits_of(const mac_state &ms) {
    std::set<uint32_t> b;
    for (const req_key &u : ms.users)
        if (M.live.at(u).evlan < 16384) b.insert(M.live.at(u).evlan);
    return b;
}

// --- the two paths ----------------------------------------------------------

void unbind(const req_key &k) {
    auto at = M.live.find(k);
    if (at == M.live.end()) return;
    const req &r = at->second;
    if (r.managed) {
        mac_state &ms = M.macs[r.owner()];
        ms.users.erase(k);
        ms.dirty = true;
    } else if (--M.direct[r.direct()] == 0) {
        M.direct.erase(r.direct());
    }
    M.direct_touched |= !r.managed;
    M.live.erase(at);
}

void bind(const req_key &k, const req &r) {
    M.live[k] = r;
    if (r.managed) {
        mac_state &ms = M.macs[r.owner()];
        ms.users.insert(k);
        ms.dirty = true;
    } else {
        M.direct[r.direct()]++;
        M.direct_touched = true;
    }
}

// --- rounds -----------------------------------------------------------------

bool anything_pending() {
    for (const auto &[k, ms] : M.macs)
        if (ms.dirty) return true;
    return false;
}

// A round treats every pending MAC. Whether a TCAM has room for all of them
// is known for sure only when it would have room for covers of one entry
// per wanted number, which no cover exceeds (each entry is the only one to
// match some number of its own): then every MAC is placed. Otherwise which
// MACs fail depends on the covers and the order of the pending list, and
// only the weaker promise holds: each MAC is placed exactly or keeps the
// entries it had.
void plan_round(const std::map<mac_key, std::map<ent, uint32_t>> &held, bool restart) {
    round_plan &p = M.plan;
    p = round_plan{};
    p.ran = true;
    p.restart = restart;
    std::array<uint64_t, 2> need{};
    std::array<bool, 2> unknown{};
    for (auto &[k, ms] : M.macs) {
        if (!ms.dirty) continue;
        p.treated.insert(k);
        bool unk = false;
        need[tcam_of(k.type)] += wanted(k, ms, &unk).size();
        unknown[tcam_of(k.type)] |= unk;
        p.old_bmp[k] = ms.bmp;
        auto h = held.find(k);
        p.before[k] = h == held.end() ? std::map<ent, uint32_t>{} : h->second;
        ms.dirty = false;
    }
    for (const auto &[k, es] : held)
        if (!p.treated.count(k)) need[tcam_of(k.type)] += es.size();
    for (int t = 0; t < 2; t++) p.sure[t] = !unknown[t] && need[t] <= M.limit[t];
}

void round_now(bool restart = false) { plan_round(M.mir.bak_by_mac, restart); }

std::vector<ent> out_entries(const mac_key &k) {
    std::vector<ent> es;
    auto at = M.mir.hw_by_mac.find(k);
    if (at != M.mir.hw_by_mac.end())
        for (const auto &[e, p] : at->second) es.push_back(e);
    return es;
}

std::map<ent, uint32_t> bak_entries(const mac_key &k) {
    auto at = M.mir.bak_by_mac.find(k);
    return at == M.mir.bak_by_mac.end() ? std::map<ent, uint32_t>{} : at->second;
}

// Output rows that have their backup row; all of them unless the end of a
// restart's smoothing took the rows of a MAC that found no room.
std::string out_vs_bak(const mac_key &k, bool subset_only) {
    const std::map<ent, uint32_t> bak = bak_entries(k);
    const std::vector<ent> out = out_entries(k);
    for (const ent &e : out)
        if (!bak.count(e)) return "output entry " + ent_text(e) + " has no backup row";
    if (!subset_only && out.size() != bak.size())
        return "a backup row of " + mac_text(k) + " has no output row";
    return "";
}

// The users that a failed MAC of type L3MAC_VRRP tells: those whose VLAN
// was not in the set of the MAC's last round.
void expect_failed_rows(const mac_key &k, const mac_state &ms, std::map<req_key, req> *due) {
    if (k.type != kVrrp) return;
    const std::set<uint32_t> &old = M.plan.old_bmp[k];
    for (const req_key &u : ms.users) {
        const req &r = M.live.at(u);
        if (!old.count(r.evlan)) (*due)[u] = r;
    }
}

void check_failed_rows(const step_writes &w, const std::map<req_key, req> &due) {
    std::set<req_key> seen;
    for (const auto &[key, row] : w.failed_rows) {
        auto at = due.find(key);
        if (at == due.end())
            fail("a STATUS_FAILED row for user " + std::to_string(key.first) + " " + key.second +
                 ", whose VLAN has room or was served before");
        const req &r = at->second;
        user_row want{true, kFailed, r.match, r.evlan, r.type, 0, 6, r.mac};
        if (!(row == want)) fail("the STATUS_FAILED row of " + key.second + " does not hold its request");
        seen.insert(key);
        M.rows[key] = row;
    }
    for (const auto &[key, r] : due)
        if (!seen.count(key))
            fail("no STATUS_FAILED row for user " + std::to_string(key.first) + " " + key.second +
                 " of a L3MAC_VRRP MAC that found no room");
}

// Judges one treated MAC after its round: placed exactly, or (without the
// certainty of room) kept as it was. Returns whether it failed.
bool judge_mac(const mac_key &k, mac_state &ms, bool sure) {
    bool unk = false;
    const std::set<uint32_t> want = wanted(k, ms, &unk);
    if (unk) return false;  // the service's choice; the consistency check covers it
    const std::string miss = cover_mismatch(out_entries(k), want, space_of(k.type));
    const std::string pair = out_vs_bak(k, false);
    if (miss.empty() && pair.empty()) return false;
    const bool kept = bak_entries(k) == M.plan.before[k] && out_vs_bak(k, true).empty();
    if (!sure && kept && !want.empty()) return true;
    fail(mac_text(k) + " after its round: " + (miss.empty() ? pair : miss) +
         (sure ? " (its TCAM had room for all)" : " (and its old entries were not kept)"));
}

// A MAC may fail only for want of room: at its last test its change was
// above what the pool had free, and the pool only filled further after it.
// Its cover has at most one entry per wanted number, so a MAC that could
// have grown to that many entries within the room left at the end of the
// round was refused wrongly.
void check_fail_was_full(const std::map<mac_key, size_t> &failed,
                         const std::array<uint64_t, 2> &held) {
    for (const auto &[k, want] : failed) {
        const int t = tcam_of(k.type);
        const uint64_t room = M.limit[t] - std::min<uint64_t>(held[t], M.limit[t]);
        if (want <= room + M.plan.before[k].size())
            fail(mac_text(k) + " found no room for " + std::to_string(want) +
                 " wanted numbers, holding " + std::to_string(M.plan.before[k].size()) +
                 " entries, with " + std::to_string(room) + " free in its TCAM");
    }
}

// Everything that a round promised, once its writes are in the mirrors.
void check_round(const step_writes &w) {
    std::map<req_key, req> due;
    std::map<mac_key, size_t> failed_macs;
    for (const mac_key &k : M.plan.treated) {
        auto at = M.macs.find(k);
        mac_state empty;
        mac_state &ms = at == M.macs.end() ? empty : at->second;
        const bool failed = judge_mac(k, ms, M.plan.sure[tcam_of(k.type)]);
        if (failed) {
            expect_failed_rows(k, ms, &due);
            bool unk = false;
            failed_macs[k] = wanted(k, ms, &unk).size();
        }
        ms.failed = failed;
        ms.stale_out = failed ? (ms.stale_out || M.plan.restart) : false;
        ms.bmp = bits_of(ms);
        if (at != M.macs.end() && ms.users.empty() && bak_entries(k).empty()) M.macs.erase(at);
    }
    check_failed_rows(w, due);
    // However full, a pool never holds more than its limit.
    std::array<uint64_t, 2> held{};
    for (const auto &[k, es] : M.mir.bak_by_mac) held[tcam_of(k.type)] += es.size();
    for (int t = 0; t < 2; t++)
        if (held[t] > M.limit[t])
            fail("TCAM " + std::to_string(t) + " holds " + std::to_string(held[t]) +
                 " entries, above its limit " + std::to_string(M.limit[t]));
    check_fail_was_full(failed_macs, held);
}

// --- one step ---------------------------------------------------------------

void check_direct() {
    std::set<ent> want;
    for (const auto &[e, n] : M.direct) want.insert(e);
    if (want == M.mir.vrrp) return;
    for (const ent &e : want)
        if (!M.mir.vrrp.count(e)) fail("no VRRP row for a request of the direct path: " + ent_text(e));
    for (const ent &e : M.mir.vrrp)
        if (!want.count(e)) fail("a VRRP row that no request wants: " + ent_text(e));
}

// The writes of the step against what the model did in it.
void finish_step() {
    step_writes w;
    mirror_apply_journal(&M.mir, &w);
    if (!w.odd.empty()) fail(w.odd.front());
    for (const mac_key &k : w.entry_macs)
        if (!M.plan.ran || !M.plan.treated.count(k))
            fail("entries of " + mac_text(k) + " were written, but no round treated it");
    if (M.plan.ran) check_round(w);
    else if (!w.failed_rows.empty()) fail("a STATUS_FAILED row outside a round");
    M.plan = round_plan{};
    if (w.vrrp || M.direct_touched) check_direct();
    M.direct_touched = false;
}

void expect_rv(int rv, int want, const char *what) {
    if (rv != want)
        fail(std::string(what) + " returned " + std::to_string(rv) + ", expected " +
             std::to_string(want));
}

// The failure counters of a handler's refusal: the code's slot counts
// once more and holds the refusal's first data word, and no other
// intake slot moves; nor does any for a row that is only ignored.
struct counts_before {
    static constexpr int kCodes[] = {53, 122, 126, 135};
    std::array<uint32_t, 4> n{};
    counts_before() {
        for (size_t i = 0; i < n.size(); i++) n[i] = g_sw_rt_res_ss_err_cnt[kCodes[i]].count;
    }
    void expect(const refusal &why) const {
        for (size_t i = 0; i < n.size(); i++) {
            const sw_rt_res_err_slot &slot = g_sw_rt_res_ss_err_cnt[kCodes[i]];
            const uint32_t want = n[i] + (why.code == kCodes[i]);
            if (slot.count != want)
                fail("failure counter " + std::to_string(kCodes[i]) + " counted " +
                     std::to_string(slot.count - n[i]) + " times, expected " +
                     std::to_string(want - n[i]));
            if (why.code == kCodes[i] && slot.data1 != why.data1)
                fail("failure counter " + std::to_string(why.code) + " holds data1 " +
                     std::to_string(slot.data1) + ", expected " + std::to_string(why.data1));
        }
    }
};

// The add's own round, while the budget of its mac_type lasts.
void add_budget(const req &r) {
    uint32_t &cnt = r.type == kVrrp ? M.drv_cnt : M.commom_cnt;
    const uint32_t max = r.type == kVrrp ? M.drv_max : M.commom_max;
    if (cnt >= max) return;
    cnt++;
    round_now();
}

std::string row_text(const char *op, const SRoute__L3macRes *row, const user_row &u) {
    char t[200];
    std::snprintf(t, sizeof t, "%s t_user %u uuid %s status %u attr %d type %u evlan %u mac %d:%02x phyid %u",
                  op, row->index->t_user, row->index->uuid, u.status, u.has_attr, u.type, u.evlan,
                  u.mac_len, u.mac[5], u.phyid);
    return t;
}

// The requests that the input table gives a service that starts now.
std::map<req_key, req> requests_of_table() {
    std::map<req_key, req> out;
    for (const auto &[key, row] : M.rows) {
        bool takes;
        req r;
        refusal why;
        intake_set(key.first, row, &takes, &r, &why);
        if (takes) out[live_key(key.first, key.second)] = r;
    }
    return out;
}

bool settled_and_served() {
    for (const auto &[k, ms] : M.macs) {
        bool unk = false;
        wanted(k, ms, &unk);
        if (ms.dirty || ms.failed || ms.stale_out || unk) return false;
    }
    return requests_of_table() == M.live;
}

// A restart of the same requests that were all placed changes nothing: the
// same entries at the same indexes, published again and nothing removed.
void check_same_after_restart(const mirror &before, const std::vector<hnx_tbl_write> &writes) {
    const std::string d = mirror_diff(before, M.mir);
    if (!d.empty()) fail("a restart with unchanged requests changed the tables:\n" + d);
    for (const hnx_tbl_write &wr : writes)
        if ((wr.table == "s_route.l3mac_hw_res" || wr.table == "s_route.l3mac_bak") && !wr.is_add)
            fail("a restart with unchanged requests deleted a row of " + wr.table);
}

}  // namespace

void l3mac_oracle_start(const l3mac_caps &caps) {
    M.rows.clear();
    M.live.clear();
    M.macs.clear();
    M.direct.clear();
    M.history.clear();
    M.plan = round_plan{};
    M.caps = caps;
    fuzz_world_journal(true);  // the mirror follows the writes through it
    fuzz_world_start(l3mac_caps_json(caps));
    board_read();
    mirror_load(&M.mir);
    hnx_host_tbl_journal_clear();
    if (!M.mir.hw.empty() || !M.mir.bak.empty() || !M.mir.vrrp.empty())
        fail("a fresh store holds rows");
}

void l3mac_oracle_set(const SRoute__L3macRes *row) {
    const user_row u = user_row_of(row);
    note(row_text("set", row, u));
    ss_rt_tbl_add_str(l3mac_ctx.tbl_res, &row->base, 0, 0);
    hnx_host_tbl_journal_clear();
    const counts_before counts;
    const int rv = l3mac_set_msg_proc(row);
    M.rows[{row->index->t_user, row->index->uuid}] = u;
    bool takes;
    req r;
    refusal why;
    expect_rv(rv, intake_set(row->index->t_user, u, &takes, &r, &why), "the set handler");
    if (!takes) counts.expect(why);  // a round may count its own failures
    if (takes) {
        const req_key k = live_key(row->index->t_user, row->index->uuid);
        unbind(k);
        bind(k, r);
        if (r.managed) add_budget(r);
    }
    finish_step();
}

void l3mac_oracle_del(const SRoute__L3macRes *row) {
    note(row_text("del", row, user_row_of(row)));
    ss_rt_tbl_del_str(l3mac_ctx.tbl_res, &row->base, 0, 0);
    hnx_host_tbl_journal_clear();
    const counts_before counts;
    const int rv = l3mac_del_msg_proc(row);
    M.rows.erase({row->index->t_user, row->index->uuid});
    const uint32_t user = row->index->t_user & 0xFF;
    const req_key k = live_key(row->index->t_user, row->index->uuid);
    if (user < 1 || user > 41) {
        expect_rv(rv, -4, "the delete handler");
        counts.expect({126, static_cast<int32_t>(user)});
    } else if (!M.live.count(k)) {
        expect_rv(rv, -7, "the delete handler");
        counts.expect({135, static_cast<int32_t>(user)});
    } else {
        expect_rv(rv, 0, "the delete handler");
        unbind(k);
    }
    finish_step();
}

void l3mac_oracle_tick() {
    note("tick");
    M.commom_cnt = M.drv_cnt = 0;
    const bool due = anything_pending();
    l3mac_decision_timer(nullptr);
    if (due) round_now();
    finish_step();
}

void l3mac_oracle_decide() {
    note("decide");
    sw_l3mac_mac_decision();
    round_now();
    finish_step();
}

void l3mac_oracle_limits(uint32_t commom, uint32_t drv) {
    note("limits commom " + std::to_string(commom) + " drv " + std::to_string(drv));
    l3mac_commom_decision_counter = M.commom_max = commom;
    l3mac_ctx.drv_decision_max_counter = M.drv_max = drv;
}

void l3mac_oracle_restart() {
    note("restart");
    mirror stored;
    mirror_load(&stored);
    const std::string d = mirror_diff(M.mir, stored);
    if (!d.empty()) fail("the tables hold what the service's writes did not make:\n" + d);
    const bool same = settled_and_served();
    const mirror before = M.mir;

    fuzz_world_restart();
    const std::vector<hnx_tbl_write> writes = hnx_host_tbl_journal();
    board_read();
    // The process kept nothing: requests come back from the input table,
    // entries from the backup table, every MAC of either waits for the
    // first round, and no MAC remembers a VLAN set.
    M.live = requests_of_table();
    M.macs.clear();
    M.direct.clear();
    for (const auto &[k, r] : M.live) {
        bind(k, r);
        // The scan's adds use the budget like any other, although their
        // rounds wait for the end of smoothing.
        if (!r.managed) continue;
        if (r.type == kVrrp) M.drv_cnt = std::min(M.drv_cnt + 1, M.drv_max);
        else M.commom_cnt = std::min(M.commom_cnt + 1, M.commom_max);
    }
    for (const auto &[k, es] : before.bak_by_mac) M.macs[k].dirty = true;
    plan_round(before.bak_by_mac, true);
    mirror_load(&M.mir);
    step_writes w;
    {
        mirror scratch = before;  // only to sort the smoothing's writes out
        mirror_forget_dropped(&scratch, M.mir);
        mirror_apply_journal(&scratch, &w);
    }
    if (!w.odd.empty()) fail(w.odd.front());
    check_round(w);
    M.plan = round_plan{};
    check_direct();
    M.direct_touched = false;
    if (same) check_same_after_restart(before, writes);
}
