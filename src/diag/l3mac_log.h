// The report forms of the service: a line on standard output, gated by the
// level and the line budget, and a slot of the failure table that always
// counts. Gates are tested before anything is formatted, so a report with
// the log off costs the counter update alone.
#pragma once

#include <cstdint>
#include <cstdio>
#include <cstring>

#include "frame/l3mac_codes.h"
#include "platform/ssat.h"
#include "platform/sw_rt_res.h"

inline constexpr int L3MAC_LOG_BUF = 1000;

// Thresholds: lines print from level 1 (ERROR), 4 (WARN) and 5 (IN) up.
inline bool l3mac_log_gate(uint32_t threshold) {
    return g_rt_l3tb_log_level >= threshold && g_rt_l3tb_log_cnt != 0;
}

// Spends one line of the budget; -1 never runs out.
inline void l3mac_log_spend() {
    if (g_rt_l3tb_log_cnt > 0) g_rt_l3tb_log_cnt--;
}

// Counts a failure under its code with the data and line of this site.
inline void l3mac_err_count(int code, int32_t d1, int32_t d2, int line) {
    sw_rt_res_err_slot &s = g_sw_rt_res_ss_err_cnt[code];
    s.count++;
    s.data1 = d1;
    s.data2 = d2;
    s.line = line;
}

#define L3MAC_LOG_EMIT(threshold, word, fmt, ...)                             \
    do {                                                                      \
        if (l3mac_log_gate(threshold)) {                                      \
            char l3mac_buf_[L3MAC_LOG_BUF];                                   \
            std::memset(l3mac_buf_, 0, sizeof l3mac_buf_);                    \
            at_snprintf(l3mac_buf_, sizeof l3mac_buf_, "[%s]%s:%4d|" fmt,     \
                        word, __func__, __LINE__ __VA_OPT__(, ) __VA_ARGS__); \
            std::printf("%s", l3mac_buf_);                                    \
            l3mac_log_spend();                                                \
        }                                                                     \
    } while (0)

// Failure form: counts, and prints at ERROR.
#define L3MAC_FAIL(code, text, d1, d2)                                          \
    do {                                                                        \
        l3mac_err_count((code), (int32_t)(d1), (int32_t)(d2), __LINE__);        \
        L3MAC_LOG_EMIT(1, "ERROR", "fail:%s code:%d data1:%d data2:%d\n", text, \
                       (int)(code), (int)(d1), (int)(d2));                      \
    } while (0)

// Failure form at warning level: counts, and prints at WARNING.
#define L3MAC_FAIL_WARN(code, text, d1, d2)                                     \
    do {                                                                        \
        l3mac_err_count((code), (int32_t)(d1), (int32_t)(d2), __LINE__);        \
        L3MAC_LOG_EMIT(4, "WARN ", "fail:%s code:%d data1:%d data2:%d\n", text, \
                       (int)(code), (int)(d1), (int)(d2));                      \
    } while (0)

// Warning form: prints at WARNING, counts nothing.
#define L3MAC_WARN(text, d1, d2)                                        \
    L3MAC_LOG_EMIT(4, "WARN ", "fail:%s data1:%d data2:%d\n", text,     \
                   (int)(d1), (int)(d2))

// Check-return report: counts under the site's code, prints at ERROR.
#define L3MAC_CHECK_RET(code, d1, d2)                                    \
    do {                                                                 \
        l3mac_err_count((code), (int32_t)(d1), (int32_t)(d2), __LINE__); \
        L3MAC_LOG_EMIT(1, "ERROR", "check return, d1=%d, d2=%d\n",       \
                       (int)(d1), (int)(d2));                            \
    } while (0)

// Error line with the site's own text, at ERROR; counts nothing.
#define L3MAC_ERR_LINE(fmt, ...) L3MAC_LOG_EMIT(1, "ERROR", fmt __VA_OPT__(, ) __VA_ARGS__)

// Info line with the site's own text, at INFO; counts nothing.
#define L3MAC_INFO(fmt, ...) L3MAC_LOG_EMIT(5, "IN   ", fmt __VA_OPT__(, ) __VA_ARGS__)

// Count only: no line.
#define L3MAC_COUNT(code, d1, d2) \
    l3mac_err_count((code), (int32_t)(d1), (int32_t)(d2), __LINE__)

// True when INFO lines print: dumps that feed an INFO line run only then.
inline bool l3mac_info_on() { return l3mac_log_gate(5); }
