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

// Slots that count events of normal work, not failures: the dump's summary
// keeps them apart, so that a running service does not look broken.
struct event_code {
    int code;
    const char *what;  // plural, for "<count> <what>"
};
constexpr event_code kEventCodes[] = {
    {59, "decision timer ticks"},
};

const event_code *event_of(int code) {
    for (const event_code &e : kEventCodes)
        if (e.code == code) return &e;
    return nullptr;
}

void show_slot(int code, const sw_rt_res_err_slot &s) {
    std::printf("code:%-4d count:%-10u data1:%-11d data2:%-11d line:%d\n", code,
                s.count, s.data1, s.data2, s.line);
}

const char *plural(unsigned long n, const char *one, const char *many) {
    return n == 1 ? one : many;
}

// "total:" counts the failures alone; each event slot that counted gets
// its own line after it.
void show_summary() {
    unsigned long total = 0;
    int codes = 0;
    for (int code = 0; code < SW_RT_RES_ERR_SLOTS; code++) {
        const uint32_t n = g_sw_rt_res_ss_err_cnt[code].count;
        if (n == 0 || event_of(code) != nullptr) continue;
        total += n;
        codes++;
    }
    std::printf("total: %lu %s under %d %s\n", total, plural(total, "failure", "failures"),
                codes, plural(codes, "code", "codes"));
    for (const event_code &e : kEventCodes) {
        const uint32_t n = g_sw_rt_res_ss_err_cnt[e.code].count;
        if (n != 0) std::printf("events, not failures: %u %s (code %d)\n", n, e.what, e.code);
    }
}

}  // namespace

int sw_rt_res_app_show_info(int clean, int is_detail) {
    if (is_detail) std::printf("==== failure counters (%d codes) ====\n", SW_RT_RES_ERR_SLOTS);
    for (int code = 0; code < SW_RT_RES_ERR_SLOTS; code++) {
        const sw_rt_res_err_slot &s = g_sw_rt_res_ss_err_cnt[code];
        if (s.count != 0) show_slot(code, s);
    }
    if (is_detail) show_summary();
    if (clean) std::memset(g_sw_rt_res_ss_err_cnt, 0, sizeof g_sw_rt_res_ss_err_cnt);
    return 0;
}
