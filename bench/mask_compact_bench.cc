// Speed of the compact cover search beside the greedy one on the same sets:
// the whole spaces, the demo's router MAC, operator plans, and random sets
// of every density, whose slowest and 99th-percentile times are counters.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <ctime>
#include <initializer_list>
#include <random>
#include <utility>
#include <vector>

#include "decision/l3mac_mask.h"
#include "decision/l3mac_mask_compact.h"

namespace {

evlan_bmp_t ranges(std::initializer_list<std::pair<uint32_t, uint32_t>> set, bool vfi = false) {
    evlan_bmp_t b{};
    b.is_vfi = vfi;
    for (auto [lo, hi] : set)
        for (uint32_t v = lo; v <= hi; ++v) l3mac_bmp_set(&b, v);
    return b;
}

// Entries of one run (the filler takes none); `compact` picks the search.
size_t cover_once(const evlan_bmp_t &b, bool compact) {
    list_head head;
    list_init(&head);
    const int rv = compact ? l3mac_masklist_calc_compact(&b, nullptr, 0, &head)
                           : l3mac_masklist_calc(&b, &head);
    if (rv != 0) return 0;
    const uint32_t wm = b.is_vfi ? 0x3FFF : 0xFFF;
    size_t n = 0;
    for (list_head *p = head.next; p != &head; p = p->next) {
        const mask_template *t = l3mac_mask_of(p);
        n += !(t->key == 0 && (t->mask & wm) == wm);
    }
    l3mac_masklist_free(&head);
    return n;
}

void run_cover(benchmark::State &state, const evlan_bmp_t &b) {
    const bool compact = state.range(0) != 0;
    size_t entries = 0;
    for (auto _ : state) entries = cover_once(b, compact);
    state.counters["entries"] = static_cast<double>(entries);
    state.SetLabel(compact ? "compact" : "greedy");
}

// An operator's plan: 1 to 8 ranges of up to 300 VLANs and up to 3 single
// VLANs, drawn with `seed`.
evlan_bmp_t operator_plan(std::mt19937 &rng) {
    evlan_bmp_t b{};
    std::uniform_int_distribution<uint32_t> start(1, 3800), len(0, 300), vlan(1, 4094);
    for (uint32_t k = 1 + rng() % 8; k > 0; --k) {
        const uint32_t lo = start(rng), hi = std::min(lo + len(rng), 4094u);
        for (uint32_t v = lo; v <= hi; ++v) l3mac_bmp_set(&b, v);
    }
    for (uint32_t k = rng() % 4; k > 0; --k) l3mac_bmp_set(&b, vlan(rng));
    return b;
}

evlan_bmp_t random_density(std::mt19937 &rng, double d) {
    evlan_bmp_t b{};
    std::bernoulli_distribution in(d);
    for (uint32_t v = 1; v < 4095; ++v)
        if (in(rng)) l3mac_bmp_set(&b, v);
    return b;
}

// The thread's CPU time in ms: the machine's other work stays out of it.
double cpu_ms() {
    timespec t;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
    return static_cast<double>(t.tv_sec) * 1e3 + static_cast<double>(t.tv_nsec) / 1e6;
}

// One pass over the sets per iteration; counters: the slowest set, the
// 99th percentile and the mean (ms of CPU), the entries of all sets, and
// the sets that took longer than `goal_ms`, the goal of their kind.
void run_many(benchmark::State &state, const std::vector<evlan_bmp_t> &sets, double goal_ms) {
    const bool compact = state.range(0) != 0;
    std::vector<double> ms;
    size_t entries = 0;
    for (auto _ : state) {
        ms.clear();
        entries = 0;
        for (const evlan_bmp_t &b : sets) {
            const double t0 = cpu_ms();
            entries += cover_once(b, compact);
            ms.push_back(cpu_ms() - t0);
        }
    }
    std::sort(ms.begin(), ms.end());
    state.counters["max_ms"] = ms.back();
    state.counters["p99_ms"] = ms[ms.size() * 99 / 100];
    double sum = 0;
    for (double x : ms) sum += x;
    state.counters["mean_ms"] = sum / static_cast<double>(ms.size());
    state.counters["entries"] = static_cast<double>(entries);
    state.counters["over_goal"] =
        static_cast<double>(ms.end() - std::upper_bound(ms.begin(), ms.end(), goal_ms));
    state.SetLabel(compact ? "compact" : "greedy");
}

void BM_WholeVlanSet(benchmark::State &s) { run_cover(s, ranges({{1, 4094}})); }
void BM_WholeVfiSet(benchmark::State &s) { run_cover(s, ranges({{1, 16382}}, true)); }
void BM_DemoRouterMac(benchmark::State &s) { run_cover(s, ranges({{2, 3001}})); }
void BM_OperatorSet(benchmark::State &s) {
    run_cover(s, ranges({{10, 20}, {100, 199}, {1000, 1023}, {2000, 2000}, {3001, 3001},
                         {4000, 4010}}));
}
void BM_VfiPlan(benchmark::State &s) { run_cover(s, ranges({{5000, 5499}}, true)); }
// Every VLAN but 40 drawn at random: few runs, many primes.
void BM_AllVlansBut40(benchmark::State &s) {
    std::mt19937 rng(9);
    evlan_bmp_t b = ranges({{1, 4094}});
    for (int k = 0; k < 40; ++k) {
        const uint32_t v = 1 + rng() % 4094;
        b.bmp[v / 32] &= ~(1u << (v % 32));
    }
    run_cover(s, b);
}

// `count` operator plans drawn with `seed`; each should take under 1 ms.
void run_plans(benchmark::State &s, unsigned seed, int count) {
    std::mt19937 rng(seed);
    std::vector<evlan_bmp_t> sets;
    for (int i = 0; i < count; ++i) sets.push_back(operator_plan(rng));
    run_many(s, sets, 1.0);
}
void BM_OperatorPlans200(benchmark::State &s) { run_plans(s, 1, 200); }
// A thousand more, for the rare plan whose search is long.
void BM_OperatorPlans1000(benchmark::State &s) { run_plans(s, 99, 1000); }

// 20 sets at each density from 0.05 to 0.95, drawn with `seed`; each
// should take under 10 ms.
void run_random(benchmark::State &s, std::initializer_list<unsigned> seeds) {
    std::vector<evlan_bmp_t> sets;
    for (unsigned seed : seeds) {
        std::mt19937 rng(seed);
        for (int d = 1; d <= 19; ++d)
            for (int i = 0; i < 20; ++i) sets.push_back(random_density(rng, d * 0.05));
    }
    run_many(s, sets, 10.0);
}
void BM_RandomVlanSets380(benchmark::State &s) { run_random(s, {2}); }
// Two more draws of the same densities, for the slowest sets.
void BM_RandomVlanSets760More(benchmark::State &s) { run_random(s, {3, 4}); }

}  // namespace

BENCHMARK(BM_WholeVlanSet)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_WholeVfiSet)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_DemoRouterMac)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_OperatorSet)->Arg(0)->Arg(1)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_VfiPlan)->Arg(0)->Arg(1)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_AllVlansBut40)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_OperatorPlans200)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->Iterations(1);
BENCHMARK(BM_RandomVlanSets380)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->Iterations(1);
BENCHMARK(BM_OperatorPlans1000)->Arg(1)->Unit(benchmark::kMillisecond)->Iterations(1);
BENCHMARK(BM_RandomVlanSets760More)->Arg(1)->Unit(benchmark::kMillisecond)->Iterations(1);
