// Speed of data smoothing after a restart with both TCAMs full: 2 x 4096
// backup rows and 50 000 input rows on the SQLite table store, unchanged
// since the last life, so that every entry comes back at its index.
#include <benchmark/benchmark.h>

#include "support/bench_world.h"

namespace {

constexpr int kCap = 4096;
constexpr uint32_t kMacs = 2048;  // half on each TCAM, four entries each
constexpr uint32_t kRequests = 50000;

// Four blocks of 4 or 8 VLANs per MAC, in the 8-VLAN slots 3, 5, 6 and 9
// of a 128-VLAN window: slots that differ in two bits or more never merge
// into a larger value/mask pair, and no member is a power of two, which
// would pair with value 0, so each block is one entry. Enough blocks are of
// 8 to make `requests` in all (32 768 to 65 536).
std::vector<bench_req> full_tcams(uint32_t requests) {
    static const uint32_t slot[4] = {3, 5, 6, 9};
    const uint32_t blocks = kMacs * 4, large = (requests - 4 * blocks) / 4;
    std::vector<bench_req> out;
    for (uint32_t m = 0; m < kMacs; m++) {
        const uint32_t type = m < kMacs / 2 ? kBenchNormal : kBenchOl;
        const uint32_t base = 128 * (1 + m % 30);
        for (uint32_t j = 0; j < 4; j++) {
            const uint32_t b = 4 * m + j;
            const uint32_t size = (b + 1) * large / blocks != b * large / blocks ? 8 : 4;
            for (uint32_t k = 0; k < size; k++) {
                const uint32_t v = base + 8 * slot[j] + k;
                out.push_back({bench_uuid("s", m, v),
                               0x040000000000ull + m, v, type});
            }
        }
    }
    return out;
}

// The first life: the users' rows in the input table, decided and placed,
// the backup table full.
void first_life(const std::vector<bench_req> &reqs) {
    bench_service svc;
    bench_service::smooth_quietly();
    for (const bench_req &r : reqs) bench_store_request(r);
    for (const bench_req &r : reqs) bench_set(r);
    sw_l3mac_mac_decision();
    tbl_turn_commit();
}

// Each iteration is a new process life over the same store; smoothing and
// the commit of what it wrote are timed.
void BM_DataCheck(benchmark::State &state) {
    const std::vector<bench_req> reqs = full_tcams(kRequests);
    bench_root root(bench_profile(kCap));
    first_life(reqs);
    uint32_t placed[2] = {};
    for (auto _ : state) {
        state.PauseTiming();
        {
            bench_service svc;
            state.ResumeTiming();
            l3mac_data_check();
            tbl_turn_commit();
            state.PauseTiming();
            placed[0] = bench_service::in_use(0);
            placed[1] = bench_service::in_use(1);
        }
        state.ResumeTiming();
    }
    if (placed[0] != kCap || placed[1] != kCap) state.SkipWithError("TCAMs not full");
    state.counters["input_rows"] = double(reqs.size());
    state.counters["entries"] = double(placed[0] + placed[1]);
}

}  // namespace

BENCHMARK(BM_DataCheck)->Unit(benchmark::kMillisecond)->Iterations(5);
