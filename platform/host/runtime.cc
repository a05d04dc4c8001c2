// The host runtime: one libuv loop per runtime record, run until SIGTERM or
// SIGINT; the process-wide last runtime; exit supervision kept in memory;
// the in-process mode of harnesses that start a service again and again.
// A runtime is not made for a process whose capability profile is broken:
// it would start on defaults that do not describe the board.
#include <csignal>
#include <cstdio>
#include <new>
#include <unordered_set>
#include <utility>
#include <vector>

#include "platform/host/cap_check.h"
#include "platform/host/hnx_host.h"
#include "platform/host/notify.h"
#include "platform/host/runtime_rec.h"
#include "platform/kw_runtime.h"

namespace {

// Every live runtime, so that one a test never finishes is still held; the
// set is never destroyed, so that it holds them to the very end.
std::unordered_set<host_runtime *> &g_runtimes = *new std::unordered_set<host_runtime *>;
host_runtime *g_last;

// In-process mode: a finished runtime's loop, emptied of every handle, is
// kept here for the next init instead of being closed and made anew.
bool g_in_process;
host_runtime *g_spare;

struct exit_registration {
    pid_t pid;
    int action;
};
std::vector<exit_registration> g_exit_regs;

void close_once(uv_handle_t *h) {
    if (!uv_is_closing(h)) uv_close(h, nullptr);
}

// The end of the process's life: stop the loop and give the two signals
// back, so that a second one acts as the default again.
void on_signal(uv_signal_t *sig, int) {
    host_runtime *rt = static_cast<host_runtime *>(sig->data);
    close_once(reinterpret_cast<uv_handle_t *>(&rt->on_term));
    close_once(reinterpret_cast<uv_handle_t *>(&rt->on_int));
    uv_stop(&rt->loop);
}

void watch_signal(host_runtime *rt, uv_signal_t *sig, int signum) {
    uv_signal_init(&rt->loop, sig);
    sig->data = rt;
    uv_signal_start(sig, on_signal, signum);
}

// The loop may have been stopped from elsewhere, with the signals still
// watched: give them back to the process.
void unwatch_signals(host_runtime *rt) {
    auto *term = reinterpret_cast<uv_handle_t *>(&rt->on_term);
    auto *intr = reinterpret_cast<uv_handle_t *>(&rt->on_int);
    if (uv_is_closing(term)) return;
    uv_close(term, nullptr);
    uv_close(intr, nullptr);
    uv_run(&rt->loop, UV_RUN_NOWAIT);
}

void close_foreign(uv_handle_t *h, void *) { close_once(h); }

void count_handle(uv_handle_t *, void *n) { ++*static_cast<size_t *>(n); }

// A kept record with its loop, or a new one; null after saying why.
host_runtime *take_runtime(const char *who) {
    if (host_runtime *rt = std::exchange(g_spare, nullptr)) {
        uv_update_time(&rt->loop);
        return rt;
    }
    auto *rt = new (std::nothrow) host_runtime{};
    if (rt == nullptr) {
        std::fprintf(stderr, "%s: no memory for the runtime record; not started\n", who);
        return nullptr;
    }
    if (int rv = uv_loop_init(&rt->loop); rv != 0) {
        std::fprintf(stderr, "%s: the event loop cannot be made: %s; not started\n", who,
                     uv_strerror(rv));
        delete rt;
        return nullptr;
    }
    return rt;
}

void close_runtime(host_runtime *rt) {
    uv_loop_close(&rt->loop);
    delete rt;
}

}  // namespace

host_runtime *host_runtime_of(kw_global *global) {
    return global ? static_cast<host_runtime *>(global->rt) : nullptr;
}

// Each refusal says why on standard error, in one line headed by the
// process's name: its caller has nothing to add.
kw_global *kw_global_init(const char *name, int flags) {
    const char *who = name && *name ? name : "hnx";
    if (hnx_cap_start_check(name) != 0) return nullptr;
    host_runtime *rt = take_runtime(who);
    if (rt == nullptr) return nullptr;
    rt->pub = {rt, &rt->thread};
    rt->thread.rt = rt;
    rt->name = name ? name : "";
    rt->flags = flags;
    g_runtimes.insert(rt);
    g_last = rt;
    return &rt->pub;
}

int kw_global_run(kw_global *global) {
    host_runtime *rt = host_runtime_of(global);
    if (rt == nullptr) return -4;
    watch_signal(rt, &rt->on_term, SIGTERM);
    watch_signal(rt, &rt->on_int, SIGINT);
    uv_run(&rt->loop, UV_RUN_DEFAULT);
    host_notify_stopping();
    unwatch_signals(rt);
    return 0;
}

// Handles that other components left on the loop are closed too: after
// this their owners must not touch them.
void kw_global_finish(kw_global *global) {
    host_runtime *rt = host_runtime_of(global);
    if (rt == nullptr) return;
    host_timers_close(rt);
    uv_walk(&rt->loop, close_foreign, nullptr);
    uv_run(&rt->loop, UV_RUN_DEFAULT);
    g_runtimes.erase(rt);
    if (g_last == rt) g_last = nullptr;
    if (g_in_process && g_spare == nullptr) {
        rt->name.clear();
        g_spare = rt;
        return;
    }
    close_runtime(rt);
}

void hnx_host_set_in_process(bool on) {
    g_in_process = on;
    if (!on && g_spare != nullptr) close_runtime(std::exchange(g_spare, nullptr));
}

bool hnx_host_in_process() { return g_in_process; }

size_t hnx_host_kept_handles() {
    size_t n = 0;
    if (g_spare != nullptr) uv_walk(&g_spare->loop, count_handle, &n);
    return n;
}

int reg_process_exit_action(pid_t pid, int action) {
    g_exit_regs.push_back({pid, action});
    return 0;
}

uv_loop_t *hnx_host_loop(kw_global *global) {
    host_runtime *rt = host_runtime_of(global);
    return rt ? &rt->loop : nullptr;
}

kw_global *hnx_host_global() { return g_last ? &g_last->pub : nullptr; }
