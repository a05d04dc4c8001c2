// Placeholder bodies until this part of the host platform is written.
#include "platform/kw_runtime.h"
#include "platform/printk_syslog.h"
#include "platform/sw_rt_res.h"
#include "platform/ssat.h"
#include "platform/libkw_cap.h"
#include "platform/sw_res_comm.h"
#include <cstdio>
#include <cstdarg>
sw_rt_res_err_slot g_sw_rt_res_ss_err_cnt[SW_RT_RES_ERR_SLOTS];
uint32_t g_rt_l3tb_log_level;
int32_t g_rt_l3tb_log_cnt = -1;
int sw_rt_res_app_show_info(int, int) { return 0; }
int at_snprintf(char *buf, size_t n, const char *fmt, ...) { va_list ap; va_start(ap, fmt); int r = std::vsnprintf(buf, n, fmt, ap); va_end(ap); return r; }
