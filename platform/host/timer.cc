// One-shot timers of the host runtime, in units of HNX_TIMER_UNIT_MS
// milliseconds (100 unless the environment says otherwise).
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <new>

#include "platform/host/runtime_rec.h"
#include "platform/kw_runtime.h"

namespace {

constexpr uint64_t kDefaultUnitMs = 100;

uint64_t read_unit_ms() {
    const char *text = std::getenv("HNX_TIMER_UNIT_MS");
    if (text == nullptr || *text == '\0') return kDefaultUnitMs;
    char *end = nullptr;
    errno = 0;
    unsigned long ms = std::strtoul(text, &end, 10);
    if (errno || *end != '\0' || *text == '-' || ms > 3600000) {
        std::fprintf(stderr, "hnx: HNX_TIMER_UNIT_MS=\"%s\" is not a number of milliseconds"
                             " up to 3600000; the timer unit stays %llu ms\n",
                     text, static_cast<unsigned long long>(kDefaultUnitMs));
        return kDefaultUnitMs;
    }
    return ms;
}

// Read once: every timer of the process counts in the same unit.
uint64_t unit_ms() {
    static const uint64_t unit = read_unit_ms();
    return unit;
}

void on_fire(uv_timer_t *handle) {
    auto *t = static_cast<kw_timer *>(handle->data);
    // The handler may arm its own slot again: that restarts this very
    // record, which stays valid because only finish frees records.
    t->fn(t->arg);
}

void free_timer(uv_handle_t *handle) { delete static_cast<kw_timer *>(handle->data); }

// The record in the slot if it is a live timer of this runtime, or a new one.
kw_timer *slot_timer(host_runtime *rt, kw_timer *in_slot) {
    if (in_slot && rt->timers.count(in_slot)) return in_slot;
    auto *t = new (std::nothrow) kw_timer{};
    if (t == nullptr) return nullptr;
    uv_timer_init(&rt->loop, &t->handle);
    t->handle.data = t;
    rt->timers.insert(t);
    return t;
}

}  // namespace

int kw_thread_insert_timer(kw_thread *thread, kw_timer **slot, kw_timer_fn fn,
                           void *arg, uint32_t val, const char *name) {
    if (thread == nullptr || thread->rt == nullptr || slot == nullptr || fn == nullptr)
        return -4;
    kw_timer *t = slot_timer(thread->rt, *slot);
    if (t == nullptr) return -2;
    t->fn = fn;
    t->arg = arg;
    t->name = name ? name : "";
    // Starting an armed libuv timer stops it first: the old time is gone.
    if (uv_timer_start(&t->handle, on_fire, uint64_t{val} * unit_ms(), 0) != 0) return -11;
    *slot = t;
    return 0;
}

void host_timers_close(host_runtime *rt) {
    for (kw_timer *t : rt->timers) uv_close(reinterpret_cast<uv_handle_t *>(&t->handle), free_timer);
    rt->timers.clear();
}
