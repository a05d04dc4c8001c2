// The output table read at the start of smoothing: see l3mac_witness.h.
#include "tcam/l3mac_witness.h"

#include <algorithm>
#include <cstring>
#include <tuple>
#include <vector>

#include "frame/l3mac_ctx.h"
#include "platform/ss_rt_tbl.h"
#include "s_route.pb-c.h"
#include "tcam/l3mac_output.h"

namespace {

struct l3mac_witness {
    uint32_t hw_id;
    uint32_t phase;
    tcam_key key;
};

// Sorted by place; the output table holds one row a place.
std::vector<l3mac_witness> l3mac_witnesses;

bool l3mac_witness_before(const l3mac_witness &a, const l3mac_witness &b) {
    return std::tie(a.hw_id, a.phase) < std::tie(b.hw_id, b.phase);
}

int l3mac_witness_take(void * /*arg*/, void *scan_rec) {
    const auto *rec = static_cast<const kw_mom_scan_rec *>(scan_rec);
    const auto *row = rec ? reinterpret_cast<const SRoute__L3macHwRes *>(rec->row) : nullptr;
    if (!row || !row->index || !row->attr) return 0;  // no place or nothing there
    l3mac_witness w;
    std::memset(&w, 0, sizeof w);
    w.hw_id = row->index->hw_id;
    w.phase = row->index->phase;
    l3mac_key_of_attr(row->attr, &w.key);
    l3mac_witnesses.push_back(w);
    return 0;
}

}  // namespace

void l3mac_key_of_attr(const SRoute__L3macHwAttr *attr, tcam_key *key) {
    std::memset(key, 0, sizeof *key);
    key->evlan = attr->evlan;
    key->evlan_mask = attr->evlan_mask;
    key->mac_type = static_cast<uint8_t>(attr->mac_type);
    const PLibpub__Mac *mac = attr->mac;
    if (mac && mac->data.len == sizeof key->mac && mac->data.data)
        std::memcpy(key->mac, mac->data.data, sizeof key->mac);
    key->phyid = attr->phyid;
}

void l3mac_witness_load() {
    l3mac_witness_clear();
    SRoute__L3macHwKey index = S_ROUTE__L3MAC_HW_KEY__INIT;
    SRoute__L3macHwRes tpl = S_ROUTE__L3MAC_HW_RES__INIT;
    tpl.index = &index;
    kw_mom_scan_sync(l3mac_ctx.global, 16, &tpl.base, 0, l3mac_witness_take, 0);
    std::sort(l3mac_witnesses.begin(), l3mac_witnesses.end(), l3mac_witness_before);
}

void l3mac_witness_clear() {
    std::vector<l3mac_witness>().swap(l3mac_witnesses);
}

bool l3mac_witness_agrees(const tcam_entry *entry) {
    l3mac_witness probe;
    std::memset(&probe, 0, sizeof probe);
    probe.hw_id = l3mac_output_hw_id(entry);
    probe.phase = l3mac_output_phase(entry);
    auto it = std::lower_bound(l3mac_witnesses.begin(), l3mac_witnesses.end(), probe,
                               l3mac_witness_before);
    return it != l3mac_witnesses.end() && !l3mac_witness_before(probe, *it) &&
           std::memcmp(&it->key, &entry->key, sizeof entry->key) == 0;
}
