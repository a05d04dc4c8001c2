// The fuzz targets' service world: see fuzz_world.h.
#include "support/fuzz_world.h"

#include <cstdlib>

#include "diag/l3mac_release.h"
#include "frame/l3mac_ds.h"
#include "platform/host/hnx_host.h"
#include "platform/host/ssat_host.h"

namespace fs = std::filesystem;

namespace {

std::string g_root;

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

// The service's state of the last input, and its store, are dropped; the
// platform's pools stay reachable and are not reused.
void fuzz_world_drop() {
    hnx_host_tbl_reset();
    ssat_host_reset();
    if (l3mac_ctx.global) kw_global_finish(l3mac_ctx.global);
    l3mac_release_all();
    l3mac_service_reset();
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
    fs::create_directories(g_root + "/etc/hnx");
    return g_root;
}

std::string fuzz_board_json(unsigned n) { return l3mac_caps_json(kBoards[n % std::size(kBoards)]); }

void fuzz_world_start(const std::string &json, bool smooth) {
    const std::string &root = fuzz_root();
    fuzz_world_drop();
    std::error_code ec;
    fs::remove_all(root + "/var", ec);
    l3mac_profile_write(root, json);
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
