// MAC entries: the first bind, lookups that create nothing, the VFI kind,
// and requests whose number has no bit in the VLAN set. (Queueing once and
// a MAC that its last user left: the user and mask-list tests.)
#include "support/l3mac_world.h"

namespace {

class MacTest : public L3macWorld {
protected:
    void start(const l3mac_caps &caps) {
        write_caps(caps);
        bring_up();
    }
};

TEST_F(MacTest, FirstAddLeavesAPendingMacWithNoBitsAndLookupsCreateNothing) {
    start({.tcam2_en = true, .is_mng = true, .is_mng2 = true, .copy_to_tcam2 = false,
           .evlan_num = 4096 + 8192});
    EXPECT_EQ(mac_of(NORMAL, kMacA), nullptr);
    EXPECT_EQ(l3mac_ctx.malloc_db, 0u);
    ASSERT_EQ(set_row(1, "a", 100, NORMAL, kMacA, 7), 0);
    mac_entry *m = mac_of(NORMAL, kMacA, 7);
    ASSERT_NE(m, nullptr);
    EXPECT_EQ(l3mac_pending(), std::vector<mac_entry *>{m});
    for (uint32_t w : m->evlan_bmp.bmp) EXPECT_EQ(w, 0u);  // the decision alone writes it
    EXPECT_EQ(m->evlan_bmp.is_vfi, 0);
    EXPECT_TRUE(list_empty(&m->tcam_head));
    ASSERT_EQ(set_row(1, "o", 5000, OL, kMacA), 0);  // overlay MACs count in VFIs
    EXPECT_EQ(mac_of(OL, kMacA)->evlan_bmp.is_vfi, 1);
}

// With the first TCAM's flag clear and the second TCAM taking every kind,
// no range test stands between a request and the managed path.
TEST_F(MacTest, ANumberWithoutABitIsRefusedByTheManagedAdd) {
    start({true, false});
    ASSERT_EQ(l3mac_get_tcam_id(NORMAL), 1);
    EXPECT_EQ(set_row(1, "a", 16384, NORMAL, kMacA), -4);
    EXPECT_EQ(l3mac_get_or_add_user_db(1, "a", 0), nullptr);
    EXPECT_EQ(mac_of(NORMAL, kMacA), nullptr);
    EXPECT_EQ(err_count(53), 1u);
    EXPECT_EQ(err_slot(53).data1, 16384);
    // An existing request keeps what it had.
    ASSERT_EQ(set_row(1, "a", 16383, NORMAL, kMacA), 0);
    EXPECT_EQ(set_row(1, "a", 20000, NORMAL, kMacA), -4);
    EXPECT_EQ(l3mac_get_or_add_user_db(1, "a", 0)->evlan, 16383u);
}

}  // namespace
