// Platform runtime: the process's event loop, its timer, the monotonic
// clock, exit supervision and the file root. Everything here runs on the
// one event thread of the process unless a call says otherwise.
#pragma once

#include <cstddef>
#include <cstdint>
#include <sys/types.h>

struct kw_thread;  // a thread of the runtime; timers run on it
struct kw_timer;   // one armed timer

// The runtime record. Only its first two machine words are public: the
// second is the thread on which timers run. The runtime owns the rest.
struct kw_global {
    void *rt;
    kw_thread *thread;
};

// Time value of the monotonic clock: 32-bit seconds and microseconds.
struct kw_timeval {
    int32_t tv_sec;
    int32_t tv_usec;
};

// Creates the process's runtime record (event loop and main thread).
// Returns null on failure.
kw_global *kw_global_init(const char *name, int flags);

// Runs the event loop in the calling thread; returns when the process is
// told to end (SIGTERM or SIGINT on the host). Result 0 or a code.
int kw_global_run(kw_global *global);

// Releases the runtime record.
void kw_global_finish(kw_global *global);

// Timer handler: runs once on the timer's thread after the time has passed.
using kw_timer_fn = int (*)(void *arg);

// Arms a one-shot timer of `val` units (the host's unit: see the README)
// and stores it in *slot. A timer already in *slot is replaced. 0 or a code.
int kw_thread_insert_timer(kw_thread *thread, kw_timer **slot, kw_timer_fn fn,
                           void *arg, uint32_t val, const char *name);

// Fills in monotonic seconds and microseconds. 0 or a code.
int kw_monotime(kw_timeval *tv);

// The time value as a signed count of microseconds.
int64_t kw_timeval_to_us(kw_timeval tv);

// Registers the process with the exit supervisor for `action`. 0 or a code.
int reg_process_exit_action(pid_t pid, int action);

// Places one of the system's fixed absolute paths under the platform's file
// root, into buf (at most len bytes, always terminated). Returns buf.
const char *kw_root_path(const char *abs_path, char *buf, size_t len);
