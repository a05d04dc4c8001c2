// Speed of one decision round over N pending MACs with the VLAN sets of a
// switch's users, from all pending to all placed, and its commit to the
// table store.
#include <benchmark/benchmark.h>

#include <chrono>
#include <random>
#include <set>

#include "support/bench_world.h"

namespace {

// Room for every entry of the largest run, so that the round is measured
// placing entries, not failing for lack of room.
constexpr int kCap = 16384;

// MAC m's requests, by the user it stands for: one in eight a router MAC on
// a range of 32 to 200 VLANs, four in eight a VRRP MAC on 1 to 4 VLANs, two
// an overlay MAC on 8 random VFIs (the second TCAM), one a MAC on 8 random
// VLANs.
void mac_requests(uint32_t m, std::mt19937 &rng, std::vector<bench_req> &out) {
    const uint64_t mac = 0x020000000000ull + m;
    auto add = [&](uint32_t v, uint32_t type) {
        out.push_back({bench_uuid("d", m, v), mac, v, type});
    };
    auto random_set = [&](uint32_t count, uint32_t hi, uint32_t type) {
        std::set<uint32_t> set;
        std::uniform_int_distribution<uint32_t> pick(1, hi);
        while (set.size() < count) set.insert(pick(rng));
        for (uint32_t v : set) add(v, type);
    };
    const uint32_t kind = m % 8;
    if (kind == 0) {
        uint32_t len = std::uniform_int_distribution<uint32_t>(32, 200)(rng);
        uint32_t lo = std::uniform_int_distribution<uint32_t>(1, 4094 - len)(rng);
        for (uint32_t v = lo; v < lo + len; v++) add(v, kBenchNormal);
    } else if (kind <= 4) {
        random_set(1 + m % 4, 4094, kBenchVrrp);
    } else if (kind <= 6) {
        random_set(8, 8191, kBenchOl);
    } else {
        random_set(8, 4094, kBenchNormal);
    }
}

std::vector<bench_req> workload(uint32_t macs) {
    std::mt19937 rng(7);
    std::vector<bench_req> out;
    for (uint32_t m = 0; m < macs; m++) mac_requests(m, rng, out);
    return out;
}

using bench_ms = std::chrono::duration<double, std::milli>;

// Each iteration is a fresh service with every MAC pending and nothing
// placed; only the round and its commit are timed. The store stays: from
// the second iteration on its pages held the same rows before, as in a
// switch that has run a while (a new store file costs a third more).
void BM_DecisionRound(benchmark::State &state) {
    const std::vector<bench_req> reqs = workload(uint32_t(state.range(0)));
    bench_root root(bench_profile(kCap));
    double commit_ms = 0, entries = 0;
    for (auto _ : state) {
        state.PauseTiming();
        {
            bench_service svc;
            bench_service::smooth_quietly();
            for (const bench_req &r : reqs) bench_set(r);
            state.ResumeTiming();
            sw_l3mac_mac_decision();
            auto t0 = std::chrono::steady_clock::now();
            tbl_turn_commit();
            commit_ms += bench_ms(std::chrono::steady_clock::now() - t0).count();
            state.PauseTiming();
            entries = bench_service::in_use(0) + bench_service::in_use(1);
            if (!list_empty(&l3mac_pending_head)) state.SkipWithError("MACs left pending");
        }
        state.ResumeTiming();
    }
    state.counters["requests"] = double(reqs.size());
    state.counters["entries"] = entries;
    state.counters["commit_ms"] = commit_ms / double(state.iterations());
    state.counters["per_mac"] =
        benchmark::Counter(double(state.range(0)) * double(state.iterations()),
                           benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

}  // namespace

BENCHMARK(BM_DecisionRound)->Arg(64)->Arg(512)->Arg(2048)->Unit(benchmark::kMillisecond)
    ->Iterations(10);
