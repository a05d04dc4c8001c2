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
#include "platform/host/hnx_host.h"
uv_loop_t *hnx_host_loop(kw_global *) { return nullptr; }
static std::string g_root;
void hnx_host_set_root(const std::string &r) { g_root = r; }
const std::string &hnx_host_root() { return g_root; }
std::string hnx_host_path(std::string_view p) { return g_root + std::string(p); }
void hnx_host_set_clock(int (*)(kw_timeval *)) {}
