// The cover mode in the service: chosen by the profile without a failure
// when the key is missing, a restart with unchanged requests moving nothing
// in either mode, a change of mode re-covering every MAC in the first round
// after smoothing, and few rows for a one-VLAN change. (Its adds come
// before its removes as every change's do: masklist_test.)
#include <algorithm>

#include "decision/l3mac_decision.h"
#include "frame/l3mac_ds.h"
#include "frame/l3mac_init.h"
#include "platform/host/hnx_host.h"
#include "support/managed_world.h"

namespace {

const mac6 kA{2, 0, 0, 0, 0, 0x0A};

using CoverModeProfile = ManagedWorld;

TEST_F(CoverModeProfile, TheKeyChoosesTheModeAndItsAbsenceIsNoFailure) {
    start({});
    EXPECT_EQ(l3mac_ctx.compact_cover, 0);
    EXPECT_EQ(err_count(57), 0u);

    write_caps({.compact_cover = true});
    restart();
    EXPECT_EQ(l3mac_ctx.compact_cover, 1);
    EXPECT_EQ(err_count(57), 0u);
    // The dump keeps its twelve lines.
    const std::string dump = out_of([] {
        l3mac_cap_dump();
        return 0;
    });
    EXPECT_EQ(std::count(dump.begin(), dump.end(), '\n'), 12);
    EXPECT_EQ(dump.find("compact"), std::string::npos);
}

// (Both modes keep every entry at its index through a restart: ds_test.)
using CoverModeChange = ManagedWorld;

// VLANs 10-20 take five entries in the greedy cover and four in the
// compact one; the mode changes across a restart.
TEST_F(CoverModeChange, TheFirstRoundAfterSmoothingReCoversInTheNewMode) {
    start({.tcam_cap = 64});
    want(kA, {10, 11, 12, 13, 14, 15, 16, 17, 18, 19, 20});
    sw_l3mac_mac_decision();
    ASSERT_EQ(in_use(), 5u);

    write_caps({.tcam_cap = 64, .compact_cover = true});
    restart();
    l3mac_data_check();
    EXPECT_EQ(in_use(), 4u);
    EXPECT_EQ(managed_hw_rows().size(), 4u);

    // Back to the greedy search: the compact entries are re-covered too.
    write_caps({.tcam_cap = 64});
    restart();
    l3mac_data_check();
    EXPECT_EQ(in_use(), 5u);
}

// A VLAN added to a range rewrites far fewer rows than covering afresh
// would, since the held entries are preferred among the fewest.
TEST_F(CoverModeChange, OneVlanMoreRewritesFewRowsInCompactMode) {
    start({.tcam_cap = 64, .compact_cover = true});
    std::initializer_list<uint32_t> range = {100, 101, 102, 103, 104, 105, 106, 107, 108, 109,
                                             110, 111, 112, 113, 114, 115, 116, 117, 118, 119};
    want(kA, range);
    sw_l3mac_mac_decision();
    const auto before = placed(mac_of(NORMAL, kA));
    hnx_host_tbl_journal_clear();
    want(kA, {120});
    sw_l3mac_mac_decision();
    const auto after = placed(mac_of(NORMAL, kA));
    size_t kept = 0;
    for (const auto &e : after) kept += std::count(before.begin(), before.end(), e);
    EXPECT_EQ(before.size(), 3u);  // 100-103, 104-111, 112-119
    EXPECT_EQ(after.size(), 4u);   // the three, and 120 on its own
    EXPECT_EQ(kept, 3u);
    EXPECT_EQ(managed_journal("hw_res").size(), 1u);
}

}  // namespace
