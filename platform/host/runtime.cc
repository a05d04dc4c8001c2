// Placeholder bodies until this part of the host platform is written.
#include "platform/kw_runtime.h"
#include "platform/printk_syslog.h"
#include "platform/sw_rt_res.h"
#include "platform/ssat.h"
#include "platform/libkw_cap.h"
#include "platform/sw_res_comm.h"
#include <cstdio>
#include <cstdarg>
kw_global *kw_global_init(const char *, int) { return nullptr; }
int kw_global_run(kw_global *) { return 0; }
void kw_global_finish(kw_global *) {}
int kw_thread_insert_timer(kw_thread *, kw_timer **, kw_timer_fn, void *, uint32_t, const char *) { return 0; }
int kw_monotime(kw_timeval *tv) { tv->tv_sec = 0; tv->tv_usec = 0; return 0; }
int64_t kw_timeval_to_us(kw_timeval tv) { return int64_t(tv.tv_sec) * 1000000 + tv.tv_usec; }
int reg_process_exit_action(pid_t, int) { return 0; }
const char *kw_root_path(const char *p, char *buf, size_t len) { std::snprintf(buf, len, "%s", p); return buf; }
int printk_syslog_lc(int, const char *, const char *, const char *, ...) { return 0; }
sw_rt_res_err_slot g_sw_rt_res_ss_err_cnt[SW_RT_RES_ERR_SLOTS];
uint32_t g_rt_l3tb_log_level;
int32_t g_rt_l3tb_log_cnt = -1;
int sw_rt_res_app_show_info(int, int) { return 0; }
int ssat_lib_init(kw_global *, const char *) { return 0; }
int ssat_reg_mod_cmd_erased(const char *, const char *, int, const char *, ssat_invoker, size_t) { return 0; }
int at_snprintf(char *buf, size_t n, const char *fmt, ...) { va_list ap; va_start(ap, fmt); int r = std::vsnprintf(buf, n, fmt, ap); va_end(ap); return r; }
int libkw_cap_init(kw_global *, const char *) { return -1; }
int libkw_cap_get_capacity_int32(kw_global *, const char *, int32_t *) { return -1; }
int libkw_cap_get_capacity_bool(kw_global *, const char *, uint8_t *) { return -1; }
int sw_res_comm_create_rm(int32_t, sw_res_rm **, int32_t, int32_t, int32_t) { return -1; }
int sw_res_comm_alloc_idx(const sw_res_alloc_req *, sw_res_rm *, uint32_t *) { return -1; }
int sw_res_comm_free_idx_old(uint32_t, int32_t, sw_res_rm *) { return -1; }
