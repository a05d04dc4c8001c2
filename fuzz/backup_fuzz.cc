// A start over a backup table that holds anything: packed bytes that
// unpack as s_route.l3mac_bak rows, or rows drawn field by field around the
// edges of the checks (indexes at the capacity, numbers at the top of their
// space, types beyond the enumeration, indexes held twice). With them stand
// a few users' requests. Data smoothing restores what it can through
// l3mac_tcam_gr_backup and runs the first round: the service must then be
// consistent, and a second start must restore every entry in its place.
#include <array>
#include <cstdlib>
#include <map>
#include <set>
#include <vector>

#include "check/l3mac_check.h"
#include "platform/ss_rt_tbl.h"
#include "support/fuzz_world.h"

namespace {

void fuzz_packed_bak(FuzzedDataProvider &in, ss_rt_tbl *bak) {
    const std::vector<uint8_t> bytes =
        in.ConsumeBytes<uint8_t>(in.ConsumeIntegralInRange<size_t>(0, 48));
    SRoute__L3macBak *row = s_route__l3mac_bak__unpack(nullptr, bytes.size(), bytes.data());
    if (!row) return;
    ss_rt_tbl_add_str(bak, &row->base, 0, 0);
    s_route__l3mac_bak__free_unpacked(row, nullptr);
}

void fuzz_drawn_bak(FuzzedDataProvider &in, ss_rt_tbl *bak) {
    uint8_t mac_bytes[6] = {0x02, 0, 0, 0, 0, in.ConsumeIntegralInRange<uint8_t>(0, 3)};
    PLibpub__Mac mac = P_LIBPUB__MAC__INIT;
    mac.data.len = in.ConsumeIntegralInRange<int>(0, 7) ? 6 : 5;
    mac.data.data = mac_bytes;
    SRoute__L3macHwAttr attr = S_ROUTE__L3MAC_HW_ATTR__INIT;
    attr.evlan = fuzz_evlan(in);
    attr.evlan_mask = in.ConsumeBool() ? 0xFFF : in.ConsumeIntegral<uint16_t>();
    attr.mac_type = in.ConsumeIntegralInRange<uint32_t>(0, 6);
    attr.mac = in.ConsumeIntegralInRange<int>(0, 15) ? &mac : nullptr;
    attr.phyid = in.ConsumeIntegralInRange<int>(0, 3) ? 0 : 1;
    SRoute__L3macBak row = S_ROUTE__L3MAC_BAK__INIT;
    row.index = in.ConsumeIntegralInRange<int>(0, 31) ? &attr : nullptr;
    row.hw_id = in.ConsumeBool() ? in.ConsumeIntegralInRange<uint32_t>(0, 9)
                                 : in.ConsumeIntegral<uint32_t>();
    row.phase = in.ConsumeIntegralInRange<uint32_t>(0, 1);
    ss_rt_tbl_add_str(bak, &row.base, 0, 0);
}

using fuzz_places = std::map<std::vector<uint32_t>, uint32_t>;

std::vector<uint32_t> fuzz_key_of(const l3mac_check_hw &h) {
    return {h.evlan, h.evlan_mask, h.mac_type, h.phyid, h.mac[0], h.mac[5]};
}

// What the backup rows say before a start: each entry's index, the indexes
// that rows without an output row (the ones the service skipped) hold, and
// how many rows each TCAM has. An entry that two rows name (one of them not
// the service's) has no one place: the later row in the scan gives it, and
// it is left out.
struct fuzz_rows_view {
    fuzz_places places;
    std::set<std::pair<int, uint32_t>> stale;
    std::array<uint32_t, 2> rows{};
};

fuzz_rows_view fuzz_backup_view() {
    l3mac_check_rows rows;
    l3mac_check_read_tables(&rows);
    const l3mac_check_board b = l3mac_check_board_live();
    std::set<std::vector<uint32_t>> out, twice;
    for (const l3mac_check_hw &h : rows.hw_res) out.insert(fuzz_key_of(h));
    fuzz_rows_view v;
    for (const l3mac_check_hw &h : rows.bak) {
        const std::vector<uint32_t> k = fuzz_key_of(h);
        const int t = l3mac_check_tcam_of(b, h.mac_type);
        v.rows[t]++;
        if (!out.count(k)) v.stale.insert({t, h.hw_id});
        else if (!v.places.emplace(k, h.hw_id).second) twice.insert(k);
    }
    for (const std::vector<uint32_t> &k : twice) v.places.erase(k);
    return v;
}

// An entry that stands after both starts stands where it stood. Some may
// move: one whose index a skipped row takes back first, once that index is
// free; any in a TCAM with more rows than its pool holds, where skipped rows
// may take the room that an entry's own row finds gone later in the scan;
// one of a MAC with a phyid, whose entries are not claimed before a change
// and so are made afresh when an add finds the pool full; and an overlay
// entry beyond the board's VFI space, which the restore refuses.
void fuzz_same_places(const fuzz_rows_view &before, const fuzz_places &after) {
    const l3mac_check_board b = l3mac_check_board_live();
    for (const auto &[k, idx] : before.places) {
        const int t = l3mac_check_tcam_of(b, k[2]);
        auto it = after.find(k);
        if (before.stale.count({t, idx}) || before.rows[t] > b.limit[t] || k[3] != 0) continue;
        if (k[2] == S_ROUTE__L3MAC_TYPE_E__L3MAC_OL && k[0] >= b.vfi_mask) continue;
        if (it == after.end() || it->second == idx) continue;
        std::fprintf(stderr, "fuzz: the entry evlan %u mask %#x type %u at index %u moved to %d\n",
                     k[0], k[1], k[2], idx, it == after.end() ? -1 : int(it->second));
        std::abort();
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    FuzzedDataProvider in(data, size);
    fuzz_world_start(fuzz_board_json(in.ConsumeIntegral<uint8_t>()), false);
    ss_rt_tbl *bak = l3mac_ctx.tbl_bak;  // written before the start that reads it
    const int rows = in.ConsumeIntegralInRange<int>(0, 24);
    for (int i = 0; i < rows; i++) {
        if (in.ConsumeIntegralInRange<int>(0, 3) == 0) fuzz_packed_bak(in, bak);
        else fuzz_drawn_bak(in, bak);
    }
    const int requests = in.ConsumeIntegralInRange<int>(0, 8);
    for (int i = 0; i < requests; i++) {
        fuzz_row r(in);
        ss_rt_tbl_add_str(l3mac_ctx.tbl_res, &r.res.base, 0, 0);
    }
    fuzz_world_restart();
    fuzz_world_check({.round_done = true, .restarted = true, .foreign_backup = true},
                     "after the first start");
    // The service wrote its own rows now: the next start finds them all,
    // and takes each entry back at its index.
    const fuzz_rows_view before = fuzz_backup_view();
    fuzz_world_restart();
    fuzz_world_check({.round_done = true, .restarted = true, .foreign_backup = true},
                     "after the second start");
    fuzz_same_places(before, fuzz_backup_view().places);
    return 0;
}
