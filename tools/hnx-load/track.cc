// The output tables followed through the host table service: see track.h.
#include "track.h"

#include "platform/ss_rt_tbl.h"
#include "s_route.pb-c.h"

namespace {

load_track *g_track = nullptr;
constexpr uint32_t kExact = 0xffffffffu;

uint64_t mac48(const uint8_t *m) {
    uint64_t v = 0;
    for (int i = 0; i < 6; i++) v = v << 8 | m[i];
    return v;
}

void attr_reached(const SRoute__L3macHwAttr *a, bool exact) {
    if (!a || !a->mac || a->mac->data.len != 6) return;
    uint32_t mask = exact || a->evlan_mask == 0 ? kExact : a->evlan_mask;
    g_track->resolve(a->mac_type, a->mac->data.data, a->evlan, mask);
}

int on_hw_set(const ProtobufCMessage *m) {
    g_track->sets["s_route.l3mac_hw_res"]++;
    attr_reached(reinterpret_cast<const SRoute__L3macHwRes *>(m)->attr, false);
    return 0;
}

int on_vrrp_set(const ProtobufCMessage *m) {
    g_track->sets["s_route.l3mac_vrrp_hw_res"]++;
    attr_reached(reinterpret_cast<const SRoute__L3macVrrpHwRes *>(m)->index, true);
    return 0;
}

int on_bak_set(const ProtobufCMessage *) {
    g_track->sets["s_route.l3mac_bak"]++;
    return 0;
}

int on_del(const ProtobufCMessage *m) {
    g_track->dels[m->descriptor->name]++;
    return 0;
}

template <typename Row, typename Key>
int follow(ss_rt_tbl_row_fn set, Row row, Key key) {
    ss_rt_tbl *t = ss_rt_tbl_create_detail(16, 1, &row.base, 0, 12, &key.base, 0, 0);
    return t ? ss_rt_tbl_subscribe_detail(t, set, on_del, 0, 0) : -11;
}

}  // namespace

void load_track::expect(const load_req &r, load_clock::time_point t) {
    mac_key k{r.mac_type, mac48(r.mac)};
    pending[k].push_back({r.vlan, t, r.uuid});
    waiting[r.uuid] = k;
    pending_count++;
}

void load_track::forget(const load_req &r) {
    auto at = waiting.find(r.uuid);
    if (at == waiting.end()) return;
    auto it = pending.find(at->second);
    waiting.erase(at);
    if (it == pending.end()) return;
    std::vector<wait> &w = it->second;
    for (size_t i = 0; i < w.size(); i++) {
        if (w[i].uuid != r.uuid) continue;
        w.erase(w.begin() + long(i));
        pending_count--;
        break;
    }
    if (w.empty()) pending.erase(it);
}

void load_track::resolve(uint32_t type, const uint8_t *mac, uint32_t evlan, uint32_t mask) {
    auto it = pending.find({type, mac48(mac)});
    if (it == pending.end()) return;
    auto now = load_clock::now();
    std::vector<wait> &w = it->second;
    size_t kept = 0;
    for (size_t i = 0; i < w.size(); i++) {
        if (((w[i].vlan ^ evlan) & mask) == 0) {
            latency_ms.push_back(std::chrono::duration<double, std::milli>(now - w[i].committed).count());
            last_resolved = now;
            waiting.erase(w[i].uuid);
            pending_count--;
        } else {
            w[kept++] = w[i];
        }
    }
    w.resize(kept);
    if (w.empty()) pending.erase(it);
}

long load_track::changes() const {
    long n = 0;
    for (auto &[name, c] : sets)
        if (name != "s_route.l3mac_bak") n += c;
    for (auto &[name, c] : dels)
        if (name != "s_route.l3mac_bak") n += c;
    return n;
}

int load_track_start(load_track *t) {
    g_track = t;
    SRoute__L3macHwKey hk = S_ROUTE__L3MAC_HW_KEY__INIT;
    SRoute__L3macHwAttr ak = S_ROUTE__L3MAC_HW_ATTR__INIT;
    int rv = follow(on_hw_set, SRoute__L3macHwRes(S_ROUTE__L3MAC_HW_RES__INIT), hk);
    if (rv == 0) rv = follow(on_bak_set, SRoute__L3macBak(S_ROUTE__L3MAC_BAK__INIT), ak);
    if (rv == 0)
        rv = follow(on_vrrp_set, SRoute__L3macVrrpHwRes(S_ROUTE__L3MAC_VRRP_HW_RES__INIT), ak);
    return rv;
}
