// The cover search's known sets and their whole answers, shared by the
// search's own test and the l3mac-cover tool's batch test.
#pragma once

#include <cstdint>
#include <tuple>
#include <utility>
#include <vector>

// (key, mask cut to the width of the space, level)
using row = std::tuple<uint32_t, uint32_t, int32_t>;
using ranges = std::vector<std::pair<uint32_t, uint32_t>>;

struct known_case {
    const char *name;
    bool vfi;
    ranges set;
    std::vector<row> want;
};

inline const std::vector<row> FILLER_VLAN = {{0, 0xFFF, 0}};

// A whole space: one template per bit, each leaving out that bit alone.
inline std::vector<row> whole_space(int bits) {
    std::vector<row> out;
    for (int b = 0; b < bits; ++b) out.emplace_back(0, 1u << b, bits - 1);
    return out;
}

inline const known_case KNOWN[] = {
    {"empty", false, {}, FILLER_VLAN},
    {"bit 0 unread", false, {{0, 0}}, FILLER_VLAN},
    {"top unread", false, {{4095, 4095}}, FILLER_VLAN},
    {"4094", false, {{4094, 4094}}, {{4094, 0xFFF, 0}, {0, 0xFFF, 0}}},
    {"5", false, {{5, 5}}, {{5, 0xFFF, 0}, {0, 0xFFF, 0}}},
    {"1", false, {{1, 1}}, {{0, 0xFFE, 1}}},
    {"2", false, {{2, 2}}, {{0, 0xFFD, 1}}},
    {"1,2", false, {{1, 2}}, {{0, 0xFFD, 1}, {0, 0xFFE, 1}}},
    {"1-3", false, {{1, 3}}, {{0, 0xFFC, 2}}},
    {"1-7", false, {{1, 7}}, {{0, 0xFF8, 3}}},
    {"1-15", false, {{1, 15}}, {{0, 0xFF0, 4}}},
    {"2,3", false, {{2, 3}}, {{2, 0xFFE, 1}, {0, 0xFFD, 1}}},
    {"4,5", false, {{4, 5}}, {{4, 0xFFE, 1}, {0, 0xFFB, 1}}},
    {"5,7", false, {{5, 5}, {7, 7}}, {{0, 0xFFF, 0}, {5, 0xFFD, 1}}},
    {"4-7", false, {{4, 7}}, {{0, 0xFFB, 1}, {4, 0xFFC, 2}}},
    {"8-15", false, {{8, 15}}, {{0, 0xFF7, 1}, {8, 0xFF8, 3}}},
    {"16-31", false, {{16, 31}}, {{0, 0xFEF, 1}, {16, 0xFF0, 4}}},
    {"100-103", false, {{100, 103}}, {{0, 0xFFF, 0}, {100, 0xFFC, 2}}},
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
    {"1,3,15", false, {{1, 1}, {3, 3}, {15, 15}},
     {{15, 0xFFF, 0}, {1, 0xFFD, 1}, {0, 0xFFE, 1}}},
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
    {"vfi 4096-4099", true, {{4096, 4099}}, {{0, 0x2FFF, 1}, {4096, 0x3FFC, 2}}},
    {"whole VFI set", true, {{1, 16382}}, whole_space(14)},
};
