// Placeholder bodies until this part of the host platform is written.
#include "platform/kw_runtime.h"
#include "platform/printk_syslog.h"
#include "platform/sw_rt_res.h"
#include "platform/ssat.h"
#include "platform/libkw_cap.h"
#include "platform/sw_res_comm.h"
#include <cstdio>
#include <cstdarg>
int libkw_cap_init(kw_global *, const char *) { return -1; }
int libkw_cap_get_capacity_int32(kw_global *, const char *, int32_t *) { return -1; }
int libkw_cap_get_capacity_bool(kw_global *, const char *, uint8_t *) { return -1; }
