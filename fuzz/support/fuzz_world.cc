// The fuzz targets' service world: see fuzz_world.h.
#include "support/fuzz_world.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "decision/l3mac_mac.h"
#include "diag/l3mac_release.h"
#include "frame/l3mac_ctx.h"
#include "frame/l3mac_ds.h"
#include "frame/l3mac_main.h"
#include "frame/l3mac_mem.h"
#include "platform/host/hnx_host.h"
#include "platform/host/ssat_host.h"
#include "platform/sw_rt_res.h"

namespace fs = std::filesystem;

namespace {

std::string g_root;

void fuzz_remove_root() {
    std::error_code ec;
    fs::remove_all(g_root, ec);
}

// Boards: {tcam2_en, is_mng, is_mng2, copy_to_tcam2, tcam_cap, tcam2_cap,
// rsvd_size, evlan_num}.
struct fuzz_board {
    bool tcam2_en, is_mng, is_mng2, copy;
    int tcam_cap, tcam2_cap, rsvd, evlan_num;
};

constexpr fuzz_board kBoards[] = {
    {false, true, true, true, 6, 256, 0, 4096},         // one small TCAM
    {true, true, true, false, 5, 4, 0, 4096 + 16384},   // both TCAMs apart
    {true, true, true, true, 8, 6, 1, 4096 + 16384},    // all in the second
    {true, true, false, false, 6, 4, 0, 4096 + 16384},  // second on the direct path
    {true, false, true, false, 4, 5, 0, 4096 + 8192},   // first on the direct path
    {false, false, false, true, 4, 4, 0, 4096},         // no managed TCAM
    {false, true, true, true, 256, 256, 0, 4096},       // the built-in defaults
};

const char *fuzz_bool(bool v) { return v ? "true" : "false"; }

// The service's state of the last input, and its store, are dropped; the
// platform's pools stay reachable and are not reused.
void fuzz_world_drop() {
    hnx_host_tbl_reset();
    ssat_host_reset();
    if (l3mac_ctx.global) kw_global_finish(l3mac_ctx.global);
    l3mac_release_all();
    std::memset(&l3mac_ctx, 0, sizeof l3mac_ctx);
    list_init(&l3mac_pending_head);
    l3mac_commom_decision_counter = 5;
    l3mac_mem_fail_after = -1;
    g_rt_l3tb_log_level = 0;
    g_rt_l3tb_log_cnt = -1;
}

void fuzz_world_up(bool smooth) {
    l3mac_ctx.global = kw_global_init("hnx-l3table-l3mac", 0);
    if (!l3mac_ctx.global) std::abort();
    l3mac_tbl_init();
    l3mac_connect_cb();
    if (smooth) l3mac_data_check();
}

void fuzz_world_fail(const l3mac_check_report &rep, const char *when) {
    std::fprintf(stderr, "fuzz: consistency check failed %s\n", when);
    for (const std::string &v : rep.violations) std::fprintf(stderr, "  violation: %s\n", v.c_str());
    for (const std::string &n : rep.notes) std::fprintf(stderr, "  note: %s\n", n.c_str());
    std::abort();
}

}  // namespace

const std::string &fuzz_root() {
    if (!g_root.empty()) return g_root;
    std::string tmpl = fs::is_directory("/dev/shm") ? "/dev/shm/hnx-fuzz-XXXXXX"
                                                    : "/tmp/hnx-fuzz-XXXXXX";
    if (!mkdtemp(tmpl.data())) std::abort();
    g_root = tmpl;
    std::atexit(fuzz_remove_root);
    hnx_host_set_root(g_root);
    fs::create_directories(g_root + "/etc/hnx");
    return g_root;
}

unsigned fuzz_board_count() { return sizeof kBoards / sizeof kBoards[0]; }

