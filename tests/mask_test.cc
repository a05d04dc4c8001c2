// Mask cover search: whole results for known sets, the guarantees of the
// cover on random sets, and the all-or-nothing result when memory runs out.
#include <random>

#include <gtest/gtest.h>

#include "frame/l3mac_mem.h"
#include "support/cover_cases.h"
#include "support/cover_check.h"

namespace {

evlan_bmp_t make_set(const ranges &set, bool vfi = false) {
    evlan_bmp_t b{};
    b.is_vfi = vfi;
    for (auto [lo, hi] : set)
        for (uint32_t v = lo; v <= hi; ++v) l3mac_bmp_set(&b, v);
    return b;
}

// The list of a search that must hold every guarantee.
std::vector<cover_row> cover(const evlan_bmp_t &b) {
    const cover_run r = l3mac_cover_run(b);
    EXPECT_EQ(r.rv, 0);
    EXPECT_EQ(r.fault, "");
    return r.list;
}

evlan_bmp_t random_set(std::mt19937 &rng, bool vfi, double density) {
    evlan_bmp_t b{};
    b.is_vfi = vfi;
    std::bernoulli_distribution in(density);
    for (uint32_t v = 0; v < L3MAC_BMP_BITS; ++v)
        if (in(rng)) l3mac_bmp_set(&b, v);
    return b;
}

TEST(MaskCover, KnownSetsGiveTheirWholeListInOrder) {
    for (const known_case &c : KNOWN) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(cover(make_set(c.set, c.vfi)), c.want);
    }
}

TEST(MaskCover, RandomSetsGetAnExactMinimalListAlwaysAlike) {
    std::mt19937 rng(20240611);
    for (double d : {0.002, 0.05, 0.3, 0.5, 0.8, 0.97}) {
        for (bool vfi : {false, true}) {
            SCOPED_TRACE(testing::Message() << "density " << d << " vfi " << vfi);
            const evlan_bmp_t b = random_set(rng, vfi, d);
            EXPECT_EQ(cover(b), cover(b));
        }
    }
}

TEST(MaskCover, NoMemoryAtAnyAllocationLeavesNothingAndTheNextRunIsWhole) {
    std::mt19937 rng(7);
    const evlan_bmp_t sets[] = {
        make_set({}),
        make_set({{1, 1}, {3, 3}, {6, 7}, {14, 14}}),
        make_set({{1, 3}, {6, 7}, {9, 9}, {11, 11}, {13, 15}}),
        make_set({{4096, 4099}}, true),
        random_set(rng, false, 0.03),
    };
    for (const evlan_bmp_t &b : sets) {
        const std::vector<cover_row> want = cover(b);
        const long plenty = 1L << 40;  // counts the allocations of one run
        l3mac_mem_fail_after = plenty;
        cover(b);
        const long total = plenty - std::exchange(l3mac_mem_fail_after, -1);
        ASSERT_GT(total, 2);
        for (long n = 0; n < total; ++n) {
            SCOPED_TRACE(testing::Message() << "allocation " << n << " of " << total);
            l3mac_mem_fail_after = n;
            const cover_run failed = l3mac_cover_run(b);
            l3mac_mem_fail_after = -1;
            ASSERT_EQ(failed.rv, -1);
            ASSERT_EQ(failed.fault, "");
            ASSERT_EQ(cover(b), want);
        }
    }
}

// Whether k sub-cubes of the numbers 0 to 15 that lie inside s cover `left`.
bool covers_in(uint32_t s, uint32_t left, int k) {
    if (left == 0 || k == 0) return left == 0;
    const uint32_t lowest = __builtin_ctz(left);
    for (uint32_t free = 0; free < 16; ++free) {
        uint32_t c = 0;
        for (uint32_t x = 0; x < 16; ++x) c |= uint32_t((x & ~free) == (lowest & ~free)) << x;
        if ((c & s) == c && covers_in(s, left & ~c, k - 1)) return true;
    }
    return false;
}

TEST(MaskCover, SmallSetsStayWithinTwoOfTheSmallestCover) {
    int equal = 0;
    for (uint32_t subset = 0; subset < (1u << 15); ++subset) {
        evlan_bmp_t b{};
        b.bmp[0] = subset << 1;
        const int got = static_cast<int>(l3mac_cover_run(b).list.size());
        int least = 1;
        while (!covers_in(b.bmp[0] | 1u, b.bmp[0] | 1u, least)) ++least;
        ASSERT_GE(got, least) << subset;
        ASSERT_LE(got, least + 2) << subset;
        equal += got == least;
    }
    EXPECT_GT(equal, 32768 * 96 / 100);
}

}  // namespace
