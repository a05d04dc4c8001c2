// The keyed stores: hash, growth and rebuild, and the printed dumps and
// rows. (Random runs against a model, allocation failures among them:
// store_fuzz.)
#include <algorithm>
#include <array>
#include <tuple>

#include "store/l3mac_db.h"
#include "store/l3mac_store_traits.h"
#include "support/l3mac_world.h"

namespace {

// Mac key number n, built zero-filled as the callers build it.
std::array<uint8_t, 12> make_key(uint32_t n) {
    std::array<uint8_t, 12> k{};
    const uint8_t mac[6] = {0x02, 0, uint8_t(n >> 16), uint8_t(n >> 8), uint8_t(n), 7};
    k[0] = n % 5;
    std::memcpy(&k[1], mac, 6);
    std::memcpy(&k[8], &n, 4);
    return k;
}

using StoreTest = L3macWorld;

}  // namespace

TEST(StoreHash, Lookup2CheckValues) {
    const uint8_t zeros[132] = {};
    EXPECT_EQ(l3mac_hash(zeros, 12), 0x35DD81C8u);
    EXPECT_EQ(l3mac_hash(zeros, 16), 0x3D67C75Bu);
    EXPECT_EQ(l3mac_hash(zeros, 20), 0x5F9EBD1Du);
    EXPECT_EQ(l3mac_hash(zeros, 132), 0x13155C0Bu);
}

TEST_F(StoreTest, GrowsOnScheduleAndRecordsNeverMove) {
    mac_db_t *&mac_ = l3mac_ctx.mac_db;
    ASSERT_EQ(mac_db_create(&mac_), 0);
    std::vector<mac_entry *> recs;
    // {record count that grows it, new bucket count, its limit}
    const uint32_t grows[][3] = {{1, 4, 3}, {4, 8, 6}, {7, 16, 12}, {13, 32, 25}, {26, 64, 49}, {50, 128, 99}};
    uint32_t want = 0, limit = 0;
    for (uint32_t n = 1; n <= 60; n++) {
        recs.push_back(mac_->get_or_add(make_key(n).data()));
        ASSERT_NE(recs.back(), nullptr);
        for (auto &g : grows)
            if (n == g[0]) want = g[1], limit = g[2];
        ASSERT_EQ(mac_->bucket, want) << "after record " << n;
        EXPECT_EQ(mac_->limit, limit);
        EXPECT_EQ(mac_->cur, n);
        EXPECT_EQ(mac_->used, n);
    }
    for (uint32_t n = 1; n <= 60; n++) {
        EXPECT_EQ(mac_->get(make_key(n).data()), recs[n - 1]);
        EXPECT_EQ(mac_->get_or_add(make_key(n).data()), recs[n - 1]);
    }
    EXPECT_EQ(l3mac_ctx.malloc_db, 60u);
    EXPECT_EQ(mac_db_del(mac_, nullptr), -4);
}

// Rows are counted as the lines between the head line and the closing
// lines. A store whose buckets are mostly deleted ones is rebuilt at its
// size rather than grown, so that churn does not grow it for ever. (A failed
// insert at any allocation changes nothing: store_fuzz.)
TEST_F(StoreTest, DumpCountRulesAndAMostlyDeletedStoreIsRebuiltAtItsSize) {
    mac_db_t *&mac_ = l3mac_ctx.mac_db;
    ASSERT_EQ(mac_db_create(&mac_), 0);
    for (uint32_t n = 0; n < 5; n++) mac_->get_or_add(make_key(n).data());
    for (auto [count, want] : {std::pair{-1, 5}, {2, 2}, {0, 1}, {-3, 1}, {9, 5}}) {
        capture_stdout();
        EXPECT_EQ(mac_db_dump(mac_, count, 0), 0);
        const std::string out = captured_stdout();
        const size_t body = out.find("bucket:8\n") + 9, end = out.find("\ndump max count:");
        ASSERT_NE(end, std::string::npos);
        EXPECT_EQ(std::count(out.begin() + body, out.begin() + end, '\n'), want) << count;
        char tail[80];
        std::snprintf(tail, sizeof tail, "\ndump max count:  %d\ndump cur count:  %d", count, want);
        EXPECT_EQ(out.substr(end), tail);
    }

    mac_->get_or_add(make_key(5).data());
    for (uint32_t n = 0; n < 5; n++) mac_->del(mac_->get(make_key(n).data()));
    ASSERT_NE(mac_->get_or_add(make_key(6).data()), nullptr);
    EXPECT_EQ(std::tuple(mac_->bucket, mac_->used, mac_->cur, l3mac_ctx.malloc_db),
              std::tuple(8u, 2u, 2u, 2u));
}

// One exact row of each instance but the TCAM store's (the guide's
// dump-tcam-db example), and one header.
TEST_F(StoreTest, RowsAndAHeader) {
    bring_up();
    ASSERT_EQ(vrrp_db_create(&l3mac_ctx.vrrp_db), 0);
    const uint8_t mac[6] = {0x00, 0x11, 0x22, 0x33, 0x44, 0x55};
    const std::string m = "00:11:22:33:44:55";
    uint8_t km[12] = {1}, ku[132] = {3}, kh[16] = {20, 0, 0, 0, 0xff, 0x0f};
    std::memcpy(km + 1, mac, 6), std::memcpy(kh + 8, mac, 6);
    km[8] = 0x2a, kh[14] = 2;
    std::strcpy(reinterpret_cast<char *>(ku + 4), "u-1");
    user_entry *u = l3mac_ctx.user_db->get_or_add(ku);
    u->is_match_evlan = 1, u->mac_type = 4, u->evlan = 10, u->phyid = 0xff;
    u->mac_entry = reinterpret_cast<void *>(0x1234);
    std::memcpy(u->mac, mac, 6);
    l3mac_ctx.vrrp_db->get_or_add(kh)->is_hw = 1;
    capture_stdout();
    EXPECT_EQ(mac_db_row(l3mac_ctx.mac_db->get_or_add(km)), 0);
    EXPECT_EQ(user_db_row(u), 0);
    EXPECT_EQ(vrrp_db_row(l3mac_ctx.vrrp_db->get(kh)), 0);
    EXPECT_EQ(vrrp_db_show(nullptr, 1), -4);  // the header alone
    EXPECT_EQ(captured_stdout(),
              "1         " + m + "   0x2a      \n"
              "3         u-1                           1               4         10        0x1234         " + m + "   0xff      \n"
              "20        4095        2         " + m + "1         \n"
              "\nevlan     evlan_mask  mac_type  mac            is_hw     \n");
}
