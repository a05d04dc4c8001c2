// Where the entries stand: the entries whole in both tables when the daemon
// died, and whether those that are still wanted after the restart stand
// where they stood.
#include <thread>

#include "platform/host/hnx_host.h"
#include "soak.h"

namespace {

l3mac_entry_key soak_key_of(const l3mac_check_hw &h) {
    return {{static_cast<uint8_t>(h.mac_type), h.mac, h.phyid}, h.evlan, h.evlan_mask};
}

std::vector<std::vector<uint8_t>> soak_tables_now() {
    std::vector<std::vector<uint8_t>> all;
    for (const char *t : {"s_route.l3mac_hw_res", "s_route.l3mac_bak",
                          "s_route.l3mac_vrrp_hw_res"}) {
        auto rows = hnx_host_tbl_rows(t);
        all.insert(all.end(), rows.begin(), rows.end());
        all.emplace_back();  // a separator between the tables
    }
    return all;
}

}  // namespace

soak_places soak_whole_entries(const l3mac_check_board &b) {
    l3mac_check_rows rows;
    l3mac_check_read_tables(&rows);
    std::map<l3mac_entry_key, uint32_t> backed;
    for (const l3mac_check_hw &h : rows.bak)
        if (h.has_attr) backed[soak_key_of(h)] = h.hw_id;
    soak_places whole;
    for (const l3mac_check_hw &h : rows.hw_res) {
        if (!h.has_attr) continue;
        auto it = backed.find(soak_key_of(h));
        const int tcam = l3mac_check_tcam_of(b, h.mac_type);
        if (it != backed.end() && it->second == l3mac_check_idx_of(b, tcam, h.hw_id, h.phase))
            whole[soak_key_of(h)] = {h.hw_id, h.phase};
    }
    return whole;
}

bool soak_settle(std::chrono::milliseconds limit) {
    const auto until = std::chrono::steady_clock::now() + limit;
    auto last = soak_tables_now();
    for (int same = 0; same < 3;) {
        if (std::chrono::steady_clock::now() > until) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        auto now = soak_tables_now();
        same = now == last ? same + 1 : 0;
        last = std::move(now);
    }
    return true;
}

// An entry of a MAC with a phyid may move by design: the claims before an
// application are made with phyid 0, so that a failed add in a full pool
// clears all of such a MAC's old entries and makes the wanted ones afresh.
void soak_compare_places(const soak_places &before, const soak_places &now, soak_figures *f,
                         std::vector<std::string> *moved) {
    for (const auto &[k, place] : before) {
        auto it = now.find(k);
        if (it == now.end()) continue;
        f->entries_kept++;
        if (it->second == place) continue;
        if (k.mac.phyid != 0) {
            f->entries_renewed++;
            continue;
        }
        f->entries_moved++;
        moved->push_back(l3mac_check_mac_text(k.mac) + " evlan " + std::to_string(k.evlan) +
                         " mask " + std::to_string(k.evlan_mask) + " moved from hw_id " +
                         std::to_string(place.first) + " to " + std::to_string(it->second.first));
    }
}
