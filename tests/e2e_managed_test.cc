// The managed path end to end: the daemon under a temporary root, users'
// rows written with hnx-tbl, and the output and backup tables read from
// the store, across a kill and a restart; in compact-cover mode too, where
// the rows get the fewest entries.
#include <algorithm>

#include "support/daemon_world.h"

namespace {

const mac6 kA{2, 0, 0, 0, 0, 0x0A}, kB{2, 0, 0, 0, 0, 0x0B}, kD{2, 0, 0, 0, 0, 0x0D};

// An entry of a NORMAL MAC as both tables show it, its index left out.
hw_entry entry(const mac6 &mac, uint32_t evlan, uint32_t mask) {
    return {.evlan = evlan, .evlan_mask = mask, .mac_type = NORMAL, .mac = mac};
}

// Both tables hold exactly `want`, each entry at the same hw_id in both.
bool tables_hold(std::vector<hw_entry> want) {
    auto hw = managed_hw_rows(), bak = managed_bak_rows();
    if (hw.size() != bak.size()) return false;
    for (size_t i = 0; i < hw.size(); i++)
        if (hw[i].hw_id != bak[i].hw_id || hw[i].evlan != bak[i].evlan) return false;
    for (hw_entry &e : hw) e.hw_id = e.phase = 0;
    std::sort(hw.begin(), hw.end());
    std::sort(want.begin(), want.end());
    return hw == want;
}

// The service world's root, its tables read by this process, served by a daemon.
using ManagedE2e = DaemonWorld;

// Covers: {1, 2, 3} is 0/0xFFC; {5, 7} is 5/0xFFD beside the filler;
// {100..103} is 100/0xFFC; {1, 2} is 0/0xFFD and 0/0xFFE.
TEST_P(ManagedE2e, EntriesFollowTheRequestsAndStayInPlaceAcrossAKill) {
    write_caps({});
    start();
    for (uint32_t v : {1, 2, 3}) set(kA, v);
    for (uint32_t v : {5, 7}) set(kB, v);
    set(kB, 7, 2);  // a second user on the same VLAN
    ASSERT_TRUE(managed_wait([&] { return tables_hold({entry(kA, 0, 0xFFC), entry(kB, 5, 0xFFD)}); }));
    const auto hw = managed_hw_rows(), bak = managed_bak_rows();

    managed_daemon_kill(pid_);
    start();
    // Two requests one after the other: the second is handled after the
    // round that served the first, so after the end of smoothing.
    set(kD, 100);
    ASSERT_TRUE(managed_wait([&] { return managed_hw_rows().size() == hw.size() + 1; }));
    for (uint32_t v : {101, 102, 103}) set(kD, v);
    ASSERT_TRUE(managed_wait([&] {
        return tables_hold({entry(kA, 0, 0xFFC), entry(kB, 5, 0xFFD), entry(kD, 100, 0xFFC)});
    }));
    for (auto [now, before] : {std::pair{managed_hw_rows(), hw}, {managed_bak_rows(), bak}}) {
        std::erase_if(now, [](const hw_entry &e) { return e.mac == kD; });
        EXPECT_EQ(now, before);  // every hw_id kept across the kill
    }

    set(kB, 7, 2, true);  // VLAN 7 stays: user 1 still wants it
    set(kA, 3, 1, true);
    EXPECT_TRUE(managed_wait([&] {
        return tables_hold({entry(kA, 0, 0xFFD), entry(kA, 0, 0xFFE), entry(kB, 5, 0xFFD),
                            entry(kD, 100, 0xFFC)});
    }));
}

// Times the table service has said that smoothing of the last table ended.
int smoothed(const std::string &root) {
    return l3mac_count_of(managed_slurp(root + "/daemon.out.err"),
                          "s_route.l3mac_vrrp_hw_res: data smoothing ended");
}

// VLANs 10-20: four entries where the greedy cover takes five.
TEST_P(ManagedE2e, CompactFewestEntriesStandUnchangedThroughAKillAndARestart) {
    write_caps({.compact_cover = true});
    start();
    ASSERT_TRUE(managed_wait([&] { return smoothed(root_) == 1; }));
    for (uint32_t v = 10; v <= 20; ++v) set(kA, v);
    ASSERT_TRUE(managed_wait([&] {
        const auto hw = managed_hw_rows();
        uint32_t matched = 0;
        for (uint32_t v = 10; v <= 20; ++v)
            matched += std::any_of(hw.begin(), hw.end(), [v](const hw_entry &e) {
                return ((v ^ e.evlan) & e.evlan_mask) == 0;
            });
        return hw.size() == 4 && matched == 11;
    }));
    const auto hw = managed_hw_rows(), bak = managed_bak_rows();
    for (const hw_entry &e : hw) EXPECT_NE((e.evlan & e.evlan_mask), 0u);  // value 0 not matched

    managed_daemon_kill(pid_);
    start();
    ASSERT_TRUE(managed_wait([&] { return smoothed(root_) == 2; }));
    EXPECT_EQ(managed_hw_rows(), hw);
    EXPECT_EQ(managed_bak_rows(), bak);
}

INSTANTIATE_TEST_SUITE_P(Stores, ManagedE2e, all_store_backends(), store_backend_name);

}  // namespace
