// Placeholder bodies until this part of the host platform is written.
#include "platform/kw_runtime.h"
#include "platform/printk_syslog.h"
#include "platform/sw_rt_res.h"
#include "platform/ssat.h"
#include "platform/libkw_cap.h"
#include "platform/sw_res_comm.h"
#include <cstdio>
#include <cstdarg>
int printk_syslog_lc(int, const char *, const char *, const char *, ...) { return 0; }
