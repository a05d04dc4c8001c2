// The daemon in compact-cover mode: users' rows written with hnx-tbl get
// the fewest entries, and a kill and a restart with the same rows leave
// every entry at its index in both tables.
#include <algorithm>

#include "support/managed_proc.h"
#include "support/managed_world.h"
#include "support/redis_server.h"

namespace {

const mac6 kA{2, 0, 0, 0, 0, 0x0A};

class CompactE2e : public OverStores<L3macWorld> {
protected:
    void TearDown() override {
        managed_daemon_kill(pid_);
        OverStores::TearDown();
    }
    void start() { pid_ = managed_daemon_start(HNX_BIN_DIR, root_); }
    // Times the table service has said that smoothing of the last table ended.
    int smoothed() const {
        const std::string err = managed_slurp(root_ + "/daemon.out.err");
        return l3mac_count_of(err, "s_route.l3mac_vrrp_hw_res: data smoothing ended");
    }
    void set(uint32_t vlan) {
        ASSERT_EQ(managed_tbl(HNX_BIN_DIR, root_,
                              {"set", "s_route.l3mac_res", "index.t_user=1",
                               "index.uuid=" + managed_uuid(kA, NORMAL, vlan),
                               "status=STATUS_REQUEST", "attr.evlan=" + std::to_string(vlan),
                               "attr.mac_type=L3MAC_NORMAL", "attr.mac=02:00:00:00:00:0a"}),
                  0);
    }
    pid_t pid_ = 0;
};

// VLANs 10-20: four entries where the greedy cover takes five.
TEST_P(CompactE2e, FewestEntriesStandUnchangedThroughAKillAndARestart) {
    write_caps({.compact_cover = true});
    start();
    ASSERT_TRUE(managed_wait([&] { return smoothed() == 1; }));
    for (uint32_t v = 10; v <= 20; ++v) set(v);
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
    ASSERT_TRUE(managed_wait([&] { return smoothed() == 2; }));
    EXPECT_EQ(managed_hw_rows(), hw);
    EXPECT_EQ(managed_bak_rows(), bak);
}

INSTANTIATE_TEST_SUITE_P(Stores, CompactE2e, all_store_backends(), store_backend_name);

}  // namespace
