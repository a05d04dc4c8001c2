// The workloads: which users ask for which MAC on which VLANs or VFIs.
#include <algorithm>
#include <random>
#include <set>

#include "load.h"
#include "s_route.pb-c.h"

namespace {

constexpr uint32_t kMaxVlan = 4094;

load_req req(uint32_t user, std::string uuid, uint64_t mac, uint32_t vlan, uint32_t type) {
    load_req r;
    r.user = user;
    r.uuid = std::move(uuid);
    for (int i = 0; i < 6; i++) r.mac[i] = uint8_t(mac >> (8 * (5 - i)));
    r.vlan = vlan;
    r.mac_type = type;
    return r;
}

// One router MAC on every VLAN, one L3 interface per VLAN.
void l3intf(std::vector<load_req> &out) {
    for (uint32_t v = 1; v <= kMaxVlan; v++)
        out.push_back(req(S_ROUTE__L3TABLE_USER_E__L3TABLE_L3INTF, "l3intf-" + std::to_string(v),
                          0x001122334455ull, v, S_ROUTE__L3MAC_TYPE_E__L3MAC_NORMAL));
}

// 254 VRRP groups, group XX on 1 to 4 VLANs of its own.
void vrrp(std::vector<load_req> &out) {
    for (uint32_t g = 1; g <= 254; g++)
        for (uint32_t k = 0; k <= g % 4; k++)
            out.push_back(req(S_ROUTE__L3TABLE_USER_E__L3TABLE_BASIC,
                              "vrrp-" + std::to_string(g) + "-" + std::to_string(k),
                              0x00005e000100ull + g, 16 * g + k, S_ROUTE__L3MAC_TYPE_E__L3MAC_VRRP));
}

// A peer MAC on ranges of VLANs, overlay requests on VFIs, random sets.
void extras(std::vector<load_req> &out, std::mt19937 &rng) {
    const std::pair<uint32_t, uint32_t> ranges[] = {{100, 199}, {1000, 1999}, {3000, 3099}};
    for (auto [lo, hi] : ranges)
        for (uint32_t v = lo; v <= hi; v++)
            out.push_back(req(S_ROUTE__L3TABLE_USER_E__L3TABLE_L2VPN, "peer-" + std::to_string(v),
                              0x001122334466ull, v, S_ROUTE__L3MAC_TYPE_E__L3MAC_NORMAL));
    for (uint32_t f = 1; f <= 2000; f++)
        out.push_back(req(S_ROUTE__L3TABLE_USER_E__L3TABLE_VXLAN, "vfi-" + std::to_string(f),
                          0x001122334477ull, f, S_ROUTE__L3MAC_TYPE_E__L3MAC_OL));
    std::uniform_int_distribution<uint32_t> vlan(1, kMaxVlan);
    for (uint32_t m = 1; m <= 16; m++) {
        std::set<uint32_t> set;
        while (set.size() < 64) set.insert(vlan(rng));
        for (uint32_t v : set)
            out.push_back(req(S_ROUTE__L3TABLE_USER_E__L3TABLE_UC,
                              "rnd-" + std::to_string(m) + "-" + std::to_string(v),
                              0x020000000000ull + m, v, S_ROUTE__L3MAC_TYPE_E__L3MAC_NORMAL));
    }
}

// N requests spread over M MACs, each MAC on N/M random VLANs.
void scale(std::vector<load_req> &out, const load_opts &o, std::mt19937 &rng) {
    int macs = o.macs > 0 ? o.macs : 1;
    size_t per = std::min<size_t>(size_t(o.requests) / size_t(macs), kMaxVlan);
    std::uniform_int_distribution<uint32_t> vlan(1, kMaxVlan);
    for (int m = 0; m < macs; m++) {
        std::set<uint32_t> set;
        while (set.size() < per) set.insert(vlan(rng));
        for (uint32_t v : set)
            out.push_back(req(S_ROUTE__L3TABLE_USER_E__L3TABLE_UC,
                              "s-" + std::to_string(m) + "-" + std::to_string(v),
                              0x040000000000ull + uint64_t(m), v,
                              S_ROUTE__L3MAC_TYPE_E__L3MAC_NORMAL));
    }
}

// Both TCAMs exactly full: 1024 router MACs on the first, 1024 overlay MACs
// on the second (L3MAC_OL, VFI numbers), four entries each. Each MAC asks
// for four blocks of 4 or 8 numbers in the 8-number slots 3, 5, 6 and 9 of
// a 128-number window: slots that differ in two bits or more never merge
// into a larger value/mask pair, and no member is a power of two, which
// would pair with value 0, so each block is one entry. Enough blocks are
// of 8 to make --requests in all, within 32 768 to 65 536.
void scale2(std::vector<load_req> &out, const load_opts &o) {
    constexpr uint32_t kMacs = 2048, kBlocks = 4 * kMacs;
    static const uint32_t slot[4] = {3, 5, 6, 9};
    const uint32_t n = std::clamp<uint32_t>(uint32_t(std::max(o.requests, 0)), 4 * kBlocks, 8 * kBlocks);
    const uint32_t large = (n - 4 * kBlocks) / 4;
    for (uint32_t m = 0; m < kMacs; m++) {
        const bool ol = m >= kMacs / 2;
        const uint32_t base = 128 * (1 + m % 30);
        for (uint32_t j = 0; j < 4; j++) {
            const uint32_t b = 4 * m + j;
            const uint32_t size = (b + 1) * large / kBlocks != b * large / kBlocks ? 8 : 4;
            for (uint32_t v = base + 8 * slot[j]; v < base + 8 * slot[j] + size; v++)
                out.push_back(req(ol ? S_ROUTE__L3TABLE_USER_E__L3TABLE_VXLAN : S_ROUTE__L3TABLE_USER_E__L3TABLE_L3INTF,
                                  "s2-" + std::to_string(m) + "-" + std::to_string(v),
                                  0x080000000000ull + m, v,
                                  ol ? S_ROUTE__L3MAC_TYPE_E__L3MAC_OL : S_ROUTE__L3MAC_TYPE_E__L3MAC_NORMAL));
        }
    }
}

}  // namespace

