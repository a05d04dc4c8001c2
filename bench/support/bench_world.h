// A service for one benchmark: a temporary file root with a board profile,
// an empty table store on SQLite, zeroed state, brought up and smoothed by
// direct calls. The loop never runs: rounds and smoothing are called here.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "decision/l3mac_decision.h"
#include "decision/l3mac_mac.h"
#include "diag/l3mac_release.h"
#include "frame/l3mac_ctx.h"
#include "frame/l3mac_ds.h"
#include "frame/l3mac_main.h"
#include "frame/l3mac_mem.h"
#include "platform/host/hnx_host.h"
#include "platform/host/tbl_state.h"
#include "platform/host/tbl_turn.h"
#include "platform/ss_rt_tbl.h"
#include "platform/sw_rt_res.h"
#include "request/l3mac_msg.h"
#include "s_route.pb-c.h"
#include "store/l3mac_db.h"
#include "tests/support/service_world.h"

inline constexpr uint32_t kBenchNormal = S_ROUTE__L3MAC_TYPE_E__L3MAC_NORMAL;
inline constexpr uint32_t kBenchOl = S_ROUTE__L3MAC_TYPE_E__L3MAC_OL;
inline constexpr uint32_t kBenchVrrp = S_ROUTE__L3MAC_TYPE_E__L3MAC_VRRP;
inline constexpr uint32_t kBenchUser = S_ROUTE__L3TABLE_USER_E__L3TABLE_UC;

// A board with both TCAMs managed, each of `cap` entries, and no copy of
// every type to the second: L3MAC_OL and L3MAC_TNL go there, the rest to
// the first.
inline std::string bench_profile(int cap) {
    return l3mac_caps_json({.tcam2_en = true, .copy_to_tcam2 = false, .tcam_cap = cap,
                            .tcam2_cap = cap, .evlan_num = 20480});
}

// One request row of s_route.l3mac_res on the stack.
struct bench_row : l3mac_res_parts {
    bench_row(const std::string &uuid, uint64_t mac48, uint32_t evlan, uint32_t mac_type) {
        for (int i = 0; i < 6; i++) mac_bytes[i] = uint8_t(mac48 >> (8 * (5 - i)));
        key.t_user = kBenchUser;
        key.uuid = const_cast<char *>(uuid.c_str());
        attr.evlan = evlan;
        attr.mac_type = SRoute__L3macTypeE(mac_type);
        res.status = S_ROUTE__L3TABLE_STATUS_E__STATUS_REQUEST;
    }
};

// One user's request: its uuid, MAC and VLAN (or VFI number).
struct bench_req {
    std::string uuid;
    uint64_t mac;
    uint32_t evlan;
    uint32_t mac_type;
};

// "<prefix><a>-<b>": the uuid of one request.
inline std::string bench_uuid(const char *prefix, uint32_t a, uint32_t b) {
    char u[64];
    std::snprintf(u, sizeof u, "%s%u-%u", prefix, a, b);
    return u;
}

inline int bench_set(const bench_req &r) {
    bench_row row(r.uuid, r.mac, r.evlan, r.mac_type);
    return l3mac_set_msg_proc(&row.res);
}

inline int bench_del(const bench_req &r) {
    bench_row row(r.uuid, 0, 0, 0);
    row.res.attr = nullptr;
    return l3mac_del_msg_proc(&row.res);
}

// The row written to the input table, as a user would, without the handler.
inline void bench_store_request(const bench_req &r) {
    bench_row row(r.uuid, r.mac, r.evlan, r.mac_type);
    ss_rt_tbl_add_str(l3mac_ctx.tbl_res, &row.res.base, 0, 0);
}

// The table service forgets every table and closes its stores; it keeps no
// journal of the writes, as in the daemon.
inline void bench_tbl_reset() {
    hnx_host_tbl_reset();
    tbl_proc().keep_journal = false;
}

// One process life of the service over the world's root. Only one stands
// at a time: the service's state is the process's.
class bench_service {
public:
    bench_service() {
        l3mac_service_reset();
        std::memset(g_sw_rt_res_ss_err_cnt, 0, sizeof g_sw_rt_res_ss_err_cnt);
        if (!l3mac_service_up()) std::abort();
    }

    // The service never frees its stores; a benchmark that starts many
    // lives must, or its memory grows with the iterations.
    ~bench_service() {
        l3mac_release_all();
        bench_tbl_reset();
        kw_global_finish(l3mac_ctx.global);
        std::memset(&l3mac_ctx, 0, sizeof l3mac_ctx);
    }
    bench_service(const bench_service &) = delete;

    // Data smoothing, then no direct rounds after requests: only the calls
    // of the benchmark decide.
    static void smooth_quietly() {
        l3mac_data_check();
        tbl_turn_commit();
        l3mac_commom_decision_counter = 0;
        l3mac_ctx.drv_decision_max_counter = 0;
    }

    // A tick's reset of the budgets, without its round.
    static void new_tick() {
        l3mac_ctx.commom_decision_cnt = 0;
        l3mac_ctx.drv_decision_cnt = 0;
    }

    static uint32_t in_use(int tcam) {
        const sw_res_rm *rm = l3mac_ctx.tcam_rm[tcam];
        return rm ? rm->in_use : 0;
    }
};

// The file root with its profile, removed at the end.
class bench_root {
public:
    explicit bench_root(const std::string &profile) {
        char tmpl[] = "/tmp/l3mac-bench-XXXXXX";
        if (mkdtemp(tmpl) == nullptr) std::abort();
        path_ = tmpl;
        hnx_host_set_root(path_);
        bench_tbl_reset();
        l3mac_profile_write(path_, profile);
    }
    ~bench_root() {
        bench_tbl_reset();
        std::error_code ec;
        std::filesystem::remove_all(path_, ec);
    }
    bench_root(const bench_root &) = delete;

private:
    std::string path_;
};
