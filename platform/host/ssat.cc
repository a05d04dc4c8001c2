// Placeholder bodies until this part of the host platform is written.
#include "platform/kw_runtime.h"
#include "platform/printk_syslog.h"
#include "platform/sw_rt_res.h"
#include "platform/ssat.h"
#include "platform/libkw_cap.h"
#include "platform/sw_res_comm.h"
#include <cstdio>
#include <cstdarg>
int ssat_lib_init(kw_global *, const char *) { return 0; }
int ssat_reg_mod_cmd_erased(const char *, const char *, int, const char *, ssat_invoker, size_t) { return 0; }
