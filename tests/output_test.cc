// The backup table read back after a restart: the checks of a row, the
// restore of each entry at its old index, and what a refused row leaves.

#include "support/managed_world.h"
#include "tcam/l3mac_output.h"

namespace {

const mac6 kMac{0x02, 0x00, 0x00, 0x00, 0x00, 0x01};

// A received backup row as kw_mom_scan_sync hands it to its callback.
struct bak_row {
    SRoute__L3macHwAttr attr = S_ROUTE__L3MAC_HW_ATTR__INIT;
    PLibpub__Mac mac = P_LIBPUB__MAC__INIT;
    uint8_t mac_bytes[6];
    SRoute__L3macBak row = S_ROUTE__L3MAC_BAK__INIT;
    kw_mom_scan_rec rec{};

    bak_row(uint32_t evlan, uint32_t mask, uint32_t mac_type, uint32_t idx,
            const mac6 &m = kMac) {
        std::memcpy(mac_bytes, m.data(), 6);
        mac.data.len = 6;
        mac.data.data = mac_bytes;
        attr.evlan = evlan;
        attr.evlan_mask = mask;
        attr.mac_type = mac_type;
        attr.mac = &mac;
        row.index = &attr;
        row.hw_id = idx;
        rec.row = &row.base;
    }
    int check() {
        tcam_entry e;
        if (l3mac_backup_pmsg_parse(&rec, &e) != 0) return -100;
        return l3mac_tcam_param_check(&e);
    }
    int restore() { return l3mac_tcam_gr_backup(nullptr, &rec); }
};

using OutputTest = ManagedWorld;

// {evlan, mask, mac_type, hw_id}, the check's answer and, where given, the
// one line that names the refused condition and its data; on a 16-entry
// TCAM and a board of 4096 evlans (vfi_mask 1).
TEST_F(OutputTest, BackupRowChecksBoundIndexEvlanAndTypeAndLogTheirCondition) {
    start({.tcam_cap = 16});
    set_log(1);
    const uint32_t MAX = S_ROUTE__L3MAC_TYPE_E__L3MAC_MAX;
    const struct { std::array<uint32_t, 4> r; int rc; std::string line; } cases[] = {
        {{1, 0xFFF, NORMAL, 16}, -4, "fail:tcam_entry->idx < cap code:147 data1:16 data2:0\n"},
        {{1, 0xFFF, NORMAL, 15}, 0, ""},
        {{4095, 0xFFF, VRRP, 0}, -4, ""}, {{4094, 0xFFF, VRRP, 0}, 0, ""},
        {{0, 1, OL, 0}, 0, ""},           {{1, 1, OL, 0}, -4, ""},  // the last VFI is invalid
        {{1, 0xFFF, MAX, 0}, -4, "fail:tcam_entry->key.mac_type < S_ROUTE__L3MAC_TYPE_E__L3MAC_MAX "
                                 "code:147 data1:5 data2:0\n"},
        {{1, 0xFFF, SUBIF, 0}, 0, ""},
        {{4095, 0xFFE, NORMAL, 0}, -4, "fail:!L3MAC_TCAM_EVLAN_INVALID(tcam_entry->key.evlan, "
                                       "is_vfi) code:147 data1:4095 data2:4094\n"}};
    for (const auto &[r, rc, line] : cases) {
        bak_row row(r[0], r[1], r[2], r[3]);
        int rv = 0;
        const std::string out = out_of([&] { return row.check(); }, &rv);
        EXPECT_EQ(rv, rc) << r[0] << " " << r[2];
        if (!line.empty()) {
            EXPECT_EQ(out, l3mac_line("ERROR", "l3mac_tcam_param_check", err_slot(147).line, line));
        }
    }
    EXPECT_EQ(err_count(147), 5u);
}

TEST_F(OutputTest, RestoreTakesTheOldIndexesQueuesTheMacOnceAndSkipsATcamWithoutPool) {
    start({.tcam_cap = 16});
    ASSERT_EQ(bak_row(10, 0xFFF, NORMAL, 5).restore(), 0);
    ASSERT_EQ(bak_row(20, 0xFFE, NORMAL, 9).restore(), 0);
    mac_entry *mac = mac_of(NORMAL, kMac);
    ASSERT_NE(mac, nullptr);
    EXPECT_EQ(placed(mac), (std::vector<std::array<uint32_t, 3>>{{10, 0xFFF, 5}, {20, 0xFFE, 9}}));
    for (const tcam_entry *e : entries_of(mac))
        EXPECT_EQ((std::tuple{e->valid, e->is_hw, e->ref_cnt}), (std::tuple{1, 0, 1u}));
    // A row of a TCAM that this board has no pool for (the profile lost its
    // second TCAM) is skipped: the null pool answers with a code.
    const uint32_t records = l3mac_ctx.malloc_db;
    EXPECT_NE(bak_row(10, 0xFFF, TNL, 1).restore(), 0);
    EXPECT_EQ(std::pair(mac_of(TNL, kMac), l3mac_ctx.malloc_db), std::pair(static_cast<mac_entry *>(nullptr), records));
    EXPECT_EQ(l3mac_pending(), std::vector<mac_entry *>{mac});
    EXPECT_TRUE(managed_journal().empty());
}

// The index taken for a record that cannot get its MAC goes back to the
// pool, so that the row can be restored later at the same place.
TEST_F(OutputTest, NoMemoryForTheMacGivesTheIndexBack) {
    start({.tcam_cap = 16});
    l3mac_mem_fail_after = 1;  // the TCAM record is made, its MAC is not
    EXPECT_EQ(bak_row(20, 0xFFF, NORMAL, 7).restore(), -2);
    EXPECT_EQ(err_count(134), 1u);
    EXPECT_EQ(in_use(), 0u);
    EXPECT_EQ(bak_row(20, 0xFFF, NORMAL, 7).restore(), 0);
    EXPECT_EQ(entries_of(mac_of(NORMAL, kMac))[0]->idx, 7u);
}

// Two rows of one entry (backup_fuzz: MACs that are not 6 bytes read alike):
// the second row's index was taken too, and the first's stayed taken for good.
TEST_F(OutputTest, ASecondRowOfARestoredEntryGivesItsFirstIndexBack) {
    start({.tcam_cap = 16});
    ASSERT_EQ(bak_row(20, 0xFFF, NORMAL, 7).restore(), 0);
    EXPECT_EQ(bak_row(20, 0xFFF, NORMAL, 3).restore(), 0);
    EXPECT_EQ(in_use(), 1u);
    const auto entries = entries_of(mac_of(NORMAL, kMac));
    EXPECT_TRUE(entries.size() == 1 && entries[0]->idx == 3u);
}

}  // namespace
