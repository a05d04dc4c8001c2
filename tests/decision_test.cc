// The decision round and its timer: the two passes over the pool, the
// report of a full table (paced message, failure rows of VRRP users), and
// the rounds that must not work or must leave a MAC alone.
#include <algorithm>
#include <tuple>

#include "decision/l3mac_decision.h"
#include "platform/host/hnx_host.h"
#include "support/managed_world.h"

namespace {

const mac6 kX{0x02, 0, 0, 0, 0, 0x01};
const mac6 kY{0x02, 0, 0, 0, 0, 0x02};

using op3 = std::array<uint32_t, 3>;
constexpr const char *kFull = "L3MAC table is full.";

using DecisionTest = ManagedWorld;

// X was queued last and comes first: 3 + 4 - 1 = 6 is above the limit, so
// X waits. Y shrinks from three entries to one new one: its add meets the
// full pool, its old entries go, and two are in use. X then gives
// 3 + 2 - 1 = 4 and fills the pool, with no message.
TEST_F(DecisionTest, SecondPassServesAMacThatAShrinkingMacMadeRoomFor) {
    managed_clock_set(50'000'000);
    start({.tcam_cap = 4});
    want(kX, {3});
    sw_l3mac_mac_decision();
    want(kY, {5, 6, 9});
    sw_l3mac_mac_decision();
    ASSERT_EQ(in_use(), 4u);

    unwant(kY, {5, 6, 9});
    want(kY, {10});
    want(kX, {12, 15});
    ASSERT_EQ(l3mac_pending_head.next, &mac_of(NORMAL, kX)->pending_lst);
    EXPECT_EQ(sw_l3mac_mac_decision(), 0);

    EXPECT_EQ(placed(mac_of(NORMAL, kY)), (std::vector<op3>{{10, 0xFFF, 1}}));
    EXPECT_EQ(placed(mac_of(NORMAL, kX)),
              (std::vector<op3>{{3, 0xFFF, 0}, {12, 0xFFF, 3}, {15, 0xFFF, 2}}));
    EXPECT_FALSE(pending(mac_of(NORMAL, kX)));
    EXPECT_EQ(managed_log_count(root_, kFull), 0);
}

// Two MACs fail in one round: one message (the second is within the
// interval), and STATUS_FAILED rows for the VRRP users whose VLAN is new to
// their MAC, none for its old user nor for the NORMAL MAC's users.
TEST_F(DecisionTest, AFullTableTellsTheOperatorAndTheVrrpUsersOfNewVlans) {
    managed_clock_set(50'000'000);
    start({.tcam_cap = 2});
    request(1, "old", 3, VRRP, kX);
    request(1, "other", 5, NORMAL, kY);
    sw_l3mac_mac_decision();
    ASSERT_EQ(in_use(), 2u);

    request(2, "new-a", 9, VRRP, kX);
    request(3, "new-b", 9, VRRP, kX);
    request(1, "other-new", 6, NORMAL, kY);
    hnx_host_tbl_journal_clear();
    sw_l3mac_mac_decision();

    std::vector<std::tuple<uint32_t, std::string, uint32_t, uint32_t>> told;  // user, uuid, status, evlan
    for (const l3mac_res_write &op : l3mac_res_writes()) told.emplace_back(op.user, op.uuid, op.status, op.evlan);
    std::sort(told.begin(), told.end());
    const uint32_t failed = S_ROUTE__L3TABLE_STATUS_E__STATUS_FAILED;
    EXPECT_EQ(told, (decltype(told){{2, "new-a", failed, 9}, {3, "new-b", failed, 9}}));
    EXPECT_TRUE(managed_journal("hw_res").empty());
    EXPECT_EQ(managed_log_count(root_, kFull), 1);
    EXPECT_FALSE(pending(mac_of(VRRP, kX)) || pending(mac_of(NORMAL, kY)));

    // Queued again with nothing added, X fails again: the message is due
    // again a second later, and nobody is told twice.
    managed_clock_set(51'000'000);
    request(1, "old", 3, VRRP, kX);
    hnx_host_tbl_journal_clear();
    sw_l3mac_mac_decision();
    EXPECT_TRUE(l3mac_res_writes().empty());
    EXPECT_EQ(managed_log_count(root_, kFull), 2);
}

// A failure that recurs at the message's own pace: five messages one second
// apart, five at two, five at four, five at eight, then one every sixteen;
// a pause starts again at one second.
TEST_F(DecisionTest, TheFullTableMessageIsPaced) {
    const int64_t t0 = 100'000'000;
    managed_clock_set(t0);
    std::vector<int64_t> emitted;
    for (int64_t t = 0; t <= 200'000'000; t += 500'000) {
        managed_clock_set(t0 + t);
        const kw_timeval before = l3mac_ctx.no_res_log.last;
        l3mac_no_res_log();
        const kw_timeval after = l3mac_ctx.no_res_log.last;
        if (after.tv_sec != before.tv_sec || after.tv_usec != before.tv_usec)
            emitted.push_back(t / 1'000'000);
    }
    EXPECT_EQ(emitted, (std::vector<int64_t>{0, 1, 2, 3, 4, 6, 8, 10, 12, 14, 18, 22,
                                             26, 30, 34, 42, 50, 58, 66, 74, 90, 106,
                                             122, 138, 154, 170, 186}));
    EXPECT_EQ(managed_log_count(root_, kFull), 27);

    managed_clock_set(t0 + 207'000'000);  // 21 s after the last: a pause
    l3mac_no_res_log();
    managed_clock_set(t0 + 208'000'000);
    l3mac_no_res_log();
    EXPECT_EQ(managed_log_count(root_, kFull), 29);
}

// A cover search without memory leaves the MAC as it was, pending, and the
// next round applies the change.
TEST_F(DecisionTest, ACoverSearchWithoutMemoryKeepsTheMacPending) {
    start({.tcam_cap = 8});
    want(kX, {3, 5});
    sw_l3mac_mac_decision();
    const auto before = placed(mac_of(NORMAL, kX));
    want(kX, {6});
    hnx_host_tbl_journal_clear();

    l3mac_mem_fail_after = 1;  // the round's record, then the search fails
    EXPECT_EQ(sw_l3mac_mac_decision(), 0);
    mac_entry *x = mac_of(NORMAL, kX);
    EXPECT_TRUE(pending(x));
    EXPECT_EQ(placed(x), before);
    for (const tcam_entry *e : entries_of(x)) EXPECT_EQ(e->ref_cnt, 1u);
    EXPECT_TRUE(managed_journal("hw_res").empty());
    EXPECT_FALSE(l3mac_bmp_test(&x->evlan_bmp, 6));

    sw_l3mac_mac_decision();
    EXPECT_FALSE(pending(x));
    EXPECT_EQ(entries_of(x).size(), 3u);
}

}  // namespace
