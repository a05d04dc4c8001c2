// The direct path: rows of s_route.l3mac_vrrp_hw_res at a record's first
// user and at its last user's departure, the results when memory or a
// table write fails, the STATUS_FAILED row, and a key that moves between the
// direct and the managed path.
#include <tuple>

#include "platform/host/hnx_host.h"
#include "store/l3mac_db.h"
#include "support/managed_world.h"
#include "vrrp/l3mac_vrrp.h"

namespace {

using writes = std::vector<tbl_op>;

// A request's row: evlan_mask and phyid are always 0.
tbl_op hw(bool add, uint32_t evlan, uint32_t type) {
    hw_entry e{.evlan = evlan, .mac_type = type};
    std::memcpy(e.mac.data(), kMacA, 6);
    return {"vrrp", add, e};
}

// Neither TCAM managed unless a test says so: requests take the direct path.
class VrrpTest : public L3macWorld {
protected:
    void start(bool is_mng = false) {
        write_caps({.tcam2_en = is_mng, .is_mng = is_mng, .is_mng2 = false, .copy_to_tcam2 = false});
        bring_up();
        hnx_host_tbl_journal_clear();
    }
    static mac_hw *hw_of(uint32_t evlan, uint32_t type) {
        struct { uint32_t evlan, mask; uint8_t mac[6]; uint8_t type, zero; } key = {};
        key.evlan = evlan;
        std::memcpy(key.mac, kMacA, 6);
        key.type = static_cast<uint8_t>(type);
        return vrrp_db_get(l3mac_ctx.vrrp_db, &key);
    }
    static size_t rows_standing() { return hnx_host_tbl_rows("s_route.l3mac_vrrp_hw_res").size(); }
};

TEST_F(VrrpTest, FirstUserPublishesSecondSharesLastWithdrawsAnEvlanChangeMoves) {
    start();
    ASSERT_EQ(set_row(1, "a", 10, VRRP, kMacA, 1), 0);
    ASSERT_EQ(set_row(2, "b", 10, VRRP, kMacA, 2), 0);  // phyid is no part of the key
    mac_hw *h = hw_of(10, VRRP);
    ASSERT_NE(h, nullptr);
    EXPECT_EQ(h->is_hw, 1);
    EXPECT_EQ(l3mac_users_on(&h->user_head), (std::vector<user_entry *>{user_of(2, "b"), user_of(1, "a")}));
    EXPECT_EQ(managed_journal("vrrp"), writes{hw(true, 10, VRRP)});
    EXPECT_EQ(l3mac_ctx.malloc_db, 3u);
    set_log(5);
    int rv = -1;
    const std::string said = out_of([] { return del_row(1, "a"); }, &rv);  // the second user keeps the row
    ASSERT_EQ(rv, 0);
    EXPECT_EQ(l3mac_count_lines(said, "IN   ", "l3mac_del_hw_entry", "mac hw user head is not empty\n"), 1);
    ASSERT_EQ(del_row(2, "b"), 0);
    EXPECT_EQ(managed_journal("vrrp"), (writes{hw(true, 10, VRRP), hw(false, 10, VRRP)}));
    EXPECT_EQ(hw_of(10, VRRP), nullptr);
    EXPECT_EQ(rows_standing(), 0u);
    EXPECT_EQ(l3mac_ctx.malloc_db, 0u);

    // A phyid change writes nothing; an evlan change withdraws first.
    ASSERT_EQ(set_row(1, "a", 10, VRRP, kMacA, 1), 0);
    hnx_host_tbl_journal_clear();
    ASSERT_EQ(set_row(1, "a", 10, VRRP, kMacA, 5), 0);
    EXPECT_TRUE(hnx_host_tbl_journal().empty());
    EXPECT_EQ(user_of(1, "a")->phyid, 5u);

    ASSERT_EQ(set_row(1, "a", 20, VRRP, kMacA), 0);
    EXPECT_EQ(managed_journal("vrrp"), (writes{hw(false, 10, VRRP), hw(true, 20, VRRP)}));
    EXPECT_EQ(hw_of(10, VRRP), nullptr);
    EXPECT_EQ(user_of(1, "a")->mac_entry, hw_of(20, VRRP));
    EXPECT_EQ(l3mac_ctx.malloc_db, 2u);
}

TEST_F(VrrpTest, NoMemoryChangesNothingAndTheDeleteMissesTheNewKey) {
    start();
    ASSERT_EQ(set_row(1, "a", 10, VRRP, kMacA), 0);
    mac_hw *old_hw = hw_of(10, VRRP);
    hnx_host_tbl_journal_clear();
    l3mac_mem_fail_after = 0;
    EXPECT_EQ(set_row(4, "b", 10, VRRP, kMacA), -2);  // no user entry
    EXPECT_EQ(user_of(4, "b"), nullptr);
    EXPECT_EQ(err_slot(134).data1, 4);
    l3mac_mem_fail_after = 0;
    EXPECT_EQ(set_row(1, "a", 20, VRRP, kMacA), -2);  // no record
    user_entry *e = user_of(1, "a");
    EXPECT_EQ(std::tuple(err_count(134), err_slot(134).data1, e->evlan, e->mac_entry),
              std::tuple(2u, 20, 20u, static_cast<void *>(old_hw)));
    EXPECT_TRUE(hnx_host_tbl_journal().empty());

    EXPECT_EQ(del_row(1, "a"), -7);
    const sw_rt_res_err_slot &miss = err_slot(135);
    EXPECT_EQ(std::tuple(miss.count, miss.data1, miss.data2), std::tuple(1u, 20, 2));
    EXPECT_EQ(user_of(1, "a"), e);
}

TEST_F(VrrpTest, RefusedWriteIsCountedOnceTheRecordStaysMarkedAndAFailureRowIsWritten) {
    start();
    ss_rt_tbl *tbl = l3mac_ctx.tbl_vrrp_hw_res;
    l3mac_ctx.tbl_vrrp_hw_res = nullptr;  // the table service refuses a null table
    EXPECT_EQ(set_row(1, "a", 10, VRRP, kMacA), 0);
    EXPECT_EQ(set_row(2, "b", 10, VRRP, kMacA), 0);
    l3mac_ctx.tbl_vrrp_hw_res = tbl;
    EXPECT_EQ(hw_of(10, VRRP)->is_hw, 1);
    EXPECT_EQ(std::pair(err_count(133), err_slot(133).data1), std::pair(1u, 10));
    EXPECT_EQ(rows_standing(), 0u);

    // The failure row carries the request under its own key.
    l3mac_row r(7, "vr-1", 30, VRRP, kMacA, 9);
    r.attr.is_match_evlan = 1;
    ASSERT_EQ(l3mac_set_msg_proc(r.get()), 0);
    user_entry *e = user_of(7, "vr-1");
    hnx_host_tbl_journal_clear();
    EXPECT_EQ(sw_l3mac_set_vrrp_fail(e), 0);
    const l3mac_res_write want{true, 7, "vr-1", S_ROUTE__L3TABLE_STATUS_E__STATUS_FAILED, true, 30,
                               VRRP, std::vector<uint8_t>(kMacA, kMacA + 6), 0};
    EXPECT_EQ(l3mac_res_writes(), std::vector<l3mac_res_write>{want});
    // The row comes back as a set message and is left alone for its status.
    l3mac_row back(7, "vr-1", 30, VRRP, kMacA, 0, S_ROUTE__L3TABLE_STATUS_E__STATUS_FAILED);
    EXPECT_EQ(l3mac_set_msg_proc(back.get()), 0);
    EXPECT_EQ(e->phyid, 9u);
}

// First TCAM managed: NORMAL takes the managed path, OL the direct one.
TEST_F(VrrpTest, AKeyMovingBetweenThePathsLeavesItsOldRecordByItsOwnRules) {
    start(true);
    ASSERT_EQ(set_row(1, "k", 100, OL, kMacA), 0);
    ASSERT_EQ(set_row(1, "k", 100, NORMAL, kMacA), 0);  // withdrawn and freed
    mac_entry *m = sw_l3mac_get_or_add_mac_db(NORMAL, kMacA, 0, 0);
    EXPECT_EQ(user_of(1, "k")->mac_entry, m);
    EXPECT_EQ(hw_of(100, OL), nullptr);
    settle_all();
    // Back to the direct path: the MAC loses its user and is queued.
    ASSERT_EQ(set_row(1, "k", 200, OL, kMacA), 0);
    EXPECT_TRUE(list_empty(&m->user_head));
    EXPECT_EQ(l3mac_pending(), std::vector<mac_entry *>{m});
    ASSERT_EQ(del_row(1, "k"), 0);
    EXPECT_EQ(managed_journal("vrrp"), (writes{hw(true, 100, OL), hw(false, 100, OL),
                                           hw(true, 200, OL), hw(false, 200, OL)}));
    EXPECT_EQ(l3mac_ctx.malloc_db, 1u);  // the MAC waits for its decision
}

}  // namespace
