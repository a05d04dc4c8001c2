// The daemon in compact-cover mode: users' rows written with hnx-tbl get
// the fewest entries, and a kill and a restart with the same rows leave
// every entry at its index in both tables.
#include <algorithm>

#include "support/daemon_world.h"

namespace {

const mac6 kA{2, 0, 0, 0, 0, 0x0A};

using CompactE2e = DaemonWorld;

// Times the table service has said that smoothing of the last table ended.
int smoothed(const std::string &root) {
    return l3mac_count_of(managed_slurp(root + "/daemon.out.err"),
                          "s_route.l3mac_vrrp_hw_res: data smoothing ended");
}

// VLANs 10-20: four entries where the greedy cover takes five.
TEST_P(CompactE2e, FewestEntriesStandUnchangedThroughAKillAndARestart) {
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

INSTANTIATE_TEST_SUITE_P(Stores, CompactE2e, all_store_backends(), store_backend_name);

}  // namespace
