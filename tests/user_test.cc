// User entries of the managed path: updates as re-statements, the order of
// a MAC's users and of the pending list, the two budgets of direct
// decisions, and the results when memory runs out.
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "decision/l3mac_decision.h"
#include "decision/l3mac_mac.h"
#include "frame/l3mac_ctx.h"
#include "frame/l3mac_mem.h"
#include "request/l3mac_user.h"
#include "support/l3mac_world.h"

namespace {

const uint8_t kMacA[6] = {0x00, 0x0a, 0x00, 0x00, 0x00, 0x01};
const uint8_t kMacB[6] = {0x00, 0x0b, 0x00, 0x00, 0x00, 0x02};
const uint8_t kMacC[6] = {0x00, 0x0c, 0x00, 0x00, 0x00, 0x03};
constexpr uint32_t NORMAL = S_ROUTE__L3MAC_TYPE_E__L3MAC_NORMAL;
constexpr uint32_t VRRP = S_ROUTE__L3MAC_TYPE_E__L3MAC_VRRP;

const std::string kDecisionRan = "fail:l3mac_is_ds_end() data1:0 data2:0\n";

class UserTest : public L3macWorld {
protected:
    void SetUp() override {
        L3macWorld::SetUp();
        write_caps({});
        bring_up();
    }
    static user_entry *find(uint32_t user, const std::string &uuid) {
        return l3mac_get_or_add_user_db(user, uuid.c_str(), 0);
    }
    static mac_entry *mac_of(uint32_t type, const uint8_t (&mac)[6], uint32_t phyid = 0) {
        return sw_l3mac_get_or_add_mac_db(static_cast<uint8_t>(type), mac, phyid, 0);
    }
    // Takes every MAC off the pending list, as a finished decision does.
    static void settle_all() {
        while (!list_empty(&l3mac_pending_head)) list_del_init(l3mac_pending_head.next);
    }
    // Direct decisions run before smoothing, each one leaving its warning.
    static int decisions_in(const std::string &out) {
        return l3mac_count_lines(out, "WARN ", "sw_l3mac_mac_decision", kDecisionRan);
    }
};

using users = std::vector<user_entry *>;
using macs = std::vector<mac_entry *>;

TEST_F(UserTest, SameRequestTwiceKeepsOneEntryAndQueuesItsMacAgain) {
    ASSERT_EQ(set_row(1, "a", 10, NORMAL, kMacA), 0);
    user_entry *e = find(1, "a");
    mac_entry *m = mac_of(NORMAL, kMacA);
    ASSERT_NE(e, nullptr);
    ASSERT_NE(m, nullptr);
    settle_all();

    set_log(5);
    capture_stdout();
    ASSERT_EQ(set_row(1, "a", 10, NORMAL, kMacA), 0);
    const std::string out = captured_stdout();
    EXPECT_EQ(find(1, "a"), e);
    EXPECT_EQ(l3mac_users_on(&m->user_head), users{e});
    EXPECT_EQ(l3mac_pending(), macs{m});
    EXPECT_EQ(l3mac_ctx.malloc_db, 2u);
    EXPECT_EQ(l3mac_ctx.commom_decision_cnt, 2u);
    EXPECT_EQ(l3mac_count_lines(out, "IN   ", "sw_l3mac_op_user_bind_mac",
                                "mac entry not chg, but user update\n"),
              1);
}

TEST_F(UserTest, EvlanOrFlagChangeStaysOnTheSameMac) {
    ASSERT_EQ(set_row(1, "a", 10, NORMAL, kMacA), 0);
    l3mac_row r(1, "a", 20, NORMAL, kMacA);
    r.attr.is_match_evlan = 1;
    ASSERT_EQ(l3mac_set_msg_proc(r.get()), 0);
    user_entry *e = find(1, "a");
    mac_entry *m = mac_of(NORMAL, kMacA);
    EXPECT_EQ(e->evlan, 20u);
    EXPECT_EQ(e->is_match_evlan, 1);
    EXPECT_EQ(e->mac_entry, m);
    EXPECT_EQ(l3mac_users_on(&m->user_head), users{e});
}

TEST_F(UserTest, NewPhyidMovesTheEntryAndQueuesBothMacsNewestFirst) {
    ASSERT_EQ(set_row(1, "a", 10, NORMAL, kMacA, 1), 0);
    mac_entry *old_mac = mac_of(NORMAL, kMacA, 1);
    settle_all();
    ASSERT_EQ(set_row(1, "a", 10, NORMAL, kMacA, 2), 0);
    mac_entry *new_mac = mac_of(NORMAL, kMacA, 2);
    user_entry *e = find(1, "a");
    ASSERT_NE(new_mac, nullptr);
    EXPECT_NE(new_mac, old_mac);
    EXPECT_EQ(e->mac_entry, new_mac);
    EXPECT_TRUE(l3mac_users_on(&old_mac->user_head).empty());
    EXPECT_EQ(l3mac_users_on(&new_mac->user_head), users{e});
    EXPECT_EQ(l3mac_pending(), (macs{new_mac, old_mac}));
    EXPECT_EQ(mac_of(NORMAL, kMacA, 1), old_mac);  // freed only by a decision
}

TEST_F(UserTest, UsersRunFromNewestToOldestAndAnUpdateKeepsItsPlace) {
    for (const char *u : {"a", "b", "c"}) ASSERT_EQ(set_row(1, u, 10, NORMAL, kMacA), 0);
    mac_entry *m = mac_of(NORMAL, kMacA);
    const users order{find(1, "c"), find(1, "b"), find(1, "a")};
    EXPECT_EQ(l3mac_users_on(&m->user_head), order);
    ASSERT_EQ(set_row(1, "b", 30, NORMAL, kMacA), 0);
    EXPECT_EQ(l3mac_users_on(&m->user_head), order);
}

TEST_F(UserTest, DeleteUnbindsAndQueuesWithoutADecision) {
    ASSERT_EQ(set_row(1, "a", 10, NORMAL, kMacA), 0);
    mac_entry *m = mac_of(NORMAL, kMacA);
    settle_all();
    set_log(4);
    capture_stdout();
    EXPECT_EQ(del_row(1, "a"), 0);
    EXPECT_EQ(decisions_in(captured_stdout()), 0);
    EXPECT_EQ(find(1, "a"), nullptr);
    EXPECT_EQ(mac_of(NORMAL, kMacA), m);
    EXPECT_TRUE(list_empty(&m->user_head));
    EXPECT_EQ(l3mac_pending(), macs{m});
    EXPECT_EQ(l3mac_ctx.commom_decision_cnt, 1u);
    EXPECT_EQ(l3mac_ctx.malloc_db, 1u);
    EXPECT_EQ(err_count(143), 0u);
}

TEST_F(UserTest, DeleteThenAddBeforeTheDecisionReusesThePendingMac) {
    ASSERT_EQ(set_row(1, "a", 10, NORMAL, kMacA), 0);
    mac_entry *m = mac_of(NORMAL, kMacA);
    ASSERT_EQ(del_row(1, "a"), 0);
    ASSERT_EQ(set_row(1, "a", 12, NORMAL, kMacA), 0);
    user_entry *e = find(1, "a");
    EXPECT_EQ(e->mac_entry, m);
    EXPECT_EQ(l3mac_users_on(&m->user_head), users{e});
    EXPECT_EQ(l3mac_pending(), macs{m});
}

TEST_F(UserTest, UuidsThatDifferBehindByte127AreOneRequest) {
    const std::string base(127, 'x');
    ASSERT_EQ(set_row(1, base + "first", 10, NORMAL, kMacA), 0);
    ASSERT_EQ(set_row(1, base + "second", 11, NORMAL, kMacA), 0);
    user_entry *e = find(1, base);
    ASSERT_NE(e, nullptr);
    EXPECT_EQ(find(1, base + "anything"), e);
    EXPECT_EQ(e->evlan, 11u);
    EXPECT_EQ(std::string(e->uuid), base);
    EXPECT_EQ(l3mac_ctx.malloc_db, 2u);
}

TEST_F(UserTest, EachBudgetAllowsFiveDirectDecisionsBetweenTicks) {
    set_log(4);
    capture_stdout();
    for (int i = 0; i < 6; i++) ASSERT_EQ(set_row(1, "n" + std::to_string(i), 10 + i, NORMAL, kMacA), 0);
    std::string out = captured_stdout();
    EXPECT_EQ(l3mac_ctx.commom_decision_cnt, 5u);
    EXPECT_EQ(decisions_in(out), 5);

    // The VRRP budget stands apart from the other one.
    capture_stdout();
    for (int i = 0; i < 6; i++) ASSERT_EQ(set_row(1, "v" + std::to_string(i), 10 + i, VRRP, kMacB), 0);
    out = captured_stdout();
    EXPECT_EQ(l3mac_ctx.drv_decision_cnt, 5u);
    EXPECT_EQ(decisions_in(out), 5);
    EXPECT_EQ(l3mac_pending().size(), 2u);  // the sixth adds still queued

    // A tick resets both counts, whether anything is pending or not.
    l3mac_decision_timer(nullptr);
    EXPECT_EQ(l3mac_ctx.commom_decision_cnt, 0u);
    EXPECT_EQ(l3mac_ctx.drv_decision_cnt, 0u);
    capture_stdout();
    ASSERT_EQ(set_row(1, "after", 40, NORMAL, kMacA), 0);
    EXPECT_EQ(decisions_in(captured_stdout()), 1);
    EXPECT_EQ(l3mac_ctx.commom_decision_cnt, 1u);
}

TEST_F(UserTest, ALimitOfZeroLeavesEveryAddToTheTick) {
    l3mac_ctx.drv_decision_max_counter = 0;
    l3mac_commom_decision_counter = 0;
    set_log(4);
    capture_stdout();
    ASSERT_EQ(set_row(1, "v", 10, VRRP, kMacA), 0);
    ASSERT_EQ(set_row(1, "n", 10, NORMAL, kMacB), 0);
    EXPECT_EQ(decisions_in(captured_stdout()), 0);
    EXPECT_EQ(l3mac_ctx.drv_decision_cnt, 0u);
    EXPECT_EQ(l3mac_ctx.commom_decision_cnt, 0u);
    EXPECT_EQ(l3mac_pending().size(), 2u);
}

TEST_F(UserTest, AnAddIsChargedToTheBudgetOfItsNewMacType) {
    ASSERT_EQ(set_row(1, "a", 10, VRRP, kMacA), 0);
    ASSERT_EQ(set_row(1, "a", 10, NORMAL, kMacA), 0);
    EXPECT_EQ(l3mac_ctx.drv_decision_cnt, 1u);
    EXPECT_EQ(l3mac_ctx.commom_decision_cnt, 1u);
    EXPECT_EQ(find(1, "a")->mac_entry, mac_of(NORMAL, kMacA));
}

TEST_F(UserTest, NoMemoryForANewEntryChangesNothing) {
    ASSERT_EQ(set_row(1, "a", 10, NORMAL, kMacA), 0);
    set_log(1);
    capture_stdout();
    l3mac_mem_fail_after = 0;
    EXPECT_EQ(set_row(3, "b", 10, NORMAL, kMacB), -2);
    const std::string out = captured_stdout();
    EXPECT_EQ(find(3, "b"), nullptr);
    EXPECT_EQ(mac_of(NORMAL, kMacB), nullptr);
    EXPECT_EQ(l3mac_ctx.malloc_db, 2u);
    EXPECT_EQ(err_count(134), 1u);
    EXPECT_EQ(err_slot(134).data1, 3);
    EXPECT_EQ(out, l3mac_line("ERROR", "sw_l3mac_add_user_entry", err_slot(134).line,
                              "fail:entry != NULL code:134 data1:3 data2:0\n"));
    EXPECT_EQ(l3mac_ctx.commom_decision_cnt, 1u);
}

TEST_F(UserTest, NoMemoryForTheNewMacKeepsTheOldBindingUntilTheNextAdd) {
    ASSERT_EQ(set_row(1, "a", 10, NORMAL, kMacA), 0);
    mac_entry *old_mac = mac_of(NORMAL, kMacA);
    settle_all();

    l3mac_mem_fail_after = 0;  // the new MAC's record
    EXPECT_EQ(set_row(1, "a", 20, NORMAL, kMacC), 0);
    user_entry *e = find(1, "a");
    EXPECT_EQ(e->evlan, 20u);
    EXPECT_EQ(e->mac[1], 0x0c);
    EXPECT_EQ(e->mac_entry, old_mac);
    EXPECT_EQ(l3mac_users_on(&old_mac->user_head), users{e});
    EXPECT_TRUE(l3mac_pending().empty());
    EXPECT_EQ(err_count(134), 1u);
    EXPECT_EQ(err_slot(134).data1, 0);  // mac_type
    EXPECT_EQ(err_slot(134).data2, 1);  // user
    EXPECT_EQ(l3mac_ctx.commom_decision_cnt, 2u);  // the decision is still made

    EXPECT_EQ(set_row(1, "a", 20, NORMAL, kMacC), 0);
    EXPECT_EQ(e->mac_entry, mac_of(NORMAL, kMacC));
    EXPECT_TRUE(list_empty(&old_mac->user_head));
}

TEST_F(UserTest, NoMemoryForTheFirstMacLeavesANewEntryUnbound) {
    ASSERT_EQ(set_row(1, "a", 10, NORMAL, kMacA), 0);
    l3mac_mem_fail_after = 1;  // the user record passes, the MAC's fails
    EXPECT_EQ(set_row(2, "b", 10, NORMAL, kMacB), 0);
    user_entry *e = find(2, "b");
    ASSERT_NE(e, nullptr);
    EXPECT_EQ(e->mac_entry, nullptr);
    EXPECT_TRUE(list_empty(&e->mac_lst));
    EXPECT_EQ(err_count(134), 1u);
    EXPECT_EQ(del_row(2, "b"), 0);  // an unbound entry is deleted all the same
    EXPECT_EQ(find(2, "b"), nullptr);
}

}  // namespace
