// Placeholder bodies until this part of the host platform is written.
#include "platform/kw_runtime.h"
#include "platform/printk_syslog.h"
#include "platform/sw_rt_res.h"
#include "platform/ssat.h"
#include "platform/libkw_cap.h"
#include "platform/sw_res_comm.h"
#include <cstdio>
#include <cstdarg>
int sw_res_comm_create_rm(int32_t, sw_res_rm **, int32_t, int32_t, int32_t) { return -1; }
int sw_res_comm_alloc_idx(const sw_res_alloc_req *, sw_res_rm *, uint32_t *) { return -1; }
int sw_res_comm_free_idx_old(uint32_t, int32_t, sw_res_rm *) { return -1; }
