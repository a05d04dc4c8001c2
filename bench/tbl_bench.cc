// Speed of the host table service on the users' side: request rows of
// s_route.l3mac_res added, then deleted, 64 to a transaction, as another
// process writes them (no loop, no service in this process); and the same
// behind a reader that stopped reading, with the change log at its bound.
#include <benchmark/benchmark.h>
#include <sqlite3.h>
#include <unistd.h>

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

// kRows requests of one MAC, one VLAN each.
std::vector<bench_req> one_mac_requests() {
    std::vector<bench_req> reqs;
    for (uint32_t v = 1; v <= kRows; v++)
        reqs.push_back({bench_uuid("t", 0, v), 0x001122334455ull, v, kBenchNormal});
    return reqs;
}

void BM_AddThenDeleteRows(benchmark::State &state) {
    const std::vector<bench_req> reqs = one_mac_requests();
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

// A reader that stands (a live process) at the log's start and never reads,
// and a log already as long as the writers let it grow: every prune then
// has a full log before it.
void BM_AddThenDeleteRowsBehindAStoppedReader(benchmark::State &state) {
    const std::vector<bench_req> reqs = one_mac_requests();
    bench_root root(bench_profile(4096));
    ss_rt_tbl *t = request_table();
    if (!t) return state.SkipWithError("no table");
    sqlite3 *db = nullptr;
    sqlite3_open(hnx_host_path("/var/run/hnx/store-16.db").c_str(), &db);
    std::string fill =
        "WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < " +
        std::to_string(kTblLogCap) +
        ") INSERT INTO changes(seq, tbl, op, key, val, writer)"
        " SELECT i, 'x', 1, x'00', x'00', 0 FROM n;"
        "INSERT INTO readers(pid, seq) VALUES(" + std::to_string(getpid()) + ", 1);";
    if (sqlite3_exec(db, fill.c_str(), nullptr, nullptr, nullptr) != SQLITE_OK)
        return sqlite3_close(db), state.SkipWithError("no log");
    sqlite3_close(db);
    for (auto _ : state) {
        for (uint32_t at = 0; at < kRows; at += kBatch) write_batch(t, reqs, at, false);
        for (uint32_t at = 0; at < kRows; at += kBatch) write_batch(t, reqs, at, true);
    }
    int64_t n = 0;
    tbl_store_of(kStore)->log_size(&n);
    state.counters["log"] = double(n);
    state.counters["per_row"] =
        benchmark::Counter(double(state.iterations()) * 2 * kRows,
                           benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

}  // namespace

BENCHMARK(BM_AddThenDeleteRows)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_AddThenDeleteRowsBehindAStoppedReader)->Unit(benchmark::kMillisecond);
