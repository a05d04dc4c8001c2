// Failure table and log variables shared with the routing resource library.
#pragma once

#include <cstddef>
#include <cstdint>

// One slot of the failure table; the slot's number is the failure code.
struct sw_rt_res_err_slot {
    uint8_t lib0[8];
    uint32_t count;
    uint8_t lib1[4];
    int32_t data1;
    int32_t data2;
    int32_t line;
};
static_assert(sizeof(sw_rt_res_err_slot) == 28);
static_assert(offsetof(sw_rt_res_err_slot, count) == 8);
static_assert(offsetof(sw_rt_res_err_slot, data1) == 16);

inline constexpr int SW_RT_RES_ERR_SLOTS = 195;

extern sw_rt_res_err_slot g_sw_rt_res_ss_err_cnt[SW_RT_RES_ERR_SLOTS];
extern uint32_t g_rt_l3tb_log_level;  // 0 CLOSE .. 7 ALL
extern int32_t g_rt_l3tb_log_cnt;     // line budget, -1 unlimited

// Prints the slots that have counted; clears the table when `clean` is set.
int sw_rt_res_app_show_info(int clean, int is_detail);
