// Sets of VLANs or VFIs for the cover search's tests: given by ranges, or
// drawn at random with a density.
#pragma once

#include <random>
#include <utility>
#include <vector>

#include "decision/l3mac_mask.h"

using cover_ranges = std::vector<std::pair<uint32_t, uint32_t>>;

inline evlan_bmp_t cover_set(const cover_ranges &set, bool vfi = false) {
    evlan_bmp_t b{};
    b.is_vfi = vfi;
    for (auto [lo, hi] : set)
        for (uint32_t v = lo; v <= hi; ++v) l3mac_bmp_set(&b, v);
    return b;
}

// Each number of the space in the set with the chance `density`.
inline evlan_bmp_t cover_random_set(std::mt19937 &rng, bool vfi, double density) {
    evlan_bmp_t b{};
    b.is_vfi = vfi;
    std::bernoulli_distribution in(density);
    for (uint32_t v = 0; v < (vfi ? 16384u : 4096u); ++v)
        if (in(rng)) l3mac_bmp_set(&b, v);
    return b;
}