std::vector<load_req> load_make(const std::string &w, const load_opts &o) {
    std::vector<load_req> out;
    std::mt19937 rng(o.seed);
    if (w == "l3intf" || w == "mixed") l3intf(out);
    if (w == "vrrp" || w == "mixed") vrrp(out);
    if (w == "mixed") extras(out, rng);
    if (w == "scale") scale(out, o, rng);
    if (w == "scale2") scale2(out, o);
    return out;
}

// Adds, updates and deletes over a pool of MACs. Every add and update asks
// for a {MAC, VLAN} that no request of the run has named before, so that
// its output row is a new one whose arrival can be timed.
std::vector<load_req> load_churn_ops(const load_opts &o, std::vector<load_req> *preload) {
    std::mt19937 rng(o.seed);
    int macs = o.macs > 0 ? o.macs : 1;
    std::uniform_int_distribution<int> mac(0, macs - 1);
    std::uniform_int_distribution<uint32_t> vlan(1, kMaxVlan);
    std::uniform_int_distribution<int> op(0, 2);
    std::set<std::pair<int, uint32_t>> used;
    std::vector<load_req> live;
    int next_uuid = 0;
    auto fresh = [&](load_req r) {
        int m;
        uint32_t v;
        do {
            m = mac(rng);
            v = vlan(rng);
        } while (!used.insert({m, v}).second);
        load_req n = req(S_ROUTE__L3TABLE_USER_E__L3TABLE_UC,
                         r.uuid.empty() ? "c-" + std::to_string(next_uuid++) : r.uuid,
                         0x060000000000ull + uint64_t(m), v, S_ROUTE__L3MAC_TYPE_E__L3MAC_NORMAL);
        return n;
    };
    for (int i = 0; i < macs; i++) live.push_back(fresh({}));
    *preload = live;
    std::vector<load_req> ops;
    size_t count = size_t(o.rate * o.secs);
    for (size_t i = 0; i < count; i++) {
        int what = live.empty() ? 0 : op(rng);
        if (what == 0) {
            live.push_back(fresh({}));
            ops.push_back(live.back());
        } else {
            size_t at = std::uniform_int_distribution<size_t>(0, live.size() - 1)(rng);
            if (what == 1) {
                live[at] = fresh(live[at]);
                ops.push_back(live[at]);
            } else {
                ops.push_back(live[at]);
                ops.back().del = true;
                live[at] = live.back();
                live.pop_back();
            }
        }
    }
    return ops;
}
