// Speed of the set and delete handlers under a burst: 4094 adds, then the
// 4094 deletes, as the table service hands them on within one tick. The
// first adds spend the tick's budget of direct rounds, as in service.
#include <benchmark/benchmark.h>

#include "support/bench_world.h"

namespace {

constexpr int kCap = 4096;
constexpr uint32_t kVlans = 4094;

// One router MAC on every VLAN (an L3 interface per VLAN), or one MAC per
// VLAN (a VRRP group each).
std::vector<bench_req> burst(bool one_mac) {
    std::vector<bench_req> out;
    for (uint32_t v = 1; v <= kVlans; v++)
        out.push_back({bench_uuid("h", 0, v), 0x001122334455ull + (one_mac ? 0 : v), v,
                       one_mac ? kBenchNormal : kBenchVrrp});
    return out;
}

// The handlers are timed; between two iterations a round, out of time,
// takes away what the burst's direct rounds placed, and a tick resets the
// budgets, so that every iteration starts from the same empty service.
void run_burst(benchmark::State &state, bool one_mac) {
    const std::vector<bench_req> reqs = burst(one_mac);
    bench_root root(bench_profile(kCap));
    bench_service svc;
    bench_service::smooth_quietly();
    l3mac_commom_decision_counter = 5;
    l3mac_ctx.drv_decision_max_counter = 5;
    for (auto _ : state) {
        for (const bench_req &r : reqs) bench_set(r);
        for (const bench_req &r : reqs) bench_del(r);
        state.PauseTiming();
        sw_l3mac_mac_decision();
        tbl_turn_commit();
        bench_service::new_tick();
        if (bench_service::in_use(0) != 0) state.SkipWithError("entries left");
        state.ResumeTiming();
    }
    state.SetItemsProcessed(int64_t(state.iterations()) * int64_t(2 * reqs.size()));
    state.counters["per_request"] =
        benchmark::Counter(double(state.iterations()) * double(2 * reqs.size()),
                           benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

void BM_BurstOneMac(benchmark::State &s) { run_burst(s, true); }
void BM_BurstMacPerVlan(benchmark::State &s) { run_burst(s, false); }

}  // namespace

BENCHMARK(BM_BurstOneMac)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_BurstMacPerVlan)->Unit(benchmark::kMillisecond);
