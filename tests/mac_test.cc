// MAC entries: the first bind, lookups that create nothing, the VFI kind,
// idempotent queueing, unbinding an unbound entry, a MAC whose last user
// left, and requests whose number has no bit in the VLAN set.
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "decision/l3mac_decision.h"
#include "decision/l3mac_mac.h"
#include "frame/l3mac_ctx.h"
#include "frame/l3mac_ds.h"
#include "request/l3mac_user.h"
#include "support/l3mac_world.h"

namespace {

const uint8_t kMacA[6] = {0x00, 0x0a, 0x00, 0x00, 0x00, 0x01};
const uint8_t kMacB[6] = {0x00, 0x0b, 0x00, 0x00, 0x00, 0x02};
const uint8_t kMacC[6] = {0x00, 0x0c, 0x00, 0x00, 0x00, 0x03};
constexpr uint32_t NORMAL = S_ROUTE__L3MAC_TYPE_E__L3MAC_NORMAL;
constexpr uint32_t OL = S_ROUTE__L3MAC_TYPE_E__L3MAC_OL;

using macs = std::vector<mac_entry *>;

class MacTest : public L3macWorld {
protected:
    void start(const l3mac_caps &caps = {}) {
        write_caps(caps);
        bring_up();
    }
    static mac_entry *mac_of(uint32_t type, const uint8_t (&mac)[6], uint32_t phyid = 0) {
        return sw_l3mac_get_or_add_mac_db(static_cast<uint8_t>(type), mac, phyid, 0);
    }
    static bool bitmap_empty(const mac_entry *m) {
        for (uint32_t w : m->evlan_bmp.bmp)
            if (w) return false;
        return true;
    }
};

TEST_F(MacTest, FirstAddWarnsFromTheUnbindAndLeavesAPendingMacWithNoBits) {
    start();
    set_log(4);
    capture_stdout();
    ASSERT_EQ(set_row(1, "a", 100, NORMAL, kMacA, 7), 0);
    const std::string out = captured_stdout();
    EXPECT_EQ(l3mac_count_lines(out, "WARN ", "sw_l3mac_op_user_unbind_mac",
                                "fail:!list_empty(&user_info->mac_lst) data1:0 data2:0\n"),
              1)
        << out;
    mac_entry *m = mac_of(NORMAL, kMacA, 7);
    ASSERT_NE(m, nullptr);
    EXPECT_EQ(l3mac_pending(), macs{m});
    EXPECT_TRUE(bitmap_empty(m));  // the decision alone writes the bitmap
    EXPECT_EQ(m->evlan_bmp.is_vfi, 0);
    EXPECT_TRUE(list_empty(&m->tcam_head));
    EXPECT_EQ(m->phyid, 7u);
}

TEST_F(MacTest, LookupWithoutTheAddFlagCreatesNothing) {
    start();
    set_log(5);
    capture_stdout();
    EXPECT_EQ(mac_of(NORMAL, kMacA), nullptr);
    const std::string out = captured_stdout();
    EXPECT_EQ(l3mac_count_lines(out, "IN   ", "sw_l3mac_get_or_add_mac_db", "mac db: -4\n"), 1)
        << out;
    EXPECT_EQ(l3mac_ctx.malloc_db, 0u);
}

TEST_F(MacTest, OverlayMacsCountInVfis) {
    l3mac_caps caps;
    caps.tcam2_en = true;
    start(caps);
    ASSERT_EQ(set_row(1, "a", 5000, OL, kMacA), 0);
    mac_entry *m = mac_of(OL, kMacA);
    ASSERT_NE(m, nullptr);
    EXPECT_EQ(m->evlan_bmp.is_vfi, 1);
}

TEST_F(MacTest, QueueingAPendingMacChangesNeitherPlaceNorLinks) {
    start();
    ASSERT_EQ(set_row(1, "a", 10, NORMAL, kMacA), 0);
    ASSERT_EQ(set_row(1, "b", 10, NORMAL, kMacB), 0);
    ASSERT_EQ(set_row(1, "c", 10, NORMAL, kMacC), 0);
    mac_entry *b = mac_of(NORMAL, kMacB);
    const list_head links = b->pending_lst;
    const macs before = l3mac_pending();
    l3mac_mac_queue(b);
    ASSERT_EQ(set_row(1, "b2", 11, NORMAL, kMacB), 0);
    EXPECT_EQ(l3mac_pending(), before);
    EXPECT_EQ(b->pending_lst.next, links.next);
    EXPECT_EQ(b->pending_lst.prev, links.prev);
}

TEST_F(MacTest, UnbindingAnUnboundEntryOnlyWarns) {
    start();
    user_entry *e = l3mac_get_or_add_user_db(5, "x", 1);
    ASSERT_NE(e, nullptr);
    set_log(4);
    capture_stdout();
    EXPECT_EQ(sw_l3mac_op_user_unbind_mac(e), 0);
    EXPECT_EQ(l3mac_count_of(captured_stdout(), "fail:!list_empty(&user_info->mac_lst)"), 1);
    EXPECT_TRUE(l3mac_pending().empty());
    for (const sw_rt_res_err_slot &s : g_sw_rt_res_ss_err_cnt) EXPECT_EQ(s.count, 0u);
}

TEST_F(MacTest, AMacWhoseLastUserLeftStaysUntilTheDecision) {
    start();
    ASSERT_EQ(set_row(1, "a", 10, NORMAL, kMacA), 0);
    ASSERT_EQ(del_row(1, "a"), 0);
    mac_entry *m = mac_of(NORMAL, kMacA);
    ASSERT_NE(m, nullptr);
    EXPECT_TRUE(list_empty(&m->user_head));
    EXPECT_EQ(l3mac_pending(), macs{m});

    l3mac_data_check();  // the first working round frees it
    EXPECT_EQ(mac_of(NORMAL, kMacA), nullptr);
    EXPECT_TRUE(l3mac_pending().empty());
    EXPECT_EQ(l3mac_ctx.malloc_db, 0u);
}

// With the first TCAM's flag clear and the second TCAM taking every kind,
// no range test stands between a request and the managed path.
TEST_F(MacTest, ANumberWithoutABitIsRefusedByTheManagedAdd) {
    l3mac_caps caps;
    caps.is_mng = false;
    caps.tcam2_en = true;
    start(caps);
    ASSERT_EQ(l3mac_get_tcam_id(NORMAL), 1);

    EXPECT_EQ(set_row(1, "a", 16384, NORMAL, kMacA), -4);
    EXPECT_EQ(l3mac_get_or_add_user_db(1, "a", 0), nullptr);
    EXPECT_EQ(mac_of(NORMAL, kMacA), nullptr);
    EXPECT_EQ(err_count(53), 1u);
    EXPECT_EQ(err_slot(53).data1, 16384);
    EXPECT_EQ(err_slot(53).data2, 0);

    // The debug commands' road goes the same way.
    l3mac_msg msg = {};
    msg.mng_info.user = 1;
    std::strcpy(msg.uuid, "b");
    msg.attr.evlan = 100000;
    EXPECT_EQ(sw_l3mac_add_user_entry(&msg), -4);
    EXPECT_EQ(err_count(53), 2u);

    // An existing request keeps what it had.
    ASSERT_EQ(set_row(1, "a", 16383, NORMAL, kMacA), 0);
    EXPECT_EQ(set_row(1, "a", 20000, NORMAL, kMacA), -4);
    EXPECT_EQ(l3mac_get_or_add_user_db(1, "a", 0)->evlan, 16383u);
}

}  // namespace
