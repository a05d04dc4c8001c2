// The timing probe: the ring's states, where samples land, what the dump
// shows, and the two places that sample a decision on their own.
#include <cstring>

#include <gtest/gtest.h>

#include "decision/l3mac_decision.h"
#include "diag/l3mac_at.h"
#include "diag/l3mac_time.h"
#include "frame/l3mac_ctx.h"
#include "frame/l3mac_mem.h"
#include "platform/host/hnx_host.h"
#include "support/l3mac_world.h"

namespace {

// A clock that moves 10 us at every read, from 100 s.
int64_t g_now_us;
int fake_clock(kw_timeval *tv) {
    g_now_us += 10;
    tv->tv_sec = static_cast<int32_t>(g_now_us / 1000000);
    tv->tv_usec = static_cast<int32_t>(g_now_us % 1000000);
    return 0;
}

const std::string HEAD = "\n     cnt             ip/mask    input(s)   (us)   output(s)   (us)\n";

std::string tail(uint32_t count, uint32_t per, uint32_t size, uint32_t idx) {
    char buf[200];
    snprintf(buf, sizeof buf, "count      :%u\nper cnt    :%u\nsize       :%u\ncur_idx    :%u\n",
             count, per, size, idx);
    return buf;
}

class TimeProbe : public L3macWorld {
protected:
    void SetUp() override {
        L3macWorld::SetUp();
        g_now_us = 100000000;
        hnx_host_set_clock(fake_clock);
    }
    void TearDown() override {
        quiet([] { return l3mac_at_time_init(0); });  // frees the ring
        hnx_host_set_clock(nullptr);
        L3macWorld::TearDown();
    }

    template <class F> static std::string out(F f, int *rv = nullptr) {
        testing::internal::CaptureStdout();
        int r = f();
        if (rv) *rv = r;
        fflush(stdout);
        return testing::internal::GetCapturedStdout();
    }
    template <class F> static void quiet(F f) { out(f); }

    // One decision as the timer tick brackets it.
    static void decision(uint32_t ip = 0, int32_t mask = 1) {
        l3mac_time_start(ip, mask);
        l3mac_time_end();
    }

