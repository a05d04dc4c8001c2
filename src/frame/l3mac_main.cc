// Process entry's service side: the four tables, the connect callback that
// builds the service and lets requests in, and the debug level setting that
// start-up shares with the `debug` command.
#include "frame/l3mac_main.h"

#include <cstdio>

#include "diag/l3mac_log.h"
#include "frame/l3mac_ctx.h"
#include "frame/l3mac_ds.h"
#include "frame/l3mac_init.h"
#include "request/l3mac_msg.h"
#include "s_route.pb-c.h"

const char *const l3mac_dbg_level_names[8] = {
    "CLOSE", "ERROR", "BRIEF", "EVENT", "WARNING", "INFO", "HIGH FREQ", "ALL"};

namespace {

constexpr int L3MAC_TBL_DB = 16;    // the table store of the routing plane
constexpr int L3MAC_TBL_KIND = 1;
constexpr int L3MAC_TBL_KEY_POS = 12;  // the `index` member holds the key
constexpr int L3MAC_TBL_INIT_MODE = 4;

// One table's creation arguments. The sizes are those of the generated
// records on the target's 32-bit layout, which the table service expects.
struct l3mac_tbl_spec {
    ss_rt_tbl *l3mac_ctx_t::*handle;
    const ProtobufCMessage *value_tpl;
    uint32_t value_size;
    const ProtobufCMessage *key_tpl;
    uint32_t key_size;
    int last;
};

// The table service hands rows over as their protobuf-c base; these
// adapters give the handlers their own record type, which begins with it.
int l3mac_set_adapter(const ProtobufCMessage *row) {
    return l3mac_set_msg_proc(reinterpret_cast<const l3mac_pmsg_t *>(row));
}

int l3mac_del_adapter(const ProtobufCMessage *row) {
    return l3mac_del_msg_proc(reinterpret_cast<const l3mac_pmsg_t *>(row));
}

}  // namespace

int l3mac_tbl_init() {
    int rv = ss_rt_tbl_init(l3mac_ctx.global, L3MAC_PROC_NAME, L3MAC_TBL_INIT_MODE);
    if (rv != SS_E_NONE) L3MAC_FAIL(L3MAC_ERR_TBL_INIT, "rv == SS_E_NONE", rv, 0);

    // Templates in their initial state; the service does not keep them.
    SRoute__L3macRes res = S_ROUTE__L3MAC_RES__INIT;
    SRoute__ResSubKey res_key = S_ROUTE__RES_SUB_KEY__INIT;
    SRoute__L3macHwRes hw_res = S_ROUTE__L3MAC_HW_RES__INIT;
    SRoute__L3macHwKey hw_key = S_ROUTE__L3MAC_HW_KEY__INIT;
    SRoute__L3macBak bak = S_ROUTE__L3MAC_BAK__INIT;
    SRoute__L3macHwAttr bak_key = S_ROUTE__L3MAC_HW_ATTR__INIT;
    SRoute__L3macVrrpHwRes vrrp = S_ROUTE__L3MAC_VRRP_HW_RES__INIT;
    SRoute__L3macHwAttr vrrp_key = S_ROUTE__L3MAC_HW_ATTR__INIT;
    const l3mac_tbl_spec specs[] = {
        {&l3mac_ctx_t::tbl_res, &res.base, 24, &res_key.base, 20, 0},
        {&l3mac_ctx_t::tbl_hw_res, &hw_res.base, 20, &hw_key.base, 20, 1},
        {&l3mac_ctx_t::tbl_bak, &bak.base, 24, &bak_key.base, 32, 1},
        {&l3mac_ctx_t::tbl_vrrp_hw_res, &vrrp.base, 16, &vrrp_key.base, 32, 1},
    };
    for (const l3mac_tbl_spec &s : specs) {
        l3mac_ctx.*s.handle = ss_rt_tbl_create_detail(
            L3MAC_TBL_DB, L3MAC_TBL_KIND, s.value_tpl, s.value_size,
            L3MAC_TBL_KEY_POS, s.key_tpl, s.key_size, s.last);
    }
    return rv;
}

int l3mac_connect_cb() {
    // The table service may call again after a reconnect: the service is
    // built once, and a second subscription would deliver every row twice.
    if (l3mac_ctx.is_connected) return 0;
    l3mac_ctx.is_connected = 1;
    l3mac_init();
    ss_rt_tbl_reg_ds_func(l3mac_data_check);
    ss_rt_tbl_subscribe_detail(l3mac_ctx.tbl_res, l3mac_set_adapter,
                               l3mac_del_adapter, 0, 0);
    return 0;
}

void l3mac_debug_set(int level, int log_cnt) {
    std::printf("\n%10s %20s\n", "dbg level", "name");
    for (int i = 0; i < 8; i++) std::printf("%10d %20s\n", i, l3mac_dbg_level_names[i]);
    std::printf("\nlevel:%d log_cnt:%d dbg_info:%d", level, log_cnt, 0);
    const int clamped = level < 0 ? 0 : level > 7 ? 7 : level;
    g_rt_l3tb_log_level = static_cast<uint32_t>(clamped);
    g_rt_l3tb_log_cnt = log_cnt;
    std::printf("\nlevel:%s log_cnt:%d\n", l3mac_dbg_level_names[clamped], log_cnt);
}
