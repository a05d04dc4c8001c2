// MAC entries: the first bind, lookups that create nothing, the VFI kind,
// idempotent queueing, a MAC whose last user left, and requests whose
// number has no bit in the VLAN set.
#include "decision/l3mac_decision.h"
#include "decision/l3mac_mac.h"
#include "frame/l3mac_ctx.h"
#include "frame/l3mac_ds.h"
#include "request/l3mac_user.h"
#include "support/l3mac_world.h"

namespace {

const uint8_t kMacA[6] = {0x00, 0x0a, 0x00, 0x00, 0x00, 0x01};
const uint8_t kMacB[6] = {0x00, 0x0b, 0x00, 0x00, 0x00, 0x02};
using macs = std::vector<mac_entry *>;

class MacTest : public L3macWorld {
protected:
    void start(const l3mac_caps &caps = {}) {
        write_caps(caps);
        bring_up();
    }
};

TEST_F(MacTest, FirstAddLeavesAPendingMacWithNoBitsAndLookupsCreateNothing) {
    start({true, true, true, false});
    EXPECT_EQ(mac_of(NORMAL, kMacA), nullptr);
    EXPECT_EQ(l3mac_ctx.malloc_db, 0u);
    ASSERT_EQ(set_row(1, "a", 100, NORMAL, kMacA, 7), 0);
    mac_entry *m = mac_of(NORMAL, kMacA, 7);
    ASSERT_NE(m, nullptr);
    EXPECT_EQ(l3mac_pending(), macs{m});
    for (uint32_t w : m->evlan_bmp.bmp) EXPECT_EQ(w, 0u);  // the decision alone writes it
    EXPECT_EQ(m->evlan_bmp.is_vfi, 0);
    EXPECT_TRUE(list_empty(&m->tcam_head));
    ASSERT_EQ(set_row(1, "o", 5000, OL, kMacA), 0);  // overlay MACs count in VFIs
    EXPECT_EQ(mac_of(OL, kMacA)->evlan_bmp.is_vfi, 1);
}

TEST_F(MacTest, QueueingAPendingMacChangesNeitherPlaceNorLinks) {
    start();
    for (const char *u : {"a", "b"}) ASSERT_EQ(set_row(1, u, 10, NORMAL, u[0] == 'a' ? kMacA : kMacB), 0);
    mac_entry *a = mac_of(NORMAL, kMacA);
    const list_head links = a->pending_lst;
    const macs before = l3mac_pending();
    l3mac_mac_queue(a);
    ASSERT_EQ(set_row(1, "a2", 11, NORMAL, kMacA), 0);
    EXPECT_EQ(l3mac_pending(), before);
    EXPECT_EQ(std::tie(a->pending_lst.next, a->pending_lst.prev), std::tie(links.next, links.prev));
}

TEST_F(MacTest, AMacWhoseLastUserLeftStaysUntilTheDecision) {
    start();
    ASSERT_EQ(set_row(1, "a", 10, NORMAL, kMacA), 0);
    ASSERT_EQ(del_row(1, "a"), 0);
    mac_entry *m = mac_of(NORMAL, kMacA);
    ASSERT_NE(m, nullptr);
    EXPECT_EQ(l3mac_pending(), macs{m});
    l3mac_data_check();  // the first working round frees it
    EXPECT_EQ(mac_of(NORMAL, kMacA), nullptr);
    EXPECT_TRUE(l3mac_pending().empty());
    EXPECT_EQ(l3mac_ctx.malloc_db, 0u);
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
