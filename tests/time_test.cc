// The timing probe: before its ring exists, where samples land, what the
// dump shows, and the sampling period.
#include <tuple>

#include "diag/l3mac_at.h"
#include "diag/l3mac_time.h"
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

// Only a size of 0 is an "error size"; a negative one is a size that the
// allocation refuses. Either way the old ring is gone and the probe is off.
TEST_F(TimeProbe, ZeroSizeIsAnErrorAndANegativeOneFailsTheAllocation) {
    const std::pair<int32_t, std::pair<std::string, int>> cases[] = {
        {0, {"size:4 -> 0\n\nerror size:0\n\nnot init\n", -4}},
        {-1, {"size:4 -> -1\n\nmalloc fail, size:-1\n\nnot init\n", -2}}};
    for (const auto &[size_of_case, want] : cases) {
        const int32_t size = size_of_case;  // clang before 16 cannot capture a binding
        SCOPED_TRACE(size);
        out_of([] { return l3mac_at_time_init(4) | l3mac_at_time_set(1); });
        int rv = 0;
        EXPECT_EQ(out_of([&] { return l3mac_at_time_init(size); }, &rv), want.first);
        EXPECT_EQ(rv, want.second);
        EXPECT_EQ(std::tie(ring().size, ring().per_cnt, ring().samples),
                  std::make_tuple(0u, 0u, static_cast<l3mac_time_sample *>(nullptr)));
    }
}

TEST_F(TimeProbe, SamplesGoRoundTheRingAndDumpInIndexOrder) {
    out_of([] { return l3mac_at_time_init(4) | l3mac_at_time_set(1); });
    for (int i = 0; i < 5; i++) decision();
    EXPECT_EQ(ring().cur_idx, 1u);
    // Each decision reads the clock twice, 10 us apart: decision n enters at
    // 100 s + (2n - 1) * 10 us.
    EXPECT_EQ(out_of(l3mac_at_time_dump),
              "\n     cnt             ip/mask    input(s)   (us)   output(s)   (us)\n"
                  "       4,          0.0.0.0/ 1,        100:70    ,        100:80    \n"
                  "       5,          0.0.0.0/ 1,        100:90    ,        100:100   \n"
                  "       2,          0.0.0.0/ 1,        100:30    ,        100:40    \n"
                  "       3,          0.0.0.0/ 1,        100:50    ,        100:60    \n"
                  "count      :5\nper cnt    :1\nsize       :4\ncur_idx    :1\n");
}

TEST_F(TimeProbe, PeriodSamplesEveryNthAndCountsAll) {
    out_of([] { return l3mac_at_time_init(4) | l3mac_at_time_set(3); });
    for (int i = 0; i < 9; i++) decision(1, 0);
    const l3mac_time_ring_t &r = ring();
    EXPECT_EQ(std::tie(r.count, r.samples[0].cnt, r.samples[1].cnt, r.samples[2].cnt, r.samples[3].cnt),
              std::make_tuple(9u, 0u, 3u, 6u, 9u));
    // An add of mac_type 1 reads as 1.0.0.0 with prefix 0.
    std::string d = out_of(l3mac_at_time_dump);
    EXPECT_NE(d.find("       3,          1.0.0.0/ 0,"), std::string::npos) << d;
}

}  // namespace
