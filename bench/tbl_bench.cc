// Speed of the host table service on the users' side: request rows of
// s_route.l3mac_res added, then deleted, 64 to a transaction, as another
// process writes them (no loop, no service in this process).
#include <benchmark/benchmark.h>

#include "platform/host/tbl_state.h"
#include "support/bench_world.h"

namespace {

constexpr int kStore = 16;
constexpr uint32_t kRows = 4096;
constexpr uint32_t kBatch = 64;

ss_rt_tbl *request_table() {
    SRoute__L3macRes row = S_ROUTE__L3MAC_RES__INIT;
    SRoute__ResSubKey key = S_ROUTE__RES_SUB_KEY__INIT;
    return ss_rt_tbl_create_detail(kStore, 1, &row.base, 0, 12, &key.base, 0, 0);
}

// Writes the rows [from, from + kBatch) in one transaction.
void write_batch(ss_rt_tbl *t, const std::vector<bench_req> &reqs, uint32_t from, bool del) {
    tbl_store *st = tbl_store_of(kStore);
    st->begin();
    for (uint32_t i = from; i < from + kBatch; i++) {
        bench_row row(reqs[i].uuid, reqs[i].mac, reqs[i].evlan, reqs[i].mac_type);
        if (del) ss_rt_tbl_del_str(t, &row.res.base, 0, 0);
        else ss_rt_tbl_add_str(t, &row.res.base, 0, 0);
    }
    st->commit();
}

void BM_AddThenDeleteRows(benchmark::State &state) {
    std::vector<bench_req> reqs;
    for (uint32_t v = 1; v <= kRows; v++)
        reqs.push_back({bench_uuid("t", 0, v), 0x001122334455ull, v, kBenchNormal});
    bench_root root(bench_profile(4096));
    ss_rt_tbl *t = request_table();
    if (!t) return state.SkipWithError("no table");
    for (auto _ : state) {
        for (uint32_t at = 0; at < kRows; at += kBatch) write_batch(t, reqs, at, false);
        for (uint32_t at = 0; at < kRows; at += kBatch) write_batch(t, reqs, at, true);
    }
    state.counters["per_row"] =
        benchmark::Counter(double(state.iterations()) * 2 * kRows,
                           benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

}  // namespace

BENCHMARK(BM_AddThenDeleteRows)->Unit(benchmark::kMillisecond);
