// Data smoothing after a restart: entries come back at their old indexes,
// every row that stays is written again between begin and end, entries
// nobody wants go with both rows, and a MAC that no longer fits keeps its
// entries in both tables.
#include <algorithm>
#include <set>

#include "decision/l3mac_decision.h"
#include "frame/l3mac_ds.h"
#include "platform/host/hnx_host.h"
#include "support/managed_world.h"

namespace {

const mac6 kA{2, 0, 0, 0, 0, 0x0A}, kB{2, 0, 0, 0, 0, 0x0B}, kM{2, 0, 0, 0, 0, 0x0C};

std::vector<hw_entry> adds_of(const std::string &table) {
    std::vector<hw_entry> out;
    for (const tbl_op &op : managed_journal(table)) {
        EXPECT_TRUE(op.is_add) << table;
        out.push_back(op.entry);
    }
    std::sort(out.begin(), out.end());
    return out;
}

using DsTest = ManagedWorld;

TEST_F(DsTest, ARestartWithUnchangedRequestsRewritesEveryRowInPlace) {
    start({.tcam_cap = 16});
    want(kA, {3, 5, 6});
    want(kB, {1, 2, 3}, VRRP);
    sw_l3mac_mac_decision();
    const auto hw = managed_hw_rows(), bak = managed_bak_rows();
    const uint32_t used = in_use();

    restart();
    EXPECT_EQ(l3mac_data_check(), 0);
    EXPECT_EQ(adds_of("hw_res"), hw);
    EXPECT_EQ(adds_of("bak"), bak);
    EXPECT_EQ(managed_hw_rows(), hw);
    EXPECT_EQ(in_use(), used);
    EXPECT_TRUE(list_empty(&l3mac_pending_head));
    EXPECT_EQ(l3mac_is_ds_end(), 1);
}

TEST_F(DsTest, ARestoredEntryThatNoUserWantsGoesWithBothRows) {
    start({.tcam_cap = 16});
    want(kA, {3});
    want(kB, {5});
    sw_l3mac_mac_decision();
    restart();
    erase_request(1, managed_uuid(kB, NORMAL, 5));  // withdrawn while down

    l3mac_data_check();
    // A's entry is written again, B's withdrawn from both tables.
    std::multiset<std::pair<std::string, bool>> seen;
    for (const tbl_op &op : managed_journal()) seen.emplace(op.table, op.is_add);
    EXPECT_EQ(seen, (std::multiset<std::pair<std::string, bool>>{
                        {"bak", false}, {"bak", true}, {"hw_res", false}, {"hw_res", true}}));
    EXPECT_EQ(mac_of(NORMAL, kB), nullptr);
    EXPECT_EQ(managed_hw_rows(), (std::vector<hw_entry>{{.hw_id = 1, .evlan = 3, .evlan_mask = 0xFFF,
                                                         .mac_type = NORMAL, .mac = kA}}));
    EXPECT_EQ(managed_bak_rows().size(), 1u);
}

// While the service was down M's users asked for one VLAN more than the
// full TCAM can hold. M fails in both passes of the first round; the entries
// that it keeps are published again, so that the end of smoothing finds
// them written and they stand at their old places in both tables.
TEST_F(DsTest, AMacThatNoLongerFitsKeepsItsRowsThroughSmoothing) {
    managed_clock_set(10'000'000);
    start({.tcam_cap = 4});
    want(kM, {3, 5, 6}, VRRP);
    want(kA, {9});
    sw_l3mac_mac_decision();
    ASSERT_EQ(in_use(), 4u);
    const auto hw = managed_hw_rows(), bak = managed_bak_rows();

    restart();
    write_request(1, managed_uuid(kM, VRRP, 10), 10, VRRP, kM);
    hnx_host_tbl_journal_clear();
    l3mac_data_check();

    EXPECT_EQ(managed_hw_rows(), hw);
    EXPECT_EQ(managed_bak_rows(), bak);
    EXPECT_EQ(adds_of("hw_res"), hw);
    EXPECT_EQ(managed_log_count(root_, "L3MAC table is full."), 1);
    ASSERT_NE(mac_of(VRRP, kM), nullptr);
    EXPECT_FALSE(pending(mac_of(VRRP, kM)));
    // After a restart the MAC's former set is empty: every user is new.
    std::vector<std::pair<uint32_t, uint32_t>> told;  // evlan, status
    for (const l3mac_res_write &op : l3mac_res_writes()) told.emplace_back(op.evlan, op.status);
    std::sort(told.begin(), told.end());
    const uint32_t failed = S_ROUTE__L3TABLE_STATUS_E__STATUS_FAILED;
    EXPECT_EQ(told, (decltype(told){{3, failed}, {5, failed}, {6, failed}, {10, failed}}));
}

}  // namespace
