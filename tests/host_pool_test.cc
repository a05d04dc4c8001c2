// The index pools: exact restore, refusals that hold nothing, the reserved
// size, and the public words of the handle. (The lowest free choice: the
// mask-list tests, index by index.)
#include <cstring>

#include <gtest/gtest.h>

#include "platform/host/hnx_host.h"
#include "platform/sw_res_comm.h"

namespace {

sw_res_alloc_req request(uint8_t is_gr = 0, int64_t want = 0) {
    sw_res_alloc_req r;
    std::memset(&r, 0, sizeof r);
    r.one = 1, r.count = 1, r.is_gr = is_gr, r.want = want;
    return r;
}

class Pool : public ::testing::Test {
protected:
    void make(int32_t count, int32_t rsvd = 0) {
        ASSERT_EQ(sw_res_comm_create_rm(2, &rm_, count, 0, rsvd), 0);
        ASSERT_NE(rm_, nullptr);
    }
    int alloc(uint32_t *idx) {
        sw_res_alloc_req r = request();
        return sw_res_comm_alloc_idx(&r, rm_, idx);
    }
    int restore(int64_t want, uint32_t *idx) {
        sw_res_alloc_req r = request(1, want);
        return sw_res_comm_alloc_idx(&r, rm_, idx);
    }
    uint32_t next() {
        uint32_t idx = 0xdead;
        EXPECT_EQ(alloc(&idx), 0);
        return idx;
    }
    // The handle as another process reads it: 32-bit words.
    uint32_t word(int n) const {
        uint32_t w[3];
        std::memcpy(w, rm_, sizeof w);
        return w[n];
    }
    sw_res_rm *rm_ = nullptr;
};

// A restore takes exactly its index; each refusal after it holds nothing.
TEST_F(Pool, RestoreTakesItsIndexAndEachRefusalHasItsCodeAndHoldsNothing) {
    make(4);
    EXPECT_EQ(word(1), 4u);
    uint32_t idx = 0;
    ASSERT_EQ(restore(2, &idx), 0);
    EXPECT_EQ(idx, 2u);
    struct { const char *what; int rv; int want; } cases[] = {
        {"taken", restore(2, &idx), SW_RES_E_TAKEN},
        {"below range", restore(-1, &idx), SW_RES_E_RANGE},
        {"above range", restore(4, &idx), SW_RES_E_RANGE},
        {"free not held", sw_res_comm_free_idx_old(0, 1, rm_), SW_RES_E_NOT_HELD},
        {"free out of range", sw_res_comm_free_idx_old(4, 1, rm_), SW_RES_E_NOT_HELD},
        {"free run past the end", sw_res_comm_free_idx_old(2, 3, rm_), SW_RES_E_NOT_HELD},
        {"free run not all held", sw_res_comm_free_idx_old(1, 2, rm_), SW_RES_E_NOT_HELD},
        {"free none", sw_res_comm_free_idx_old(2, 0, rm_), SW_RES_E_BAD_REQ},
    };
    for (auto &c : cases) EXPECT_EQ(c.rv, c.want) << c.what;

    sw_res_alloc_req bad[4] = {request(), request(), request(), request()};
    bad[0].count = 0;
    bad[1].count = 2;
    bad[2].one = 0;
    bad[3].is_gr = 2;
    for (auto &r : bad) EXPECT_EQ(sw_res_comm_alloc_idx(&r, rm_, &idx), SW_RES_E_BAD_REQ);

    sw_res_alloc_req r = request();
    EXPECT_EQ(sw_res_comm_alloc_idx(&r, nullptr, &idx), SW_RES_E_NULL);
    EXPECT_EQ(sw_res_comm_alloc_idx(nullptr, rm_, &idx), SW_RES_E_NULL);
    EXPECT_EQ(sw_res_comm_free_idx_old(2, 1, nullptr), SW_RES_E_NULL);
    EXPECT_EQ(word(2), 1u);
    EXPECT_EQ(next(), 0u);  // nothing else was taken or freed
    EXPECT_EQ(next(), 1u);
    EXPECT_EQ(next(), 3u);
    EXPECT_EQ(alloc(&idx), SW_RES_E_FULL);
    EXPECT_EQ(restore(3, &idx), SW_RES_E_FULL);
    EXPECT_EQ(sw_res_comm_free_idx_old(1, 1, rm_), 0);
    EXPECT_EQ(next(), 1u);
    EXPECT_EQ(word(0), 2u);
    EXPECT_EQ(word(2), 4u);
}

TEST_F(Pool, ReservedSizeLowersTheLimitNotTheNumbering) {
    make(8, 3);
    EXPECT_EQ(word(1), 5u);
    uint32_t idx = 0;
    ASSERT_EQ(restore(7, &idx), 0);
    for (uint32_t i = 0; i < 4; i++) EXPECT_EQ(next(), i);
    EXPECT_EQ(alloc(&idx), SW_RES_E_FULL);
    EXPECT_EQ(word(2), 5u);
}

// A harness that starts the service again in one process frees the pools
// of the last start, and sees what they held before it does.
TEST_F(Pool, AResetFreesEveryPoolAndTheCountsSayWhatStood) {
    hnx_host_pool_reset();
    make(8);
    next(), next();
    make(4);
    next();
    EXPECT_EQ(hnx_host_pool_count(), 2u);
    EXPECT_EQ(hnx_host_pool_held(), 3u);
    hnx_host_pool_reset();
    EXPECT_EQ(hnx_host_pool_count(), 0u);
    EXPECT_EQ(hnx_host_pool_held(), 0u);
}

}  // namespace
