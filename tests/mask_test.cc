// Mask cover search: whole results for known sets; in both modes, the
// greedy and the compact one, the all-or-nothing result when memory runs
// out. (The guarantees of every list, and the same list for the same set,
// on any set: cover_fuzz; the compact cover against the smallest, on every
// set of small spaces: mask_compact_test.)
#include <gtest/gtest.h>

#include "frame/l3mac_mem.h"
#include "support/cover_check.h"
#include "support/cover_sets.h"

namespace {

using row = cover_row;

// The known sets and their whole answers.
struct known_case {
    const char *name;
    bool vfi;
    cover_ranges set;
    std::vector<row> want;
};

const std::vector<row> FILLER_VLAN = {{0, 0xFFF, 0}};

// A whole space: one template per bit, each leaving out that bit alone.
std::vector<row> whole_space(int bits) {
    std::vector<row> out;
    for (int b = 0; b < bits; ++b) out.emplace_back(0, 1u << b, bits - 1);
    return out;
}

const known_case KNOWN[] = {
    {"empty", false, {}, FILLER_VLAN},
    {"bit 0 unread", false, {{0, 0}}, FILLER_VLAN},
    {"top unread", false, {{4095, 4095}}, FILLER_VLAN},
    {"4094", false, {{4094, 4094}}, {{4094, 0xFFF, 0}, {0, 0xFFF, 0}}},
    {"1", false, {{1, 1}}, {{0, 0xFFE, 1}}},
    {"1,2", false, {{1, 2}}, {{0, 0xFFD, 1}, {0, 0xFFE, 1}}},
    {"1-3", false, {{1, 3}}, {{0, 0xFFC, 2}}},
    {"2,3", false, {{2, 3}}, {{2, 0xFFE, 1}, {0, 0xFFD, 1}}},
    {"5,7", false, {{5, 5}, {7, 7}}, {{0, 0xFFF, 0}, {5, 0xFFD, 1}}},
    {"4-7", false, {{4, 7}}, {{0, 0xFFB, 1}, {4, 0xFFC, 2}}},
    {"100-103, bits from the top unread", false, {{100, 103}, {4095, 16383}},
     {{0, 0xFFF, 0}, {100, 0xFFC, 2}}},
    {"10,11,14,15", false, {{10, 11}, {14, 15}}, {{0, 0xFFF, 0}, {10, 0xFFA, 2}}},
    {"3,5,6", false, {{3, 3}, {5, 6}},
     {{6, 0xFFF, 0}, {5, 0xFFF, 0}, {3, 0xFFF, 0}, {0, 0xFFF, 0}}},
    {"3,5-7", false, {{3, 3}, {5, 7}},
     {{0, 0xFFF, 0}, {3, 0xFFB, 1}, {5, 0xFFD, 1}, {6, 0xFFE, 1}}},
    {"1,2,4,8", false, {{1, 2}, {4, 4}, {8, 8}},
     {{0, 0xFF7, 1}, {0, 0xFFB, 1}, {0, 0xFFD, 1}, {0, 0xFFE, 1}}},
    {"2047,2048", false, {{2047, 2048}}, {{2047, 0xFFF, 0}, {0, 0x7FF, 1}}},
    {"search falls from level 3", false,
     {{1, 3}, {6, 7}, {9, 9}, {11, 11}, {13, 15}},
     {{9, 0xFF9, 2}, {6, 0xFF6, 2}, {0, 0xFFC, 2}}},
    {"sweep keeps the older alternative", false,
     {{1, 1}, {3, 3}, {6, 7}, {14, 14}},
     {{6, 0xFF7, 1}, {6, 0xFFE, 1}, {1, 0xFFD, 1}, {0, 0xFFE, 1}}},
    {"whole VLAN set", false, {{1, 4094}}, whole_space(12)},
    {"vfi 1", true, {{1, 1}}, {{0, 0x3FFE, 1}}},
    {"vfi 16382", true, {{16382, 16382}}, {{16382, 0x3FFF, 0}, {0, 0x3FFF, 0}}},
    {"vfi top unread", true, {{16383, 16383}}, {{0, 0x3FFF, 0}}},
    {"vfi 8192,8193", true, {{8192, 8193}}, {{8192, 0x3FFE, 1}, {0, 0x1FFF, 1}}},
    {"whole VFI set", true, {{1, 16382}}, whole_space(14)},
};

// The list of a search that must hold every guarantee.
std::vector<cover_row> cover(const evlan_bmp_t &b, bool compact = false) {
    const cover_run r = l3mac_cover_run(b, compact);
    EXPECT_EQ(r.rv, 0);
    EXPECT_EQ(r.fault, "");
    return r.list;
}

TEST(MaskCover, KnownSetsGiveTheirWholeListInOrder) {
    for (const known_case &c : KNOWN) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(cover(cover_set(c.set, c.vfi)), c.want);
    }
}

// The greedy search (false) and the compact one (true).
class CoverSearch : public testing::TestWithParam<bool> {};

// Every allocation of a search on a few sets, in turn (any set, a drawn
// allocation: cover_fuzz).
TEST_P(CoverSearch, NoMemoryAtAnyAllocationLeavesNothingAndTheNextRunIsWhole) {
    const evlan_bmp_t sets[] = {
        cover_set({}),
        cover_set({{1, 1}, {3, 3}, {6, 7}, {14, 14}}),
        cover_set({{4096, 4099}}, true),
        // An operator's plan whose compact search prices its rows.
        cover_set({{817, 900}, {1150, 1325}, {1705, 1842}, {2433, 2745}, {3036, 3152},
                   {3329, 3483}, {3693, 3889}}),
    };
    for (const evlan_bmp_t &b : sets) {
        const std::vector<cover_row> want = cover(b, GetParam());
        const long plenty = 1L << 40;  // counts the allocations of one run
        l3mac_mem_fail_after = plenty;
        cover(b, GetParam());
        const long total = plenty - std::exchange(l3mac_mem_fail_after, -1);
        ASSERT_GT(total, 0);
        for (long n = 0; n < total; ++n) {
            SCOPED_TRACE(testing::Message() << "allocation " << n << " of " << total);
            l3mac_mem_fail_after = n;
            const cover_run failed = l3mac_cover_run(b, GetParam());
            l3mac_mem_fail_after = -1;
            ASSERT_EQ(failed.rv, -1);
            ASSERT_EQ(failed.fault, "");
            ASSERT_EQ(cover(b, GetParam()), want);
        }
    }
}

INSTANTIATE_TEST_SUITE_P(GreedyAndCompact, CoverSearch, testing::Bool());

}  // namespace
