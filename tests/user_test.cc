// User entries of the managed path: updates as re-statements, the order of
// a MAC's users and of the pending list, the two budgets of direct
// decisions, and the results when memory runs out.
#include "decision/l3mac_decision.h"
#include "support/l3mac_world.h"

namespace {

using users = std::vector<user_entry *>;
using macs = std::vector<mac_entry *>;

class UserTest : public L3macWorld {
protected:
    void SetUp() override {
        L3macWorld::SetUp();
        write_caps({});
        bring_up();
    }
    // Rows set while counting the direct decisions (each leaves its warning).
    template <class F> static int decisions_during(F f) {
        set_log(4);
        capture_stdout();
        f();
        return l3mac_count_lines(captured_stdout(), "WARN ", "sw_l3mac_mac_decision",
                                 "fail:l3mac_is_ds_end() data1:0 data2:0\n");
    }
};

TEST_F(UserTest, UpdatesStayOnTheMacKeepTheirPlaceAndQueueItAgain) {
    for (const char *u : {"a", "b", "c"}) ASSERT_EQ(set_row(1, u, 10, NORMAL, kMacA), 0);
    mac_entry *m = mac_of(NORMAL, kMacA);
    const users order{user_of(1, "c"), user_of(1, "b"), user_of(1, "a")};
    settle_all();
    ASSERT_EQ(set_row(1, "b", 10, NORMAL, kMacA), 0);  // the same attributes
    EXPECT_EQ(l3mac_pending(), macs{m});
    l3mac_row r(1, "b", 20, NORMAL, kMacA);  // evlan and flag only
    r.attr.is_match_evlan = 1;
    ASSERT_EQ(l3mac_set_msg_proc(r.get()), 0);
    EXPECT_EQ(std::tie(order[1]->evlan, order[1]->is_match_evlan), std::make_tuple(20u, uint8_t(1)));
    EXPECT_EQ(l3mac_users_on(&m->user_head), order);
    EXPECT_EQ(l3mac_pending(), macs{m});
}

TEST_F(UserTest, NewPhyidMovesTheEntryAndQueuesBothMacsNewestFirst) {
    ASSERT_EQ(set_row(1, "a", 10, NORMAL, kMacA, 1), 0);
    mac_entry *old_mac = mac_of(NORMAL, kMacA, 1);
    settle_all();
    ASSERT_EQ(set_row(1, "a", 10, NORMAL, kMacA, 2), 0);
    mac_entry *new_mac = mac_of(NORMAL, kMacA, 2);
    user_entry *e = user_of(1, "a");
    EXPECT_NE(new_mac, old_mac);
    EXPECT_TRUE(l3mac_users_on(&old_mac->user_head).empty());
    EXPECT_EQ(l3mac_users_on(&new_mac->user_head), users{e});
    EXPECT_EQ(l3mac_pending(), (macs{new_mac, old_mac}));
    EXPECT_EQ(mac_of(NORMAL, kMacA, 1), old_mac);  // freed only by a decision
}

TEST_F(UserTest, DeleteQueuesWithoutADecisionAndAnAddReusesThePendingMac) {
    ASSERT_EQ(set_row(1, "a", 10, NORMAL, kMacA), 0);
    mac_entry *m = mac_of(NORMAL, kMacA);
    settle_all();
    EXPECT_EQ(decisions_during([] { EXPECT_EQ(del_row(1, "a"), 0); }), 0);
    EXPECT_EQ(std::tuple(user_of(1, "a"), list_empty(&m->user_head), l3mac_ctx.malloc_db),
              std::tuple(nullptr, true, 1u));
    EXPECT_EQ(l3mac_pending(), macs{m});
    ASSERT_EQ(set_row(1, "a", 12, NORMAL, kMacA), 0);
    EXPECT_EQ(l3mac_users_on(&m->user_head), users{user_of(1, "a")});
    EXPECT_EQ(l3mac_pending(), macs{m});  // queued once
}

TEST_F(UserTest, EachBudgetAllowsFiveDirectDecisionsBetweenTicks) {
    auto six = [](const char *p, uint32_t type, const uint8_t (&mac)[6]) {
        for (int i = 0; i < 6; i++) ASSERT_EQ(set_row(1, p + std::to_string(i), 10 + i, type, mac), 0);
    };
    EXPECT_EQ(decisions_during([&] { six("n", NORMAL, kMacA); }), 5);
    EXPECT_EQ(decisions_during([&] { six("v", VRRP, kMacB); }), 5);  // a budget of its own
    EXPECT_EQ(std::pair(l3mac_ctx.commom_decision_cnt, l3mac_ctx.drv_decision_cnt), std::pair(5u, 5u));
    EXPECT_EQ(l3mac_pending().size(), 2u);  // the sixth adds still queued
    l3mac_decision_timer(nullptr);  // resets both counts
    EXPECT_EQ(l3mac_ctx.commom_decision_cnt + l3mac_ctx.drv_decision_cnt, 0u);
    // An add is charged to the budget of its new mac_type.
    EXPECT_EQ(decisions_during([] { ASSERT_EQ(set_row(1, "v0", 40, NORMAL, kMacA), 0); }), 1);
    EXPECT_EQ(std::pair(l3mac_ctx.commom_decision_cnt, l3mac_ctx.drv_decision_cnt), std::pair(1u, 0u));

    l3mac_ctx.drv_decision_max_counter = 0;  // a limit of 0 leaves every add to the tick
    l3mac_commom_decision_counter = 0;
    EXPECT_EQ(decisions_during([] { ASSERT_EQ(set_row(1, "z", 10, VRRP, kMacA), 0); }), 0);
}

TEST_F(UserTest, NoMemoryForAnEntryChangesNothingForAMacKeepsTheOldBinding) {
    ASSERT_EQ(set_row(1, "a", 10, NORMAL, kMacA), 0);
    mac_entry *old_mac = mac_of(NORMAL, kMacA);
    settle_all();
    l3mac_mem_fail_after = 0;
    EXPECT_EQ(set_row(3, "b", 10, NORMAL, kMacB), -2);
    EXPECT_EQ(std::tuple(err_slot(134).data1, user_of(3, "b"), l3mac_ctx.malloc_db),
              std::tuple(3, nullptr, 2u));

    l3mac_mem_fail_after = 0;  // the new MAC's record
    EXPECT_EQ(set_row(1, "a", 20, NORMAL, kMacB), 0);
    user_entry *e = user_of(1, "a");
    EXPECT_EQ(std::tie(e->evlan, e->mac[1], e->mac_entry), std::make_tuple(20u, uint8_t(0x0b), old_mac));
    EXPECT_TRUE(l3mac_pending().empty());
    EXPECT_EQ(std::tie(err_slot(134).count, err_slot(134).data1, err_slot(134).data2),
              std::make_tuple(2u, 0, 1));  // mac_type, user
    EXPECT_EQ(set_row(1, "a", 20, NORMAL, kMacB), 0);  // the next add binds it
    EXPECT_EQ(e->mac_entry, mac_of(NORMAL, kMacB));

    l3mac_mem_fail_after = 1;  // a new user passes, its first MAC fails
    EXPECT_EQ(set_row(2, "c", 10, NORMAL, kMacA, 7), 0);
    EXPECT_EQ(user_of(2, "c")->mac_entry, nullptr);
    EXPECT_EQ(del_row(2, "c"), 0);  // an unbound entry is deleted all the same
    EXPECT_EQ(user_of(2, "c"), nullptr);
}

}  // namespace
