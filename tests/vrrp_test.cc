// The direct path: rows of s_route.l3mac_vrrp_hw_res at a record's first
// user and at its last user's departure, the results when memory or a
// table write fails, the STATUS_FAILED row, and keys that move between the
// direct and the managed path.
#include <array>
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "decision/l3mac_mac.h"
#include "frame/l3mac_ctx.h"
#include "frame/l3mac_mem.h"
#include "platform/host/hnx_host.h"
#include "request/l3mac_user.h"
#include "store/l3mac_db.h"
#include "support/l3mac_world.h"
#include "vrrp/l3mac_vrrp.h"

namespace {

const uint8_t kMacA[6] = {0x00, 0x0a, 0x00, 0x00, 0x00, 0x01};
const uint8_t kMacB[6] = {0x00, 0x0b, 0x00, 0x00, 0x00, 0x02};
constexpr uint32_t NORMAL = S_ROUTE__L3MAC_TYPE_E__L3MAC_NORMAL;
constexpr uint32_t OL = S_ROUTE__L3MAC_TYPE_E__L3MAC_OL;
constexpr uint32_t VRRP = S_ROUTE__L3MAC_TYPE_E__L3MAC_VRRP;

std::array<uint8_t, 6> arr(const uint8_t (&m)[6]) {
    std::array<uint8_t, 6> a;
    std::memcpy(a.data(), m, 6);
    return a;
}

l3mac_hw_write row_add(uint32_t evlan, uint32_t type, const uint8_t (&m)[6]) {
    return {true, evlan, 0, type, arr(m), 0};
}

l3mac_hw_write row_del(uint32_t evlan, uint32_t type, const uint8_t (&m)[6]) {
    return {false, evlan, 0, type, arr(m), 0};
}

using writes = std::vector<l3mac_hw_write>;

class DirectWorld : public L3macWorld {
protected:
    void start(const l3mac_caps &caps) {
        write_caps(caps);
        bring_up();
        hnx_host_tbl_journal_clear();
    }
    static user_entry *find(uint32_t user, const std::string &uuid) {
        return l3mac_get_or_add_user_db(user, uuid.c_str(), 0);
    }
    static mac_hw *hw_of(uint32_t evlan, uint32_t type, const uint8_t (&m)[6]) {
        struct {
            uint32_t evlan, mask;
            uint8_t mac[6];
            uint8_t type, zero;
        } key = {};
        key.evlan = evlan;
        std::memcpy(key.mac, m, 6);
        key.type = static_cast<uint8_t>(type);
        return vrrp_db_get(l3mac_ctx.vrrp_db, &key);
    }
    static size_t rows_standing() {
        return hnx_host_tbl_rows("s_route.l3mac_vrrp_hw_res").size();
    }
};

// Neither TCAM managed: every request takes the direct path.
class VrrpTest : public DirectWorld {
protected:
    void SetUp() override {
        DirectWorld::SetUp();
        l3mac_caps caps;
        caps.is_mng = false;
        caps.is_mng2 = false;
        start(caps);
    }
};

TEST_F(VrrpTest, FirstUserPublishesSecondSharesLastWithdraws) {
    ASSERT_EQ(set_row(1, "a", 10, VRRP, kMacA, 1), 0);
    ASSERT_EQ(set_row(2, "b", 10, VRRP, kMacA, 2), 0);  // phyid is no part of the key
    mac_hw *hw = hw_of(10, VRRP, kMacA);
    ASSERT_NE(hw, nullptr);
    EXPECT_EQ(hw->is_hw, 1);
    EXPECT_EQ(l3mac_users_on(&hw->user_head), (std::vector<user_entry *>{find(2, "b"), find(1, "a")}));
    EXPECT_EQ(l3mac_vrrp_writes(), writes{row_add(10, VRRP, kMacA)});
    EXPECT_EQ(rows_standing(), 1u);
    EXPECT_EQ(l3mac_ctx.malloc_db, 3u);

    ASSERT_EQ(del_row(1, "a"), 0);
    EXPECT_EQ(l3mac_vrrp_writes().size(), 1u);
    ASSERT_EQ(del_row(2, "b"), 0);
    EXPECT_EQ(l3mac_vrrp_writes(), (writes{row_add(10, VRRP, kMacA), row_del(10, VRRP, kMacA)}));
    EXPECT_EQ(hw_of(10, VRRP, kMacA), nullptr);
    EXPECT_EQ(rows_standing(), 0u);
    EXPECT_EQ(l3mac_ctx.malloc_db, 0u);
}

TEST_F(VrrpTest, RepeatedAddAndPhyidChangeWriteNothing) {
    ASSERT_EQ(set_row(1, "a", 10, VRRP, kMacA, 1), 0);
    hnx_host_tbl_journal_clear();
    set_log(5);
    capture_stdout();
    ASSERT_EQ(set_row(1, "a", 10, VRRP, kMacA, 1), 0);
    ASSERT_EQ(set_row(1, "a", 10, VRRP, kMacA, 5), 0);
    const std::string out = captured_stdout();
    EXPECT_EQ(l3mac_count_lines(out, "IN   ", "l3mac_user_bind_mac_hw", "not change\n"), 2) << out;
    EXPECT_TRUE(hnx_host_tbl_journal().empty());
    EXPECT_EQ(find(1, "a")->phyid, 5u);
}

TEST_F(VrrpTest, EvlanChangeWithdrawsTheOldRowBeforePublishingTheNew) {
    ASSERT_EQ(set_row(1, "a", 10, VRRP, kMacA), 0);
    hnx_host_tbl_journal_clear();
    ASSERT_EQ(set_row(1, "a", 20, VRRP, kMacA), 0);
    EXPECT_EQ(l3mac_vrrp_writes(), (writes{row_del(10, VRRP, kMacA), row_add(20, VRRP, kMacA)}));
    EXPECT_EQ(hw_of(10, VRRP, kMacA), nullptr);
    ASSERT_NE(hw_of(20, VRRP, kMacA), nullptr);
    EXPECT_EQ(find(1, "a")->mac_entry, hw_of(20, VRRP, kMacA));
    EXPECT_EQ(l3mac_ctx.malloc_db, 2u);
}

TEST_F(VrrpTest, FirstAddWarnsFromTheUnbindAndAnyNumberPasses) {
    set_log(4);
    capture_stdout();
    ASSERT_EQ(set_row(1, "a", 100000, NORMAL, kMacB, 9), 0);
    const std::string out = captured_stdout();
    EXPECT_EQ(l3mac_count_lines(out, "WARN ", "l3mac_user_unbind_mac_hw",
                                "fail:!list_empty(&user_info->mac_lst) data1:0 data2:0\n"),
              1)
        << out;
    // evlan_mask and phyid are 0 in every row made from a request.
    EXPECT_EQ(l3mac_vrrp_writes(), writes{row_add(100000, NORMAL, kMacB)});
}

TEST_F(VrrpTest, NoMemoryForTheUserEntryChangesNothing) {
    ASSERT_EQ(set_row(1, "a", 10, VRRP, kMacA), 0);
    hnx_host_tbl_journal_clear();
    l3mac_mem_fail_after = 0;
    EXPECT_EQ(set_row(4, "b", 10, VRRP, kMacA), -2);
    EXPECT_EQ(find(4, "b"), nullptr);
    EXPECT_EQ(err_count(134), 1u);
    EXPECT_EQ(err_slot(134).data1, 4);
    EXPECT_TRUE(hnx_host_tbl_journal().empty());
}

TEST_F(VrrpTest, NoMemoryForTheRecordKeepsTheOldOneAndTheDeleteMissesIt) {
    ASSERT_EQ(set_row(1, "a", 10, VRRP, kMacA), 0);
    mac_hw *old_hw = hw_of(10, VRRP, kMacA);
    hnx_host_tbl_journal_clear();
    l3mac_mem_fail_after = 0;
    set_log(1);
    capture_stdout();
    EXPECT_EQ(set_row(1, "a", 20, VRRP, kMacA), -2);
    std::string out = captured_stdout();
    EXPECT_EQ(out, l3mac_line("ERROR", "sw_l3mac_add_vrrp_msg", err_slot(134).line,
                              "fail:mac_hw != NULL code:134 data1:20 data2:2\n"));
    user_entry *e = find(1, "a");
    EXPECT_EQ(e->evlan, 20u);
    EXPECT_EQ(e->mac_entry, old_hw);
    EXPECT_TRUE(hnx_host_tbl_journal().empty());

    EXPECT_EQ(del_row(1, "a"), -7);
    EXPECT_EQ(err_count(135), 1u);
    EXPECT_EQ(err_slot(135).data1, 20);
    EXPECT_EQ(err_slot(135).data2, 2);
    EXPECT_EQ(find(1, "a"), e);

    EXPECT_EQ(del_row(3, "none"), -7);
    EXPECT_EQ(err_count(135), 2u);
    EXPECT_EQ(err_slot(135).data1, 3);
}

TEST_F(VrrpTest, RefusedWriteIsCountedOnceAndTheRecordStaysMarked) {
    ss_rt_tbl *tbl = l3mac_ctx.tbl_vrrp_hw_res;
    l3mac_ctx.tbl_vrrp_hw_res = nullptr;  // the table service refuses a null table
    EXPECT_EQ(set_row(1, "a", 10, VRRP, kMacA), 0);
    EXPECT_EQ(set_row(2, "b", 10, VRRP, kMacA), 0);
    l3mac_ctx.tbl_vrrp_hw_res = tbl;
    mac_hw *hw = hw_of(10, VRRP, kMacA);
    ASSERT_NE(hw, nullptr);
    EXPECT_EQ(hw->is_hw, 1);
    EXPECT_EQ(err_count(133), 1u);
    EXPECT_EQ(err_slot(133).data1, 10);
    EXPECT_EQ(err_slot(133).data2, 0);
    EXPECT_EQ(rows_standing(), 0u);
}

TEST_F(VrrpTest, FailureRowCarriesTheRequestUnderItsOwnKey) {
    l3mac_row r(7, "vr-1", 30, VRRP, kMacA, 9);
    r.attr.is_match_evlan = 1;
    ASSERT_EQ(l3mac_set_msg_proc(r.get()), 0);
    user_entry *e = find(7, "vr-1");
    hnx_host_tbl_journal_clear();
    set_log(5);
    capture_stdout();
    EXPECT_EQ(sw_l3mac_set_vrrp_fail(e), 0);
    const std::string out = captured_stdout();
    EXPECT_EQ(l3mac_count_lines(out, "IN   ", "sw_l3mac_set_vrrp_fail",
                                "tcam change failed : user:7, uuid:vr-1, evlan:30, mac_type:2, "
                                "mac:00:0a:00:00:00:01\n"),
              1)
        << out;

    const std::vector<l3mac_res_write> rows = l3mac_res_writes();
    ASSERT_EQ(rows.size(), 1u);
    const l3mac_res_write &w = rows[0];
    EXPECT_TRUE(w.is_add);
    EXPECT_EQ(w.user, 7u);
    EXPECT_EQ(w.uuid, "vr-1");
    EXPECT_EQ(w.status, static_cast<uint32_t>(S_ROUTE__L3TABLE_STATUS_E__STATUS_FAILED));
    EXPECT_TRUE(w.is_match_evlan);
    EXPECT_EQ(w.evlan, 30u);
    EXPECT_EQ(w.mac_type, VRRP);
    EXPECT_EQ(w.mac, std::vector<uint8_t>(kMacA, kMacA + 6));
    EXPECT_EQ(w.phyid, 0u);

    // The row comes back as a set message and is left alone for its status.
    l3mac_row back(7, "vr-1", 30, VRRP, kMacA, 0, S_ROUTE__L3TABLE_STATUS_E__STATUS_FAILED);
    EXPECT_EQ(l3mac_set_msg_proc(back.get()), 0);
    EXPECT_EQ(find(7, "vr-1"), e);
    EXPECT_EQ(e->phyid, 9u);
}

// The first TCAM managed, the second not: NORMAL and VRRP requests take the
// managed path, OL requests the direct one.
class PathChangeTest : public DirectWorld {
protected:
    void SetUp() override {
        DirectWorld::SetUp();
        l3mac_caps caps;
        caps.is_mng = true;
        caps.is_mng2 = false;
        caps.tcam2_en = true;
        caps.copy_to_tcam2 = false;
        start(caps);
    }
    static mac_entry *mac_of(uint32_t type, const uint8_t (&m)[6]) {
        return sw_l3mac_get_or_add_mac_db(static_cast<uint8_t>(type), m, 0, 0);
    }
    static l3mac_msg msg_of(uint32_t user, const char *uuid, uint32_t evlan, uint32_t type,
                            const uint8_t (&m)[6]) {
        l3mac_msg msg = {};
        msg.mng_info.user = static_cast<uint8_t>(user);
        std::strcpy(msg.uuid, uuid);
        msg.attr.evlan = evlan;
        msg.attr.mac_type = static_cast<uint8_t>(type);
        std::memcpy(msg.attr.mac, m, 6);
        return msg;
    }
};

TEST_F(PathChangeTest, AKeyMovingBetweenThePathsLeavesItsOldRecordByItsOwnRules) {
    ASSERT_EQ(set_row(1, "k", 100, OL, kMacA), 0);
    user_entry *e = find(1, "k");
    EXPECT_TRUE(l3mac_is_mac_hw(e->mac_entry));
    EXPECT_EQ(l3mac_vrrp_writes(), writes{row_add(100, OL, kMacA)});

    // To the managed path: the row is withdrawn and the record freed.
    ASSERT_EQ(set_row(1, "k", 100, NORMAL, kMacA), 0);
    mac_entry *m = mac_of(NORMAL, kMacA);
    ASSERT_NE(m, nullptr);
    EXPECT_EQ(e->mac_entry, m);
    EXPECT_FALSE(l3mac_is_mac_hw(e->mac_entry));
    EXPECT_EQ(hw_of(100, OL, kMacA), nullptr);
    EXPECT_EQ(l3mac_vrrp_writes(), (writes{row_add(100, OL, kMacA), row_del(100, OL, kMacA)}));

    // Back to the direct path: the MAC loses its user and is queued.
    while (!list_empty(&l3mac_pending_head)) list_del_init(l3mac_pending_head.next);
    hnx_host_tbl_journal_clear();
    ASSERT_EQ(set_row(1, "k", 200, OL, kMacA), 0);
    EXPECT_EQ(l3mac_vrrp_writes(), writes{row_add(200, OL, kMacA)});
    EXPECT_TRUE(list_empty(&m->user_head));
    EXPECT_EQ(l3mac_pending(), std::vector<mac_entry *>{m});
    EXPECT_EQ(e->mac_entry, hw_of(200, OL, kMacA));
    hnx_host_tbl_journal_clear();
    ASSERT_EQ(del_row(1, "k"), 0);
    EXPECT_EQ(l3mac_vrrp_writes(), writes{row_del(200, OL, kMacA)});
    EXPECT_EQ(find(1, "k"), nullptr);
    EXPECT_EQ(l3mac_ctx.malloc_db, 1u);  // the MAC waits for its decision
}

TEST_F(PathChangeTest, DebugCommandsOnTheManagedPathMeetDirectKeys) {
    // del-mac-user on a key of the direct path withdraws its row.
    ASSERT_EQ(set_row(1, "d", 100, OL, kMacA), 0);
    l3mac_msg del = msg_of(1, "d", 0, 0, kMacA);
    EXPECT_EQ(sw_l3mac_del_user_entry(&del), 0);
    EXPECT_EQ(find(1, "d"), nullptr);
    EXPECT_EQ(hw_of(100, OL, kMacA), nullptr);
    EXPECT_EQ(l3mac_vrrp_writes(), (writes{row_add(100, OL, kMacA), row_del(100, OL, kMacA)}));

    // add-mac-user binds an OL key on the managed path; the user's delete
    // goes the direct way by its mac_type and releases the MAC.
    hnx_host_tbl_journal_clear();
    l3mac_msg add = msg_of(1, "m", 300, OL, kMacB);
    ASSERT_EQ(sw_l3mac_add_user_entry(&add), 0);
    mac_entry *m = mac_of(OL, kMacB);
    ASSERT_NE(m, nullptr);
    EXPECT_EQ(find(1, "m")->mac_entry, m);
    EXPECT_EQ(del_row(1, "m"), 0);
    EXPECT_EQ(find(1, "m"), nullptr);
    EXPECT_TRUE(list_empty(&m->user_head));
    EXPECT_TRUE(hnx_host_tbl_journal().empty());
}

}  // namespace