    l3mac_time_ring_t &ring() { return l3mac_ctx.l3mac_time_ring; }
};

TEST_F(TimeProbe, NothingBeforeTheRingExists) {
    EXPECT_EQ(out(l3mac_at_time_dump), "\nnot init\n");
    EXPECT_EQ(out([] { return l3mac_at_time_set(3); }), "per cnt:0 -> 3\n\nnot init\n");
    EXPECT_EQ(ring().per_cnt, 0u);
    decision();
    EXPECT_EQ(ring().count, 0u);
    EXPECT_EQ(out([] { return l3mac_at_time_init(0); }), "size:0 -> 0\n\nnot init\n");
}

TEST_F(TimeProbe, InitSameSizeKeepsEverythingOtherSizeStartsOver) {
    EXPECT_EQ(out([] { return l3mac_at_time_init(4); }), "size:0 -> 4\n" + HEAD + tail(0, 0, 4, 0));
    quiet([] { return l3mac_at_time_set(1); });
    decision();
    decision();
    std::string same = out([] { return l3mac_at_time_init(4); });
    EXPECT_NE(same.find(tail(2, 1, 4, 2)), std::string::npos) << same;
    EXPECT_EQ(ring().per_cnt, 1u);

    quiet([] { return l3mac_at_time_init(8); });
    EXPECT_EQ(ring().size, 8u);
    EXPECT_EQ(ring().per_cnt, 0u);  // a changed ring waits for time-set-l3mac
    decision();
    EXPECT_EQ(ring().count, 0u);

    EXPECT_EQ(out([] { return l3mac_at_time_init(0); }),
              "size:8 -> 0\n\nerror size:0\n\nnot init\n");
    EXPECT_EQ(ring().samples, nullptr);
    EXPECT_EQ(ring().size, 0u);
}

TEST_F(TimeProbe, FailedAllocationLeavesTheProbeOff) {
    quiet([] { return l3mac_at_time_init(4); });
    quiet([] { return l3mac_at_time_set(1); });
    l3mac_mem_fail_after = 0;
    int rv = 0;
    EXPECT_EQ(out([] { return l3mac_at_time_init(8); }, &rv),
              "size:4 -> 8\n\nmalloc fail, size:8\n\nnot init\n");
    EXPECT_EQ(rv, -2);
    EXPECT_EQ(ring().size, 0u);
    EXPECT_EQ(ring().per_cnt, 0u);
    // Beyond the bound, and below 0: refused without trying.
    EXPECT_EQ(out([] { return l3mac_at_time_init(L3MAC_TIME_RING_MAX + 1); }),
              "size:0 -> 65537\n\nmalloc fail, size:65537\n\nnot init\n");
    EXPECT_EQ(out([] { return l3mac_at_time_init(-1); }),
              "size:0 -> -1\n\nerror size:-1\n\nnot init\n");
}

TEST_F(TimeProbe, SamplesGoRoundTheRingAndDumpInIndexOrder) {
    quiet([] { return l3mac_at_time_init(4); });
    quiet([] { return l3mac_at_time_set(1); });
    for (int i = 0; i < 5; i++) decision();
    EXPECT_EQ(ring().cur_idx, 1u);
    // Each decision reads the clock twice, 10 us apart: decision n enters at
    // 100 s + (2n - 1) * 10 us.
    EXPECT_EQ(out(l3mac_at_time_dump),
              HEAD +
                  "       4,          0.0.0.0/ 1,        100:70    ,        100:80    \n"
                  "       5,          0.0.0.0/ 1,        100:90    ,        100:100   \n"
                  "       2,          0.0.0.0/ 1,        100:30    ,        100:40    \n"
                  "       3,          0.0.0.0/ 1,        100:50    ,        100:60    \n" +
                  tail(5, 1, 4, 1));
}

TEST_F(TimeProbe, PeriodSamplesEveryNthAndCountsAll) {
    quiet([] { return l3mac_at_time_init(4); });
    quiet([] { return l3mac_at_time_set(3); });
    for (int i = 0; i < 9; i++) decision(1, 0);
    EXPECT_EQ(ring().count, 9u);
    EXPECT_EQ(ring().samples[1].cnt, 3u);
    EXPECT_EQ(ring().samples[2].cnt, 6u);
    EXPECT_EQ(ring().samples[3].cnt, 9u);
    EXPECT_EQ(ring().samples[0].cnt, 0u);
    // An add of mac_type 1 reads as 1.0.0.0 with prefix 0.
    std::string d = out(l3mac_at_time_dump);
    EXPECT_NE(d.find("       3,          1.0.0.0/ 0,"), std::string::npos) << d;
}

TEST_F(TimeProbe, SetShowsTheOldRingThenResetsOrKeepsIt) {
    quiet([] { return l3mac_at_time_init(4); });
    quiet([] { return l3mac_at_time_set(1); });
    decision();
    std::string s = out([] { return l3mac_at_time_set(0); });
    EXPECT_EQ(s.rfind("per cnt:1 -> 0\n", 0), 0u);
    EXPECT_NE(s.find(tail(1, 1, 4, 1)), std::string::npos);
    // Off: the sample stays for later dumps, and nothing more is counted.
    decision();
    EXPECT_NE(out(l3mac_at_time_dump).find("       1,          0.0.0.0/ 1,"), std::string::npos);
    EXPECT_EQ(ring().count, 1u);
    // On again: counts and samples start over.
    quiet([] { return l3mac_at_time_set(2); });
    EXPECT_EQ(ring().count, 0u);
    EXPECT_EQ(ring().cur_idx, 0u);
    EXPECT_EQ(ring().samples[1].cnt, 0u);
}

// The two writers: an add within its budget and the timer tick.
TEST_F(TimeProbe, AddAndTickSampleTheirDecisions) {
    bring_up();
    quiet([] { return l3mac_at_time_init(8); });
    quiet([] { return l3mac_at_time_set(1); });
    l3mac_decision_timer(nullptr);  // nothing pending: no decision, no count
    EXPECT_EQ(ring().count, 0u);

    const uint8_t mac[6] = {0, 1, 2, 3, 4, 5};
    ASSERT_EQ(l3mac_at_add_user_entry(1, "u1", 1, 1, 10, 0, mac), 0);
    EXPECT_EQ(ring().count, 1u);
    EXPECT_EQ(ring().samples[1].ip, 0u);
    EXPECT_EQ(ring().samples[1].mask, 0);

    l3mac_commom_decision_counter = 0;  // the next add waits for the tick
    ASSERT_EQ(l3mac_at_add_user_entry(1, "u2", 1, 1, 11, 0, mac), 0);
    EXPECT_EQ(ring().count, 1u);
    l3mac_decision_timer(nullptr);
    EXPECT_EQ(ring().count, 2u);
    EXPECT_EQ(ring().samples[2].ip, 0u);
    EXPECT_EQ(ring().samples[2].mask, 1);
    // trigger-decision takes no sample.
    sw_l3mac_mac_decision();
    EXPECT_EQ(ring().count, 2u);
}

}  // namespace
