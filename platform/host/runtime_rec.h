// The host runtime's own records behind kw_global, kw_thread and kw_timer:
// one libuv loop per runtime, and the timers armed on it.
#pragma once

#include <string>
#include <unordered_set>

#include <uv.h>

#include "platform/kw_runtime.h"

struct host_runtime;

// The only thread of a runtime: the one that runs its loop.
struct kw_thread {
    host_runtime *rt;
};

// One timer record, reused every time its slot is armed again, so that a
// handler that rearms itself costs no allocation.
struct kw_timer {
    uv_timer_t handle;  // handle.data points back to the record
    kw_timer_fn fn;
    void *arg;
    std::string name;
};

struct host_runtime {
    kw_global pub;  // first: the two public words; pub.rt points back here
    kw_thread thread;
    uv_loop_t loop;
    uv_signal_t on_term;
    uv_signal_t on_int;
    std::string name;
    int flags;
    std::unordered_set<kw_timer *> timers;  // live records, freed by finish
};

// The runtime behind a public handle, or null.
host_runtime *host_runtime_of(kw_global *global);

// Closes every timer record of the runtime; their memory goes with the
// close callbacks, which run on the loop's next turn.
void host_timers_close(host_runtime *rt);
