// Data smoothing windows: see tbl_ds.h. The keys written inside a window are
// kept in memory: only the process that opened the window writes through it,
// and an equal rewrite, which leaves the store untouched, still counts.
#include "platform/host/tbl_ds.h"

#include <cstdio>

#include "platform/host/hnx_host.h"
#include "platform/host/notify.h"
#include "platform/host/tbl_retry.h"

namespace {

constexpr int kInvalid = -4;
constexpr int kFail = -11;
constexpr int kNotOpen = -7;
constexpr int kPage = 256;

std::string key_text(const tbl_bytes &key) { return std::string(key.begin(), key.end()); }

void stop_timer(tbl_ds &ds) {
    tbl_close_handle(reinterpret_cast<uv_handle_t *>(ds.timer));
    ds.timer = nullptr;
}

// The keys of the table that were not written in the window.
int leftovers(tbl_store *st, const ss_rt_tbl *tbl, std::vector<tbl_bytes> *out) {
    std::vector<tbl_row> page;
    const tbl_bytes *after = nullptr;
    tbl_bytes last;
    do {
        page.clear();
        if (st->page(tbl->name, after, kPage, &page) != 0) return kFail;
        for (tbl_row &r : page)
            if (!tbl->ds.written.count(key_text(r.key))) out->push_back(r.key);
        if (!page.empty()) last = page.back().key;
        after = &last;
    } while (int(page.size()) == kPage);
    return 0;
}

// The leftovers go in key order, in this turn's one transaction where the
// process has a loop. A delete that the store refuses is kept and retried
// like any write, so that a busy store leaves no leftover behind for good.
int sweep(ss_rt_tbl *tbl) {
    tbl_store *st = tbl_store_of(tbl->db);
    if (!st) return kFail;
    std::vector<tbl_bytes> gone;
    if (leftovers(st, tbl, &gone) != 0) return kFail;
    int rv = 0;
    for (tbl_bytes &key : gone) {
        tbl_bytes key_row = tbl_key_row(tbl->key, key);
        rv |= tbl_write({tbl, true, std::move(key), std::move(key_row)});
    }
    return rv == 0 ? 0 : kFail;
}

int end_window(ss_rt_tbl *tbl) {
    if (!tbl->ds.open) return kNotOpen;
    stop_timer(tbl->ds);
    int rv = sweep(tbl);
    tbl->ds = tbl_ds{};
    return rv;
}

void expire(ss_rt_tbl *tbl) {
    std::fprintf(stderr, "ss_rt_tbl: %s: data smoothing not ended in time, ended now\n",
                 tbl->name.c_str());
    end_window(tbl);
    host_notify_smoothing_ended();
}

void on_expire(uv_timer_t *t) { expire(static_cast<ss_rt_tbl *>(t->data)); }

void arm(ss_rt_tbl *tbl, int secs) {
    uv_loop_t *loop = tbl_proc().loop;
    if (!loop) return;
    tbl->ds.timer = tbl_new_handle<uv_timer_t>();
    uv_timer_init(loop, tbl->ds.timer);
    tbl->ds.timer->data = tbl;
    uv_timer_start(tbl->ds.timer, on_expire, uint64_t(secs) * 1000, 0);
}

}  // namespace

void tbl_ds_mark(ss_rt_tbl *tbl, const tbl_bytes &key) {
    if (tbl->ds.open) tbl->ds.written.insert(key_text(key));
}

void tbl_ds_expire_due() {
    auto now = std::chrono::steady_clock::now();
    for (auto &[id, tbl] : tbl_proc().tables) {
        if (tbl->ds.open && now >= tbl->ds.deadline) expire(tbl.get());
    }
}

// A second begin starts the window afresh.
int ss_rt_tbl_ds_begin_detail(ss_rt_tbl *tbl, int secs, int) {
    if (!tbl || secs < 0) return kInvalid;
    stop_timer(tbl->ds);
    tbl->ds = tbl_ds{};
    tbl->ds.open = true;
    tbl->ds.deadline = std::chrono::steady_clock::now() + std::chrono::seconds(secs);
    arm(tbl, secs);
    host_notify_smoothing_began(tbl->name);
    return 0;
}

// The end is said on stderr, so that whoever restarted the process (the
// load tool) sees when the hardware side's tables stand again. A harness
// that runs the service in-process ends the window itself, by a call, and
// reads no such line.
int ss_rt_tbl_ds_end_detail(ss_rt_tbl *tbl, int) {
    if (!tbl) return kInvalid;
    size_t kept = tbl->ds.written.size();
    int rv = end_window(tbl);
    if (rv == 0 && !hnx_host_in_process())
        std::fprintf(stderr, "ss_rt_tbl: %s: data smoothing ended, %zu rows kept\n",
                     tbl->name.c_str(), kept);
    host_notify_smoothing_ended();
    return rv;
}
