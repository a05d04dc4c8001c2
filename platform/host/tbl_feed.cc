// Delivery of other processes' changes: each subscribing process reads the
// store's change log from where it last stopped, in sequence order, and
// hands each change of a subscribed table to its handler.
//
// Waking: an inotify watch on the store's WAL file (every commit appends to
// it) wakes the loop at once; PRAGMA data_version then tells whether another
// connection committed, so this process's own writes cost one check. A
// writer appends its frames before it publishes the commit, so a wake that
// finds nothing new looks again after 1, 2, 4, 8 and 16 ms. A one-second
// timer backs the watch up; where the WAL cannot be watched it checks every
// 5 ms instead. Idle, nothing runs but that timer.
#include "platform/host/tbl_feed.h"

#include <cstdio>

#include <unistd.h>

#include "platform/host/tbl_ds.h"
#include "platform/host/tbl_state.h"
#include "platform/host/tbl_turn.h"

namespace {

constexpr int kInvalid = -4;
constexpr int kFail = -11;
constexpr int kBatch = 256;
constexpr int64_t kRecordEvery = 64;  // readers' position is written this lazily
constexpr uint64_t kBackstopMs = 1000;
constexpr uint64_t kUnwatchedMs = 5;
constexpr int kSettleSteps = 5;

void report_gap(int db, int64_t cursor, int64_t seq) {
    std::fprintf(stderr, "ss_rt_tbl: store %d: %lld changes pruned before they were read\n", db,
                 static_cast<long long>(seq - cursor - 1));
}

// The handler of a change, if its table is subscribed and the change came
// after the subscription.
ss_rt_tbl *subscriber(int db, const tbl_change &c) {
    auto &tables = tbl_proc().tables;
    auto it = tables.find({db, c.table});
    if (it == tables.end()) return nullptr;
    ss_rt_tbl *t = it->second.get();
    bool wanted = c.is_del ? t->on_del != nullptr : t->on_set != nullptr;
    return wanted && c.seq > t->sub_from ? t : nullptr;
}

bool hand_on(int db, const tbl_change &c) {
    ss_rt_tbl *t = subscriber(db, c);
    if (!t) return false;
    tbl_msg row = tbl_unpack(t->row, c.row, t->name);
    if (!row) return false;
    (c.is_del ? t->on_del : t->on_set)(row.get());
    return true;
}

// One batch; the cursor moves before each handler runs, so that a handler
// that polls again neither sees its own change nor makes the batch repeat.
int deliver_batch(int db, tbl_store *st, bool *more) {
    std::vector<tbl_change> batch;
    int64_t from = tbl_proc().feeds[db].cursor;
    *more = false;
    if (st->changes(from, kBatch, &batch) != 0) return 0;
    *more = int(batch.size()) == kBatch;
    int n = 0;
    pid_t self = tbl_self_pid();
    for (const tbl_change &c : batch) {
        tbl_feed &f = tbl_proc().feeds[db];
        if (c.seq <= f.cursor) continue;
        if (c.seq != f.cursor + 1) report_gap(db, f.cursor, c.seq);
        f.cursor = c.seq;
        if (c.writer != self && hand_on(db, c)) n++;
    }
    return n;
}

// This turn's own writes are committed first: inside its transaction the
// store would not show what others committed since it began.
int deliver(int db) {
    tbl_store *st = tbl_store_of(db);
    if (!st || !tbl_proc().feeds.count(db)) return 0;
    tbl_turn_commit(db);
    int n = 0;
    bool more = true;
    while (more) n += deliver_batch(db, st, &more);
    tbl_feed &f = tbl_proc().feeds[db];
    if (f.cursor - f.recorded >= kRecordEvery && st->record(f.cursor) == 0) f.recorded = f.cursor;
    return n;
}

// Whether another connection had committed; its changes are delivered.
bool wake(int db) {
    tbl_store *st = tbl_store_of(db);
    tbl_turn_commit(db);
    if (!st || !st->data_changed()) return false;
    deliver(db);
    return true;
}

int db_of(const void *handle) {
    return int(reinterpret_cast<intptr_t>(static_cast<const uv_handle_t *>(handle)->data));
}

void on_settle(uv_timer_t *t) {
    int db = db_of(t);
    tbl_feed &f = tbl_proc().feeds[db];
    if (!wake(db) && ++f.settle_step < kSettleSteps)
        uv_timer_start(t, on_settle, uint64_t(1) << f.settle_step, 0);
}

void on_wal(uv_fs_event_t *h, const char *, int, int) {
    int db = db_of(h);
    tbl_feed &f = tbl_proc().feeds[db];
    if (wake(db) || !f.settle) return;
    f.settle_step = 0;
    uv_timer_start(f.settle, on_settle, 1, 0);
}

void on_backstop(uv_timer_t *t) { wake(db_of(t)); }

uv_timer_t *new_timer(uv_loop_t *loop, void *tag) {
    uv_timer_t *t = tbl_new_handle<uv_timer_t>();
    uv_timer_init(loop, t);
    t->data = tag;
    return t;
}

void watch(int db, tbl_feed &f, const tbl_store *st) {
    uv_loop_t *loop = tbl_proc().loop;
    if (!loop) return;
    void *tag = reinterpret_cast<void *>(intptr_t(db));
    f.wal_watch = tbl_new_handle<uv_fs_event_t>();
    uv_fs_event_init(loop, f.wal_watch);
    f.wal_watch->data = tag;
    uint64_t every = kBackstopMs;
    if (uv_fs_event_start(f.wal_watch, on_wal, (st->path() + "-wal").c_str(), 0) != 0) {
        std::fprintf(stderr, "ss_rt_tbl: store %d: cannot watch %s-wal, checking every %llu ms\n",
                     db, st->path().c_str(), static_cast<unsigned long long>(kUnwatchedMs));
        tbl_close_handle(reinterpret_cast<uv_handle_t *>(f.wal_watch));
        f.wal_watch = nullptr;
        every = kUnwatchedMs;
    } else {
        f.settle = new_timer(loop, tag);
    }
    f.backstop = new_timer(loop, tag);
    uv_timer_start(f.backstop, on_backstop, every, every);
}

// The process becomes a reader of the store from its current end on.
int open_feed(int db, tbl_store *st) {
    auto &feeds = tbl_proc().feeds;
    if (feeds.count(db)) return 0;
    int64_t top = 0;
    if (st->join(&top) != 0) return kFail;
    tbl_feed &f = feeds[db];
    f.cursor = f.recorded = top;
    watch(db, f, st);
    return 0;
}

}  // namespace

// A table subscribed again keeps its place and takes the new handlers.
int ss_rt_tbl_subscribe_detail(ss_rt_tbl *tbl, ss_rt_tbl_row_fn set, ss_rt_tbl_row_fn del, int,
                               int) {
    if (!tbl) return kInvalid;
    tbl_store *st = tbl_store_of(tbl->db);
    if (!st || open_feed(tbl->db, st) != 0) return kFail;
    bool fresh = !tbl->on_set && !tbl->on_del;
    if (fresh && st->top(&tbl->sub_from) != 0) return kFail;
    tbl->on_set = set;
    tbl->on_del = del;
    return 0;
}

int tbl_feed_poll_all() {
    std::vector<int> dbs;
    for (auto &[db, f] : tbl_proc().feeds) dbs.push_back(db);
    int n = 0;
    for (int db : dbs) n += deliver(db);
    return n;
}

int hnx_host_tbl_poll() {
    tbl_ds_expire_due();
    return tbl_feed_poll_all();
}
