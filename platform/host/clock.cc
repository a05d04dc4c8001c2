// The monotonic clock of the host runtime, replaceable by tests.
#include <ctime>

#include "platform/host/hnx_host.h"
#include "platform/kw_runtime.h"

namespace {
int (*g_clock)(kw_timeval *tv);
}

void hnx_host_set_clock(int (*now)(kw_timeval *tv)) { g_clock = now; }

int kw_monotime(kw_timeval *tv) {
    if (tv == nullptr) return -4;
    if (g_clock) return g_clock(tv);
    timespec ts;
    if (clock_gettime(CLOCK_MONOTONIC, &ts) != 0) return -11;
    tv->tv_sec = static_cast<int32_t>(ts.tv_sec);
    tv->tv_usec = static_cast<int32_t>(ts.tv_nsec / 1000);
    return 0;
}

int64_t kw_timeval_to_us(kw_timeval tv) { return int64_t{tv.tv_sec} * 1000000 + tv.tv_usec; }
