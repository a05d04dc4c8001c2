// TCAM entries and their pools: claims, indexes, the rows that an entry
// writes, and where each mac_type's entries land on the different boards.

#include "platform/host/hnx_host.h"
#include "support/managed_world.h"

namespace {

const mac6 kMac{0x00, 0x11, 0x22, 0x33, 0x44, 0x55};

mac_entry *make_mac(uint32_t mac_type, uint32_t phyid = 0) {
    return sw_l3mac_get_or_add_mac_db(static_cast<uint8_t>(mac_type), kMac.data(), phyid, 1);
}

class TcamTest : public ManagedWorld {
protected:
    std::vector<std::array<uint32_t, 4>> two_tcam_rows(bool copy);
};

TEST_F(TcamTest, FillerMakesNothingARepeatedAddTakesOneIndexAndWritesOnce) {
    start({.tcam_cap = 8});
    mac_entry *mac = make_mac(NORMAL);
    managed_tpl filler(0, 0xFFFFFFFF), t(100, 0xFFFFFFFC);
    EXPECT_EQ(sw_l3mac_add_tcam_entry(filler.tpl, mac), 0);
    EXPECT_EQ(sw_l3mac_mark_tcam_entry(filler.tpl, mac), -4);
    EXPECT_TRUE(entries_of(mac).empty());
    EXPECT_EQ(in_use(), 0u);

    ASSERT_EQ(sw_l3mac_add_tcam_entry(t.tpl, mac), 0);
    ASSERT_EQ(sw_l3mac_add_tcam_entry(t.tpl, mac), 0);
    ASSERT_EQ(entries_of(mac).size(), 1u);
    EXPECT_EQ(std::pair(entries_of(mac)[0]->ref_cnt, in_use()), std::pair(2u, 1u));
    const hw_entry row{.evlan = 100, .evlan_mask = 0xFFC, .mac = kMac};  // cut to 12 bits
    EXPECT_EQ(managed_journal(), (std::vector<tbl_op>{{"hw_res", true, row}, {"bak", true, row}}));
}

TEST_F(TcamTest, PhyidSeparatesEntriesAndOnlyTheAddClaimsThem) {
    start({.tcam_cap = 8});
    mac_entry *phy = make_mac(NORMAL, 7), *plain = make_mac(NORMAL, 0);
    managed_tpl t(10, 0xFFFFFFFF);
    ASSERT_EQ(sw_l3mac_add_tcam_entry(t.tpl, phy), 0);
    // The mark looks the key up with phyid 0: nothing for this MAC, 135.
    EXPECT_EQ(sw_l3mac_mark_tcam_entry(t.tpl, phy), 0);
    EXPECT_EQ(err_count(135), 1u);
    EXPECT_EQ(entries_of(phy)[0]->ref_cnt, 1u);
    ASSERT_EQ(sw_l3mac_add_tcam_entry(t.tpl, plain), 0);
    EXPECT_EQ(sw_l3mac_mark_tcam_entry(t.tpl, plain), 0);
    EXPECT_EQ(entries_of(plain)[0]->ref_cnt, 2u);
    EXPECT_EQ(placed(phy)[0][2] + placed(plain)[0][2], 1u);  // indexes 0 and 1
    EXPECT_EQ(managed_hw_rows().size(), 2u);
}

TEST_F(TcamTest, FullPoolLeavesNothingAndDeleteWithdrawsBothRows) {
    start({.tcam_cap = 1});
    mac_entry *mac = make_mac(NORMAL);
    managed_tpl a(10, 0xFFFFFFFF), b(20, 0xFFFFFFFF);
    ASSERT_EQ(sw_l3mac_add_tcam_entry(a.tpl, mac), 0);
    const uint32_t records = l3mac_ctx.malloc_db;
    EXPECT_NE(sw_l3mac_add_tcam_entry(b.tpl, mac), 0);
    EXPECT_EQ(l3mac_ctx.malloc_db, records);
    EXPECT_EQ(sw_l3mac_add_tcam_entry(a.tpl, mac), 0);  // an existing key still adds
    EXPECT_EQ(managed_journal().size(), 2u);
    hnx_host_tbl_journal_clear();

    tcam_entry *e = entries_of(mac)[0];
    list_del_init(&e->tcam_lst);
    EXPECT_EQ(sw_l3mac_del_tcam(e), 0);
    EXPECT_EQ(in_use(), 0u);
    // The output row goes by its index alone, the backup row by its content.
    EXPECT_EQ(managed_journal(), (std::vector<tbl_op>{
                                     {"hw_res", false, {.has_attr = false}},
                                     {"bak", false, {.evlan = 10, .evlan_mask = 0xFFF, .mac = kMac}}}));
    EXPECT_TRUE(managed_hw_rows().empty() && managed_bak_rows().empty());
}

// A NORMAL, a TNL and an OL entry on a board with two TCAMs: {hw_id, phase,
// mac_type, evlan_mask} of the output rows, sorted; the backup keeps phase 0.
std::vector<std::array<uint32_t, 4>> TcamTest::two_tcam_rows(bool copy) {
    start({.tcam2_en = true, .copy_to_tcam2 = copy, .tcam_cap = 8, .tcam2_cap = 8,
             .evlan_num = 4096 + 16384});
    managed_tpl t(5, 0xFFFFFFFF), filler(0, 0xFFFFFFFF);  // OL's filler when copied
    for (uint32_t type : {NORMAL, TNL, OL})
        EXPECT_EQ(sw_l3mac_add_tcam_entry(copy && type == OL ? filler.tpl : t.tpl,
                                          make_mac(type)), 0);
    for (const hw_entry &b : managed_bak_rows()) EXPECT_EQ(b.phase, 0u);
    std::vector<std::array<uint32_t, 4>> got;
    for (const hw_entry &h : managed_hw_rows())
        got.push_back({h.hw_id, h.phase, h.mac_type, h.evlan_mask});
    return got;
}

// The second TCAM's phase-0 rows stand behind the first TCAM's positions.
TEST_F(TcamTest, TwoTcamsKeepTheirOutputRowsApart) {
    EXPECT_EQ(two_tcam_rows(false), (std::vector<std::array<uint32_t, 4>>{
        {0, 0, NORMAL, 0xFFF}, {1, 1, OL, 0x3FFF}, {8, 0, TNL, 0xFFF}}));
    EXPECT_EQ((std::pair{in_use(0), in_use(1)}), (std::pair{1u, 2u}));
}

TEST_F(TcamTest, CopyToTheSecondTcamLeavesTheFirstPoolEmpty) {
    const auto rows = two_tcam_rows(true);
    ASSERT_EQ(rows.size(), 2u);
    EXPECT_EQ(rows[0][0] + rows[1][0], 1u);  // indexes 0 and 1
    EXPECT_EQ((std::pair{in_use(0), in_use(1)}), (std::pair{0u, 2u}));
}

}  // namespace
