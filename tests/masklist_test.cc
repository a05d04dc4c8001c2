// The application of a MAC's new cover: the room test, the order of the
// table writes (adds before deletes unless the pool is full), and what a
// failed or empty change leaves behind.

#include "decision/l3mac_decision.h"
#include "decision/l3mac_masklist.h"
#include "platform/host/hnx_host.h"
#include "support/managed_world.h"

namespace {

const mac6 kA{0x02, 0, 0, 0, 0, 0x0A};

// The output table's writes as {add, hw_id, evlan} (evlan 0 in a delete).
using op3 = std::array<uint32_t, 3>;
std::vector<op3> hw_ops() {
    std::vector<op3> out;
    for (const tbl_op &op : managed_journal("hw_res"))
        out.push_back({op.is_add ? 1u : 0u, op.entry.hw_id, op.entry.evlan});
    return out;
}

// Every output write has its backup write, in the same order.
void expect_backup_follows() {
    std::vector<std::pair<bool, uint32_t>> hw, bak;
    for (const tbl_op &op : managed_journal())
        (op.table == "bak" ? bak : hw).emplace_back(op.is_add, op.is_add ? op.entry.hw_id : 0);
    EXPECT_EQ(hw, bak);
}

const std::vector<op3> kOld{{3, 0xFFF, 249}, {5, 0xFFF, 248}, {6, 0xFFF, 247}};

class MasklistTest : public ManagedWorld {
protected:
    // 247 indexes held elsewhere, and MAC A on {3, 5, 6}: three isolated
    // VLANs, three entries at 247..249 (the cover lists 6, 5, 3).
    void fill_to_250() {
        start({.tcam_cap = 256});
        for (uint32_t i = 0, idx; i < 247; i++) ASSERT_EQ(sw_l3mac_op_add_idx(NORMAL, &idx, 0, 0), 0);
        want(kA, {3, 5, 6});
        sw_l3mac_mac_decision();
        ASSERT_EQ(placed(mac_of(NORMAL, kA)), kOld);
        ASSERT_EQ(in_use(), 250u);
        hnx_host_tbl_journal_clear();
        unwant(kA, {3, 5, 6});
    }
};

// Nine new templates with no two VLANs one bit apart, none equal to an old
// entry: 9 + 250 - 3 = 256 passes. Six adds fill the pool, the seventh
// fails, the three old entries go, and the last three take their places.
TEST_F(MasklistTest, NineTemplatesFillThePoolExactly) {
    fill_to_250();
    want(kA, {9, 10, 12, 15, 17, 18, 20, 23, 24});
    EXPECT_EQ(sw_l3mac_mac_decision(), 0);

    EXPECT_EQ(hw_ops(), (std::vector<op3>{{1, 250, 24}, {1, 251, 23}, {1, 252, 20},
                                          {1, 253, 18}, {1, 254, 17}, {1, 255, 15},
                                          {0, 249, 0}, {0, 248, 0}, {0, 247, 0},
                                          {1, 247, 12}, {1, 248, 10}, {1, 249, 9}}));
    expect_backup_follows();
    EXPECT_EQ(in_use(), 256u);
    EXPECT_FALSE(pending(mac_of(NORMAL, kA)));
}

// With ten templates the sum is 257: nothing moves in either pass, and
// the MAC keeps its entries with one claim each, no longer pending.
TEST_F(MasklistTest, TenTemplatesAreRefusedBeforeAnythingMoves) {
    fill_to_250();
    want(kA, {9, 10, 12, 15, 17, 18, 20, 23, 24, 27});
    EXPECT_EQ(sw_l3mac_mac_decision(), 0);

    EXPECT_TRUE(managed_journal().empty());
    EXPECT_EQ(in_use(), 250u);
    mac_entry *a = mac_of(NORMAL, kA);
    EXPECT_EQ(placed(a), kOld);
    for (const tcam_entry *e : entries_of(a)) EXPECT_EQ(e->ref_cnt, 1u);
    EXPECT_FALSE(pending(a));
    EXPECT_EQ(managed_log_count(root_, "L3MAC table is full."), 1);
}

// One MAC through a sequence: the same request again (nothing written), a
// change (every add before the first delete), an empty cover (MAC freed).
TEST_F(MasklistTest, ChangesOfACoverInSequence) {
    start({.tcam_cap = 64});
    want(kA, {3, 5, 6});
    sw_l3mac_mac_decision();
    const auto before = placed(mac_of(NORMAL, kA));
    hnx_host_tbl_journal_clear();
    want(kA, {3});
    ASSERT_TRUE(pending(mac_of(NORMAL, kA)));
    sw_l3mac_mac_decision();
    EXPECT_TRUE(managed_journal().empty());
    EXPECT_EQ(placed(mac_of(NORMAL, kA)), before);
    EXPECT_FALSE(pending(mac_of(NORMAL, kA)));

    unwant(kA, {5, 6});
    want(kA, {9, 10, 12});
    sw_l3mac_mac_decision();
    // 3 stays untouched; three adds, then the two deletes.
    EXPECT_EQ(hw_ops(), (std::vector<op3>{{1, 3, 12}, {1, 4, 10}, {1, 5, 9},
                                          {0, 1, 0}, {0, 0, 0}}));
    expect_backup_follows();
    hnx_host_tbl_journal_clear();

    unwant(kA, {3, 9, 10, 12});
    sw_l3mac_mac_decision();
    EXPECT_EQ(managed_journal("hw_res").size(), 4u);
    for (const op3 &o : hw_ops()) EXPECT_EQ(o[0], 0u);
    expect_backup_follows();
    EXPECT_EQ(mac_of(NORMAL, kA), nullptr);
    EXPECT_EQ(in_use(), 0u);
    EXPECT_EQ(l3mac_ctx.malloc_db, 0u);
    EXPECT_TRUE(managed_hw_rows().empty() && managed_bak_rows().empty());
}

// Releasing a change that failed keeps the entries and publishes those that
// this process has not yet written; published ones are not written again.
TEST_F(MasklistTest, ReleaseOfAFailedChangePublishesOnlyUnpublishedEntries) {
    start({.tcam_cap = 8});
    want(kA, {3, 5});
    sw_l3mac_mac_decision();
    mac_entry *a = mac_of(NORMAL, kA);
    tcam_entry *restored = entries_of(a)[0];
    restored->is_hw = 0;  // as if restored from the backup
    hnx_host_tbl_journal_clear();

    l3mac_mac_queue(a);
    for (tcam_entry *e : entries_of(a)) e->ref_cnt = 0;
    const uint32_t records = l3mac_ctx.malloc_db;
    mac_masklist *ml = l3mac_alloc_masklist();
    ml->mac = a;
    l3mac_release_masklist(ml);

    EXPECT_FALSE(pending(a));
    for (const tcam_entry *e : entries_of(a))
        EXPECT_EQ((std::pair{e->ref_cnt, e->is_hw}), (std::pair{1u, uint8_t{1}}));
    EXPECT_EQ(hw_ops(), (std::vector<op3>{{1, restored->idx, restored->key.evlan}}));
    expect_backup_follows();
    EXPECT_EQ(l3mac_ctx.malloc_db, records);

    // A settled MAC's release writes nothing.
    hnx_host_tbl_journal_clear();
    ml = l3mac_alloc_masklist();
    ml->mac = a;
    l3mac_release_masklist(ml);
    EXPECT_TRUE(managed_journal().empty());
}

}  // namespace