std::string fuzz_board_json(unsigned n) {
    const fuzz_board &b = kBoards[n % fuzz_board_count()];
    return std::string("{\"s_route\": {\"l3mac\": {\"capacity\": {\"tcam-cap\": ") +
           std::to_string(b.tcam_cap) + ", \"tcam2-cap\": " + std::to_string(b.tcam2_cap) +
           ", \"rsvd-size\": " + std::to_string(b.rsvd) + "}, \"ability\": {\"tcam2-en\": " +
           fuzz_bool(b.tcam2_en) + ", \"is-mng\": " + fuzz_bool(b.is_mng) +
           ", \"is-mng2\": " + fuzz_bool(b.is_mng2) + ", \"copy-to-tcam2\": " +
           fuzz_bool(b.copy) + "}}}, \"s_bridge\": {\"ebridge\": {\"capacity\": "
           "{\"evlan_num\": " + std::to_string(b.evlan_num) + "}}}}";
}

void fuzz_world_start(const std::string &json, bool smooth) {
    const std::string &root = fuzz_root();
    fuzz_world_drop();
    std::error_code ec;
    fs::remove_all(root + "/var", ec);
    const std::string profile = root + "/etc/hnx/capability.json";
    if (json.empty()) fs::remove(profile, ec);
    else std::ofstream(profile) << json;
    fuzz_world_up(smooth);
}

void fuzz_world_restart() {
    fuzz_world_drop();
    fuzz_world_up(true);
}

void fuzz_world_check(const l3mac_check_live_opts &opts, const char *when) {
    l3mac_check_report rep;
    l3mac_check_live(opts, &rep);
    if (!rep.ok()) fuzz_world_fail(rep, when);
}

void fuzz_world_check_tables(const char *when) {
    l3mac_check_rows rows;
    l3mac_check_read_tables(&rows);
    l3mac_check_report rep;
    l3mac_check_tables(rows, l3mac_check_board_live(), {.restarted = true}, &rep);
    if (!rep.ok()) fuzz_world_fail(rep, when);
}

uint32_t fuzz_evlan(FuzzedDataProvider &in) {
    static constexpr uint32_t kEdges[] = {0, 4094, 4095, 4096, 8191, 8192, 16382, 16383, 16384};
    switch (in.ConsumeIntegralInRange<int>(0, 3)) {
    case 0: return kEdges[in.ConsumeIntegralInRange<size_t>(0, std::size(kEdges) - 1)];
    case 1: return in.ConsumeIntegral<uint32_t>();
    default: return in.ConsumeIntegralInRange<uint32_t>(0, 40);
    }
}

fuzz_row::fuzz_row(FuzzedDataProvider &in) {
    key.t_user = in.ConsumeBool() ? in.ConsumeIntegralInRange<uint32_t>(1, 3)
                                  : in.ConsumeIntegral<uint32_t>();
    std::snprintf(uuid, sizeof uuid, "u%u", in.ConsumeIntegralInRange<unsigned>(0, 15));
    key.uuid = uuid;
    res.index = &key;
    res.status = static_cast<SRoute__L3tableStatusE>(
        in.ConsumeBool() ? 1 : in.ConsumeIntegralInRange<int>(0, 5));
    mac_bytes[5] = in.ConsumeIntegralInRange<uint8_t>(0, 3);
    mac.data.len = in.ConsumeIntegralInRange<int>(0, 7) ? 6 : in.ConsumeIntegralInRange<size_t>(0, 6);
    mac.data.data = mac_bytes;
    attr.mac = in.ConsumeIntegralInRange<int>(0, 15) ? &mac : nullptr;
    attr.evlan = fuzz_evlan(in);
    attr.mac_type = static_cast<SRoute__L3macTypeE>(in.ConsumeIntegralInRange<int>(0, 6));
    attr.phyid = in.ConsumeIntegralInRange<int>(0, 7) ? 0 : in.ConsumeIntegralInRange<uint32_t>(1, 2);
    attr.is_match_evlan = in.ConsumeBool();
    res.attr = in.ConsumeIntegralInRange<int>(0, 31) ? &attr : nullptr;
}
