// Data smoothing after a restart: entries come back at their old indexes,
// every row that stays is written again between begin and end, entries
// nobody wants go with both rows, and a MAC that no longer fits keeps its
// entries in both tables.
#include <algorithm>
#include <set>

#include "decision/l3mac_decision.h"
#include "frame/l3mac_ds.h"
#include "platform/host/hnx_host.h"
#include "platform/ss_rt_tbl.h"
#include "s_route.pb-c.h"
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

// A backup row as another process might leave it: not written by this
// service, naming an index of its own choosing.
void write_stray_backup(mac6 mac, uint32_t evlan, uint32_t idx) {
    PLibpub__Mac m = P_LIBPUB__MAC__INIT;
    m.data = {mac.size(), mac.data()};
    SRoute__L3macHwAttr attr = S_ROUTE__L3MAC_HW_ATTR__INIT;
    attr.evlan = evlan;
    attr.evlan_mask = 0xFFF;
    attr.mac = &m;
    SRoute__L3macBak row = S_ROUTE__L3MAC_BAK__INIT;
    row.index = &attr;
    row.hw_id = idx;
    ASSERT_EQ(ss_rt_tbl_add_str(l3mac_ctx.tbl_bak, &row.base, 0, 0), 0);
}

using DsTest = ManagedWorld;

// In both cover modes: the covers are the same for the same sets.
class DsModes : public ManagedWorld, public testing::WithParamInterface<bool> {};

TEST_P(DsModes, ARestartWithUnchangedRequestsRewritesEveryRowInPlace) {
    start({.tcam_cap = 16, .compact_cover = GetParam()});
    want(kA, {3, 5, 6, 10, 11, 12, 13, 14, 15, 16, 17, 18, 19, 20});
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

INSTANTIATE_TEST_SUITE_P(GreedyAndCompact, DsModes, testing::Bool());

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

// Backup rows that no entry stands behind (an index beyond the TCAM, or one
// that an entry holds already, read before or after that entry's own row)
// take no place: the output table says A stands there, and A keeps its
// index. They are swept at the end of smoothing, so that they cannot claim
// a place at the next start.
TEST_F(DsTest, BackupRowsThatNoEntryStandsBehindAreSweptBySmoothing) {
    start({.tcam_cap = 16});
    want(kA, {3});
    sw_l3mac_mac_decision();
    const auto hw = managed_hw_rows(), bak = managed_bak_rows();
    ASSERT_EQ(bak.size(), 1u);
    const std::vector<std::array<uint32_t, 3>> a_placed{{3, 0xFFF, bak[0].hw_id}};

    restart();
    write_stray_backup(kM, 7, 16);            // beyond the TCAM: refused by the restore
    write_stray_backup(kM, 1, bak[0].hw_id);  // evlan 1: read before A's row
    write_stray_backup(kM, 8, bak[0].hw_id);  // read after A's row: its index is held
    hnx_host_tbl_journal_clear();
    l3mac_data_check();

    EXPECT_EQ(placed(mac_of(NORMAL, kA)), a_placed);
    EXPECT_EQ(managed_hw_rows(), hw);
    EXPECT_EQ(managed_bak_rows(), bak);
    for (const tbl_op &op : managed_journal("hw_res")) EXPECT_TRUE(op.is_add) << op;
    EXPECT_EQ(mac_of(NORMAL, kM), nullptr);
    restart();
    l3mac_data_check();
    EXPECT_EQ(managed_bak_rows(), bak);
    EXPECT_EQ(placed(mac_of(NORMAL, kA)), a_placed);
}

}  // namespace
