// The board's capacity profile in the service's state: read at bring-up by
// the table of its keys (l3mac_cap_keys.h), and its dump.
#include <cstdio>
#include <cstring>

#include "diag/l3mac_log.h"
#include "frame/l3mac_cap_keys.h"
#include "frame/l3mac_ctx.h"
#include "frame/l3mac_init.h"
#include "platform/libkw_cap.h"

namespace {

void l3mac_cap_store(const l3mac_cap_values &v) {
    l3mac_ctx.algo = v.algo;
    l3mac_ctx.tcam_cap = v.tcam_cap;
    l3mac_ctx.tcam2_cap = v.tcam2_cap;
    l3mac_ctx.rsvd_size = v.rsvd_size;
    l3mac_ctx.dec_cnt = v.dec_cnt;
    l3mac_ctx.evlan_num = v.evlan_num;
    l3mac_ctx.tcam2_en = v.tcam2_en;
    l3mac_ctx.is_mng = v.is_mng;
    l3mac_ctx.is_mng2 = v.is_mng2;
    l3mac_ctx.copy_to_tcam2 = v.copy_to_tcam2;
    l3mac_ctx.compact_cover = v.compact_cover;
}

// A line of the dump goes through at_snprintf like every line of the
// debug commands.
template <class... A>
void l3mac_cap_line(const char *fmt, A... args) {
    char buf[L3MAC_LOG_BUF];
    std::memset(buf, 0, sizeof buf);
    at_snprintf(buf, sizeof buf, fmt, args...);
    std::printf("%s", buf);
}

}  // namespace

int l3mac_cap_init() {
    int rv = libkw_cap_init(l3mac_ctx.global, L3MAC_PROC_NAME);
    if (rv != SS_E_NONE) {
        L3MAC_FAIL(L3MAC_ERR_CAP_READ, "rv == SS_E_NONE", rv, 0);
        l3mac_cap_store(l3mac_cap_defaults());
        l3mac_ctx.drv_decision_max_counter = 5;
        return rv;
    }
    l3mac_get_cap();
    return SS_E_NONE;
}

void l3mac_get_cap() {
    l3mac_cap_values v{};
    const int merged = l3mac_cap_read(l3mac_ctx.global, &v);
    l3mac_cap_store(v);
    l3mac_ctx.drv_decision_max_counter = static_cast<uint32_t>(l3mac_ctx.dec_cnt);
    if (merged != 0) L3MAC_FAIL(L3MAC_ERR_CAP_READ, "rv == SS_E_NONE", merged, 0);
}

void l3mac_cap_dump() {
    const char *rule = "==============L3TB L3MAC CAP DUMP==============\r\n";
    l3mac_cap_line("%s", rule);
    l3mac_cap_line("algo       = %d\n", l3mac_ctx.algo);
    l3mac_cap_line("tcam cap   = %d\n", l3mac_ctx.tcam_cap);
    l3mac_cap_line("tcam2 en   = %d\n", l3mac_ctx.tcam2_en);
    l3mac_cap_line("tcam2 cap  = %d\n", l3mac_ctx.tcam2_cap);
    l3mac_cap_line("rsvd sz    = %d\n", l3mac_ctx.rsvd_size);
    l3mac_cap_line("dec cnt    = %d\n", l3mac_ctx.dec_cnt);
    l3mac_cap_line("evlan cap  = %d\n", l3mac_ctx.evlan_num);
    l3mac_cap_line("is mng     = %d\n", l3mac_ctx.is_mng);
    l3mac_cap_line("is mng2    = %d\n", l3mac_ctx.is_mng2);
    l3mac_cap_line("is copy tcam2 = %d\n", l3mac_ctx.copy_to_tcam2);
    l3mac_cap_line("%s", rule);
}
