// The fuzz targets' service world: see fuzz_world.h.
#include "support/fuzz_world.h"

#include <cstdlib>
#include <optional>

#include "diag/l3mac_release.h"
#include "frame/l3mac_ds.h"
#include "platform/host/hnx_host.h"
#include "platform/host/ssat_host.h"
#include "platform/host/tbl_memory.h"
#include "platform/host/tbl_state.h"
#include "platform/sw_rt_res.h"

namespace fs = std::filesystem;

namespace {

std::string g_root;
std::string g_profile;  // the profile's text as last given; "" none
bool g_profile_set = false;
bool g_journal = false;  // the table service's journal of writes, for the oracle

void fuzz_remove_root() {
    std::error_code ec;
    fs::remove_all(g_root, ec);
}

constexpr l3mac_caps kBoards[] = {
    {.tcam_cap = 6},                                                 // one small TCAM
    {.tcam2_en = true, .copy_to_tcam2 = false, .tcam_cap = 5, .tcam2_cap = 4,
     .evlan_num = 4096 + 16384},                                     // both TCAMs apart
    {.tcam2_en = true, .tcam_cap = 8, .tcam2_cap = 6, .rsvd_size = 1,
     .evlan_num = 4096 + 16384},                                     // all in the second
    {.tcam2_en = true, .is_mng2 = false, .copy_to_tcam2 = false, .tcam_cap = 6, .tcam2_cap = 4,
     .evlan_num = 4096 + 16384},                                     // second on the direct path
    {.tcam2_en = true, .is_mng = false, .copy_to_tcam2 = false, .tcam_cap = 4, .tcam2_cap = 5,
     .evlan_num = 4096 + 8192},                                      // first on the direct path
    {.is_mng = false, .is_mng2 = false, .tcam_cap = 4, .tcam2_cap = 4},  // no managed TCAM
    {},                                                              // the built-in defaults
};

// The service's state dropped as a process that ends leaves it: its
// records, runtime, debug commands and the table service's connections go;
// the store and the platform's pools stand, as they do for a process that
// starts again. The runtime is an in-process one: its loop is kept, empty,
// and the commands' records wait for the same commands again.
void fuzz_world_drop() {
    hnx_host_tbl_reset();
    hnx_host_tbl_keep_journal(g_journal);
    ssat_host_forget_commands();
    if (l3mac_ctx.global) kw_global_finish(l3mac_ctx.global);
    l3mac_release_all();
    l3mac_service_reset();
}

// What stands between inputs goes too: the store, the pools, the failure
// counters. The profile is given in memory, and only when it changes.
void fuzz_world_clear(const std::string &json) {
    fuzz_world_drop();
    tbl_memory_drop_all();
    hnx_host_pool_reset();
    std::memset(g_sw_rt_res_ss_err_cnt, 0, sizeof g_sw_rt_res_ss_err_cnt);
    if (g_profile_set && json == g_profile) return;
    hnx_host_set_profile(json.empty() ? std::nullopt : std::optional<std::string>(json));
    g_profile = json, g_profile_set = true;
}

[[noreturn]] void fuzz_reset_fail(const char *when, const std::string &what) {
    std::fprintf(stderr, "fuzz: the reset %s left %s\n", when, what.c_str());
    std::abort();
}

void fuzz_world_up(bool smooth) {
    if (!l3mac_service_up()) std::abort();
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
    // The service is driven by direct calls: no debug socket, and the
    // event loop and the commands' records stay from one start to the next.
    hnx_host_set_in_process(true);
    // A store file costs more than the whole service: the targets keep
    // theirs in memory, where a reset is the drop of a map.
    setenv("HNX_STORE", "memory", 1);
    fs::create_directories(g_root + "/etc/hnx");
    return g_root;
}

void fuzz_world_journal(bool keep) { g_journal = keep; }

std::string fuzz_board_json(unsigned n) { return l3mac_caps_json(kBoards[n % std::size(kBoards)]); }

void fuzz_world_start(const std::string &json, bool smooth) {
    fuzz_root();
    fuzz_world_clear(json);
    fuzz_world_check_reset("before an input");
    fuzz_world_up(smooth);
}

void fuzz_world_check_reset(const char *when) {
    static const l3mac_ctx_t kZero{};
    if (std::memcmp(&l3mac_ctx, &kZero, sizeof kZero) != 0)
        fuzz_reset_fail(when, "the service's record not all zero (a store, a pool, the timer "
                              "or a flag of the last input)");
    if (!list_empty(&l3mac_pending_head)) fuzz_reset_fail(when, "MACs on the pending list");
    if (l3mac_commom_decision_counter != 5 || l3mac_mem_fail_after != -1 ||
        g_rt_l3tb_log_level != 0 || g_rt_l3tb_log_cnt != -1)
        fuzz_reset_fail(when, "a decision limit, the failure injection or the log level changed");
    for (const sw_rt_res_err_slot &slot : g_sw_rt_res_ss_err_cnt)
        if (slot.count != 0) fuzz_reset_fail(when, "a failure counted");
    if (hnx_host_pool_count() != 0 || hnx_host_pool_held() != 0)
        fuzz_reset_fail(when, std::to_string(hnx_host_pool_count()) + " pools");
    if (hnx_host_global() != nullptr) fuzz_reset_fail(when, "a runtime and its timers");
    if (hnx_host_kept_handles() != 0)
        fuzz_reset_fail(when, std::to_string(hnx_host_kept_handles()) +
                                  " handles on the kept event loop");
    if (!ssat_host_commands(L3MAC_PROC_NAME).empty())
        fuzz_reset_fail(when, "debug commands registered");
    if (!hnx_host_tbl_journal().empty()) fuzz_reset_fail(when, "writes in the journal");
    // No store at all: the service's first open makes it empty.
    if (tbl_memory_exists(tbl_store_path(16))) fuzz_reset_fail(when, "the table store");
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
    mac_bytes[0] = 0x02;
    key.t_user = in.ConsumeBool() ? in.ConsumeIntegralInRange<uint32_t>(1, 3)
                                  : in.ConsumeIntegral<uint32_t>();
    std::snprintf(uuid, sizeof uuid, "u%u", in.ConsumeIntegralInRange<unsigned>(0, 15));
    key.uuid = uuid;
    res.status = static_cast<SRoute__L3tableStatusE>(
        in.ConsumeBool() ? 1 : in.ConsumeIntegralInRange<int>(0, 5));
    mac_bytes[5] = in.ConsumeIntegralInRange<uint8_t>(0, 3);
    mac.data.len = in.ConsumeIntegralInRange<int>(0, 7) ? 6 : in.ConsumeIntegralInRange<size_t>(0, 6);
    attr.mac = in.ConsumeIntegralInRange<int>(0, 15) ? &mac : nullptr;
    attr.evlan = fuzz_evlan(in);
    attr.mac_type = static_cast<SRoute__L3macTypeE>(in.ConsumeIntegralInRange<int>(0, 6));
    attr.phyid = in.ConsumeIntegralInRange<int>(0, 7) ? 0 : in.ConsumeIntegralInRange<uint32_t>(1, 2);
    attr.is_match_evlan = in.ConsumeBool();
    res.attr = in.ConsumeIntegralInRange<int>(0, 31) ? &attr : nullptr;
}
