// Speed of the mask cover search on the sets that decide its goals: the
// whole spaces, a set with no neighbours, random and operator-like sets.
#include <benchmark/benchmark.h>

#include <initializer_list>
#include <random>
#include <utility>

#include "decision/l3mac_mask.h"

namespace {

evlan_bmp_t ranges(std::initializer_list<std::pair<uint32_t, uint32_t>> set,
                   bool vfi = false) {
    evlan_bmp_t b{};
    b.is_vfi = vfi;
    for (auto [lo, hi] : set)
        for (uint32_t v = lo; v <= hi; ++v) l3mac_bmp_set(&b, v);
    return b;
}

// `count` distinct VLANs from 1 to 4094, drawn with a fixed seed.
evlan_bmp_t random_vlans(uint32_t count, uint32_t seed) {
    evlan_bmp_t b{};
    std::mt19937 rng(seed);
    std::uniform_int_distribution<uint32_t> vlan(1, 4094);
    for (uint32_t n = 0; n < count;) {
        const uint32_t v = vlan(rng);
        if (!l3mac_bmp_test(&b, v)) {
            l3mac_bmp_set(&b, v);
            ++n;
        }
    }
    return b;
}

evlan_bmp_t even_parity_vlans() {
    evlan_bmp_t b{};
    for (uint32_t v = 1; v < 4095; ++v)
        if (__builtin_popcount(v) % 2 == 0) l3mac_bmp_set(&b, v);
    return b;
}

void run_cover(benchmark::State &state, const evlan_bmp_t &b) {
    size_t templates = 0;
    for (auto _ : state) {
        list_head head;
        list_init(&head);
        if (l3mac_masklist_calc(&b, &head) != 0) state.SkipWithError("no memory");
        templates = 0;
        for (list_head *p = head.next; p != &head; p = p->next) ++templates;
        l3mac_masklist_free(&head);
    }
    state.counters["templates"] = static_cast<double>(templates);
}

void BM_WholeVlanSet(benchmark::State &s) { run_cover(s, ranges({{1, 4094}})); }
void BM_WholeVfiSet(benchmark::State &s) { run_cover(s, ranges({{1, 16382}}, true)); }
void BM_EvenParityVlans(benchmark::State &s) { run_cover(s, even_parity_vlans()); }
void BM_RandomHalfVlans(benchmark::State &s) { run_cover(s, random_vlans(2047, 11)); }
void BM_Random128Vlans(benchmark::State &s) { run_cover(s, random_vlans(128, 12)); }
void BM_Random10Vlans(benchmark::State &s) { run_cover(s, random_vlans(10, 13)); }
void BM_OperatorSet(benchmark::State &s) {
    run_cover(s, ranges({{10, 20}, {100, 199}, {1000, 1023}, {2000, 2000},
                         {3001, 3001}, {4000, 4010}}));
}

}  // namespace

BENCHMARK(BM_WholeVlanSet)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_WholeVfiSet)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_EvenParityVlans)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_RandomHalfVlans)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_Random128Vlans)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_OperatorSet)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_Random10Vlans)->Unit(benchmark::kMicrosecond);
