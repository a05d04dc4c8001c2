// The failure table and the two log variables shared with the routing
// resource library, and the library's dump of the table.
#include <cstdio>
#include <cstring>

#include "platform/sw_rt_res.h"

sw_rt_res_err_slot g_sw_rt_res_ss_err_cnt[SW_RT_RES_ERR_SLOTS];
uint32_t g_rt_l3tb_log_level = 0;
// Unlimited from the start, so that raising the level alone opens the log.
int32_t g_rt_l3tb_log_cnt = -1;

namespace {

void show_slot(int code, const sw_rt_res_err_slot &s) {
    std::printf("code:%-4d count:%-10u data1:%-11d data2:%-11d line:%d\n", code,
                s.count, s.data1, s.data2, s.line);
}

}  // namespace

int sw_rt_res_app_show_info(int clean, int is_detail) {
    if (is_detail) std::printf("==== failure counters (%d codes) ====\n", SW_RT_RES_ERR_SLOTS);
    unsigned long total = 0;
    int codes = 0;
    for (int code = 0; code < SW_RT_RES_ERR_SLOTS; code++) {
        const sw_rt_res_err_slot &s = g_sw_rt_res_ss_err_cnt[code];
        if (s.count == 0) continue;
        show_slot(code, s);
        total += s.count;
        codes++;
    }
    if (is_detail) std::printf("total: %lu failures under %d codes\n", total, codes);
    if (clean) std::memset(g_sw_rt_res_ss_err_cnt, 0, sizeof g_sw_rt_res_ss_err_cnt);
    return 0;
}
