// TCAM entries and their pools: claims, indexes, the rows that an entry
// writes, and where each mac_type's entries land on the different boards.
#include <cstring>

#include <gtest/gtest.h>

#include "frame/l3mac_ctx.h"
#include "platform/host/hnx_host.h"
#include "store/l3mac_db.h"
#include "support/managed_world.h"
#include "tcam/l3mac_tcam.h"

namespace {

const mac6 kMac{0x00, 0x11, 0x22, 0x33, 0x44, 0x55};

mac_entry *make_mac(uint32_t mac_type, uint32_t phyid = 0, const mac6 &m = kMac) {
    return sw_l3mac_get_or_add_mac_db(static_cast<uint8_t>(mac_type), m.data(), phyid, 1);
}

tcam_key key_of(uint32_t evlan, uint32_t mask, uint32_t mac_type, uint32_t phyid = 0) {
    tcam_key k{};
    k.evlan = evlan;
    k.evlan_mask = mask;
    std::memcpy(k.mac, kMac.data(), 6);
    k.mac_type = static_cast<uint8_t>(mac_type);
    k.phyid = phyid;
    return k;
}

using TcamTest = ManagedWorld;

TEST_F(TcamTest, VfiMaskIsTheVfiSpaceMinusOne) {
    const std::pair<int32_t, uint32_t> cases[] = {
        {-100, 1}, {0, 1}, {1, 1}, {2, 1}, {3, 3}, {1000, 1023}, {16384, 16383}};
    for (auto [n, mask] : cases) {
        l3mac_set_vfi_mask(n);
        EXPECT_EQ(l3mac_ctx.vfi_mask, mask) << n;
    }
}

TEST_F(TcamTest, RepeatedAddTakesOneIndexAndWritesOnce) {
    start({.tcam_cap = 8});
    mac_entry *mac = make_mac(NORMAL);
    managed_tpl t(100, 0xFFFFFFFC);
    ASSERT_EQ(sw_l3mac_add_tcam_entry(t.tpl, mac), 0);
    ASSERT_EQ(sw_l3mac_add_tcam_entry(t.tpl, mac), 0);

    auto entries = entries_of(mac);
    ASSERT_EQ(entries.size(), 1u);
    EXPECT_EQ(entries[0]->key.evlan_mask, 0xFFCu);  // cut to 12 bits
    EXPECT_EQ(entries[0]->ref_cnt, 2u);
    EXPECT_EQ(entries[0]->valid, 1);
    EXPECT_EQ(entries[0]->is_hw, 1);
    EXPECT_EQ(in_use(), 1u);

    const hw_entry row{.hw_id = 0, .evlan = 100, .evlan_mask = 0xFFC, .mac = kMac};
    auto ops = managed_journal();
    ASSERT_EQ(ops.size(), 2u);
    EXPECT_EQ(ops[0].table, "hw_res");  // output first, then the backup
    EXPECT_TRUE(ops[0].is_add);
    EXPECT_EQ(ops[0].entry, row);
    EXPECT_EQ(ops[1].table, "bak");
    EXPECT_EQ(ops[1].entry, row);
}

TEST_F(TcamTest, FillerTemplateMakesNoEntryANarrowerOneDoes) {
    start({.tcam_cap = 8});
    mac_entry *mac = make_mac(NORMAL);
    managed_tpl filler(0, 0xFFFFFFFF);
    EXPECT_EQ(sw_l3mac_add_tcam_entry(filler.tpl, mac), 0);
    EXPECT_EQ(sw_l3mac_mark_tcam_entry(filler.tpl, mac), -4);
    EXPECT_TRUE(entries_of(mac).empty());
    EXPECT_EQ(in_use(), 0u);
    EXPECT_TRUE(managed_journal().empty());

    managed_tpl zero_one(0, 0xFFFFFFFE);  // VLANs 0 and 1
    EXPECT_EQ(sw_l3mac_add_tcam_entry(zero_one.tpl, mac), 0);
    ASSERT_EQ(entries_of(mac).size(), 1u);
    EXPECT_EQ(entries_of(mac)[0]->key.evlan_mask, 0xFFEu);
}

TEST_F(TcamTest, PhyidSeparatesEntriesAndOnlyTheAddClaimsThem) {
    start({.tcam_cap = 8});
    mac_entry *phy = make_mac(NORMAL, 7);
    managed_tpl t(10, 0xFFFFFFFF);
    ASSERT_EQ(sw_l3mac_add_tcam_entry(t.tpl, phy), 0);
    // The mark looks the key up with phyid 0: it finds nothing for this
    // MAC, counts 135 and answers 0 all the same.
    EXPECT_EQ(sw_l3mac_mark_tcam_entry(t.tpl, phy), 0);
    EXPECT_EQ(err_count(135), 1u);
    EXPECT_EQ(entries_of(phy)[0]->ref_cnt, 1u);

    mac_entry *plain = make_mac(NORMAL, 0);
    ASSERT_EQ(sw_l3mac_add_tcam_entry(t.tpl, plain), 0);
    EXPECT_EQ(entries_of(phy)[0]->idx, 0u);
    EXPECT_EQ(entries_of(plain)[0]->idx, 1u);
    EXPECT_EQ(sw_l3mac_mark_tcam_entry(t.tpl, plain), 0);
    EXPECT_EQ(entries_of(plain)[0]->ref_cnt, 2u);
    EXPECT_EQ(managed_hw_rows().size(), 2u);
}

TEST_F(TcamTest, FullPoolLeavesNothingBehindAndExistingKeysStillAdd) {
    start({.tcam_cap = 1});
    mac_entry *mac = make_mac(NORMAL);
    managed_tpl a(10, 0xFFFFFFFF), b(20, 0xFFFFFFFF);
    ASSERT_EQ(sw_l3mac_add_tcam_entry(a.tpl, mac), 0);
    const uint32_t records = l3mac_ctx.malloc_db;

    EXPECT_NE(sw_l3mac_add_tcam_entry(b.tpl, mac), 0);
    const tcam_key kb = key_of(20, 0xFFF, NORMAL);
    EXPECT_EQ(tcam_db_get(l3mac_ctx.tcam_db, &kb), nullptr);
    EXPECT_EQ(l3mac_ctx.malloc_db, records);
    EXPECT_EQ(entries_of(mac).size(), 1u);
    EXPECT_EQ(in_use(), 1u);

    EXPECT_EQ(sw_l3mac_add_tcam_entry(a.tpl, mac), 0);
    EXPECT_EQ(managed_journal().size(), 2u);  // the first add's two rows only
}

TEST_F(TcamTest, DeleteFreesTheIndexAndWithdrawsBothRows) {
    start({.tcam_cap = 4});
    mac_entry *mac = make_mac(NORMAL);
    managed_tpl t(10, 0xFFFFFFFE);
    ASSERT_EQ(sw_l3mac_add_tcam_entry(t.tpl, mac), 0);
    ASSERT_EQ(managed_hw_rows().size(), 1u);
    hnx_host_tbl_journal_clear();

    tcam_entry *e = entries_of(mac)[0];
    list_del_init(&e->tcam_lst);
    EXPECT_EQ(sw_l3mac_del_tcam(e), 0);
    EXPECT_EQ(in_use(), 0u);
    auto ops = managed_journal();
    ASSERT_EQ(ops.size(), 2u);
    EXPECT_EQ(ops[0].table, "hw_res");
    EXPECT_FALSE(ops[0].is_add);
    EXPECT_FALSE(ops[0].entry.has_attr);
    EXPECT_EQ(ops[1].table, "bak");
    EXPECT_FALSE(ops[1].is_add);
    EXPECT_EQ(ops[1].entry.hw_id, 0u);
    EXPECT_TRUE(managed_hw_rows().empty());
    EXPECT_TRUE(managed_bak_rows().empty());
}

// Both TCAMs in use at once: the first TCAM's entries and the second's
// mac_types with phase 0 draw indexes from two pools, so the second
// TCAM's phase-0 rows stand behind the first TCAM's positions.
TEST_F(TcamTest, TwoTcamsKeepTheirOutputRowsApart) {
    start({.tcam2_en = true, .copy_to_tcam2 = false, .tcam_cap = 8, .tcam2_cap = 8,
           .evlan_num = 4096 + 16384});
    managed_tpl t(5, 0xFFFFFFFF);
    ASSERT_EQ(sw_l3mac_add_tcam_entry(t.tpl, make_mac(NORMAL)), 0);
    ASSERT_EQ(sw_l3mac_add_tcam_entry(t.tpl, make_mac(TNL)), 0);
    ASSERT_EQ(sw_l3mac_add_tcam_entry(t.tpl, make_mac(OL)), 0);
    EXPECT_EQ(in_use(0), 1u);
    EXPECT_EQ(in_use(1), 2u);

    auto hw = managed_hw_rows();
    ASSERT_EQ(hw.size(), 3u);
    EXPECT_EQ((std::array{hw[0].hw_id, hw[0].phase, hw[0].mac_type}),
              (std::array{0u, 0u, NORMAL}));
    EXPECT_EQ((std::array{hw[1].hw_id, hw[1].phase, hw[1].mac_type}),
              (std::array{1u, 1u, OL}));
    EXPECT_EQ(hw[1].evlan_mask, 0x3FFFu);  // the 14-bit VFI space
    EXPECT_EQ((std::array{hw[2].hw_id, hw[2].phase, hw[2].mac_type}),
              (std::array{8u, 0u, TNL}));
    // The backup keeps each entry's own index, phase always 0.
    for (const hw_entry &b : managed_bak_rows()) {
        EXPECT_EQ(b.phase, 0u);
        EXPECT_EQ(b.hw_id, b.mac_type == OL ? 1u : 0u);
    }
}

TEST_F(TcamTest, CopyToTheSecondTcamLeavesTheFirstPoolEmpty) {
    start({.tcam2_en = true, .copy_to_tcam2 = true, .tcam_cap = 8, .tcam2_cap = 8,
           .evlan_num = 4096 + 16384});
    managed_tpl t(5, 0xFFFFFFFF), filler(0, 0xFFFFFFFF);
    ASSERT_EQ(sw_l3mac_add_tcam_entry(t.tpl, make_mac(NORMAL)), 0);
    ASSERT_EQ(sw_l3mac_add_tcam_entry(t.tpl, make_mac(TNL)), 0);
    EXPECT_EQ(sw_l3mac_add_tcam_entry(filler.tpl, make_mac(OL)), 0);  // VFI filler
    EXPECT_EQ(in_use(0), 0u);
    EXPECT_EQ(in_use(1), 2u);
    auto hw = managed_hw_rows();
    ASSERT_EQ(hw.size(), 2u);
    EXPECT_EQ(hw[0].hw_id, 0u);
    EXPECT_EQ(hw[1].hw_id, 1u);
}

}  // namespace
