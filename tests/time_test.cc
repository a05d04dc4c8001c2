// The timing probe: before its ring exists, where samples land, what the
// dump shows, and the sampling period.
#include <cstring>

#include <gtest/gtest.h>

#include "diag/l3mac_at.h"
#include "diag/l3mac_time.h"
#include "frame/l3mac_ctx.h"
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
        hnx_host_set_clock(nullptr);
        L3macWorld::TearDown();
    }

    template <class F> static void quiet(F f) { out_of(f); }

    // One decision as the timer tick brackets it.
    static void decision(uint32_t ip = 0, int32_t mask = 1) {
        l3mac_time_start(ip, mask);
        l3mac_time_end();
    }

    l3mac_time_ring_t &ring() { return l3mac_ctx.l3mac_time_ring; }
};

TEST_F(TimeProbe, NothingBeforeTheRingExists) {
    EXPECT_EQ(out_of(l3mac_at_time_dump), "\nnot init\n");
    EXPECT_EQ(out_of([] { return l3mac_at_time_set(3); }), "per cnt:0 -> 3\n\nnot init\n");
    EXPECT_EQ(ring().per_cnt, 0u);
    decision();
    EXPECT_EQ(ring().count, 0u);
    EXPECT_EQ(out_of([] { return l3mac_at_time_init(0); }), "size:0 -> 0\n\nnot init\n");
}

TEST_F(TimeProbe, SamplesGoRoundTheRingAndDumpInIndexOrder) {
    quiet([] { return l3mac_at_time_init(4); });
    quiet([] { return l3mac_at_time_set(1); });
    for (int i = 0; i < 5; i++) decision();
    EXPECT_EQ(ring().cur_idx, 1u);
    // Each decision reads the clock twice, 10 us apart: decision n enters at
    // 100 s + (2n - 1) * 10 us.
    EXPECT_EQ(out_of(l3mac_at_time_dump),
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
    std::string d = out_of(l3mac_at_time_dump);
    EXPECT_NE(d.find("       3,          1.0.0.0/ 0,"), std::string::npos) << d;
}

}  // namespace
