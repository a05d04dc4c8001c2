// Delivery of other processes' changes: each subscribing process reads the
// store's change log from where it last stopped, in sequence order, and
// hands each change of a subscribed table to its handler.
//
// Waking: an inotify watch on the store's wake file (SQLite's WAL, which
// every commit appends to) wakes the loop at once; the store then tells
// whether another connection committed, so this process's own writes cost
// one check. A writer appends its frames before it publishes the commit, so
// a wake that finds nothing new looks again after 1, 2, 4, 8 and 16 ms. A
// one-second timer backs the watch up. A store without a file to watch
// may give a descriptor to wait on instead (Redis: a connection blocked
// until the log grows), backed up the same way; one with neither, or whose
// file or descriptor cannot be watched, is checked every 5 ms.
//
// A reader that finds changes missing (pruned while it stood still, or a
// log that another writer damaged) cannot go on as if it had read them: it
// reads its subscribed tables afresh and hands on what differs from what
// its handlers saw, a set for each new or changed row and a delete for each
// row that is gone.
#include "platform/host/tbl_feed.h"

#include <cstdio>
#include <set>
#include <string>
#include <unordered_set>

#include <unistd.h>

#include "platform/host/tbl_ds.h"
#include "platform/host/tbl_retry.h"
#include "platform/host/tbl_scan.h"
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

std::string key_text(const tbl_bytes &key) { return std::string(key.begin(), key.end()); }

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
    std::string key = key_text(tbl_key_of(row.get(), t->key));
    if (c.is_del) t->seen.erase(key);
    else t->seen[key] = tbl_row_hash(c.row);
    (c.is_del ? t->on_del : t->on_set)(row.get());
    return true;
}

void lost_changes(int db, tbl_feed &f, const std::string &what) {
    std::fprintf(stderr, "ss_rt_tbl: store %d: %s: reading the subscribed tables afresh\n", db,
                 what.c_str());
    f.resync_due = true;
}

// One batch; the cursor moves before each handler runs, so that a handler
// that polls again neither sees its own change nor makes the batch repeat.
// A gap in the numbers stops the batch: what lies in it is lost.
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
        if (c.seq != f.cursor + 1) {
            lost_changes(db, f,
                         std::to_string(c.seq - f.cursor - 1) + " changes gone before they were read");
            *more = false;
            break;
        }
        f.cursor = c.seq;
        if (c.writer != self && hand_on(db, c)) n++;
    }
    return n;
}

// The log's top below this reader's place: the log was emptied or its
// numbers set back; changes numbered below the place would never come.
void check_top(int db, tbl_store *st, tbl_feed &f) {
    int64_t top = 0;
    if (st->top(&top) == 0 && top < f.cursor)
        lost_changes(db, f, "the change log went back from " + std::to_string(f.cursor) + " to " +
                                std::to_string(top));
}

// Reads the subscribed tables of `db` in one snapshot and hands on what
// differs from what their handlers saw; the feed goes on from the
// snapshot's place in the log. Sets come first, in key order per table,
// then deletes.
int resync(int db, tbl_store *st) {
    tbl_process &p = tbl_proc();
    std::vector<ss_rt_tbl *> tables;
    std::vector<std::string> names;
    for (auto &[id, t] : p.tables) {
        if (t->db == db && (t->on_set || t->on_del)) {
            tables.push_back(t.get());
            names.push_back(t->name);
        }
    }
    std::vector<std::vector<tbl_row>> rows;
    int64_t top = 0;
    if (st->snapshot(names, &rows, &top) != 0) {
        tbl_retry_arm();
        return kFail;
    }
    tbl_feed &f = p.feeds[db];
    f.cursor = top;
    f.resync_due = false;
    int sets = 0, dels = 0;
    for (size_t i = 0; i < tables.size(); i++) {
        ss_rt_tbl *t = tables[i];
        std::unordered_set<std::string> present;
        for (const tbl_row &r : rows[i]) {
            std::string key = key_text(r.key);
            present.insert(key);
            uint64_t h = tbl_row_hash(r.val);
            auto seen = t->seen.find(key);
            if (seen != t->seen.end() && seen->second == h) continue;
            t->seen[key] = h;
            tbl_msg row = tbl_unpack(t->row, r.val, t->name);
            if (row && t->on_set) t->on_set(row.get()), sets++;
        }
        std::vector<std::string> gone;
        for (auto &[key, h] : t->seen)
            if (!present.count(key)) gone.push_back(key);
        for (const std::string &key : gone) {
            t->seen.erase(key);
            tbl_bytes kb(key.begin(), key.end());
            tbl_msg row = tbl_unpack(t->row, tbl_key_row(t->key, kb), t->name);
            if (row && t->on_del) t->on_del(row.get()), dels++;
        }
    }
    std::fprintf(stderr, "ss_rt_tbl: store %d: tables read afresh: %d rows set, %d deleted\n", db,
                 sets, dels);
    if (st->record(top) == 0) p.feeds[db].recorded = top;
    return sets + dels;
}

// This turn's own writes are committed first: inside its transaction the
// store would not show what others committed since it began.
int deliver(int db) {
    tbl_store *st = tbl_store_of(db);
    if (!st || !tbl_proc().feeds.count(db)) return 0;
    tbl_turn_commit(db);
    int n = 0;
    bool more = true;
    int64_t was = tbl_proc().feeds[db].cursor;
    while (more && !tbl_proc().feeds[db].resync_due) n += deliver_batch(db, st, &more);
    tbl_feed &f = tbl_proc().feeds[db];
    if (f.cursor == was && !f.resync_due) check_top(db, st, f);
    if (f.resync_due) {
        int r = resync(db, st);
        n += r > 0 ? r : 0;
    }
    tbl_feed &g = tbl_proc().feeds[db];
    if (g.cursor - g.recorded >= kRecordEvery && st->record(g.cursor) == 0) g.recorded = g.cursor;
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

// Every second, also while nothing is written: a store removed, replaced or emptied
// under the process would leave it reading a file nobody writes any more.
void on_backstop(uv_timer_t *t) {
    tbl_feed_check_files();
    wake(db_of(t));
}

// The wait failed: a server that went away ends the process here, with the
// one line that says so, as the backstop would a moment later; otherwise
// the reader says so and polls.
void wait_failed(int db, tbl_feed &f, const tbl_store *st) {
    tbl_feed_check_files();
    std::fprintf(stderr,
                 "ss_rt_tbl: store %d: cannot wait for changes (%s), checking every %llu ms\n", db,
                 st->last_error().c_str(), static_cast<unsigned long long>(kUnwatchedMs));
    tbl_close_handle(reinterpret_cast<uv_handle_t *>(f.store_wait));
    f.store_wait = nullptr;
    if (f.backstop) uv_timer_start(f.backstop, on_backstop, kUnwatchedMs, kUnwatchedMs);
}

// The feed and the store of `db`, while `h` is still their wait.
bool still_waits(uv_poll_t *h, int db, tbl_feed **f, tbl_store **st) {
    tbl_process &p = tbl_proc();
    auto fi = p.feeds.find(db);
    auto si = p.stores.find(db);
    if (fi == p.feeds.end() || si == p.stores.end() || fi->second.store_wait != h) return false;
    *f = &fi->second;
    *st = si->second.get();
    return true;
}

// The store woke this reader: its changes are delivered, then it waits from
// its new place.
void on_store_wait(uv_poll_t *h, int, int) {
    const int db = db_of(h);
    tbl_feed *f = nullptr;
    tbl_store *st = nullptr;
    if (!still_waits(h, db, &f, &st)) return;
    if (st->wait_woken() != 0) return wait_failed(db, *f, st);
    wake(db);
    // Found again: the handlers that ran may have closed them.
    if (still_waits(h, db, &f, &st) && st->wait_again(f->cursor) != 0) wait_failed(db, *f, st);
}

uv_timer_t *new_timer(uv_loop_t *loop, void *tag) {
    uv_timer_t *t = tbl_new_handle<uv_timer_t>();
    uv_timer_init(loop, t);
    t->data = tag;
    return t;
}

// Waits on the store's descriptor from the feed's place; false when the
// store has none, or it cannot be watched.
bool wait_on(int db, tbl_feed &f, tbl_store *st) {
    const int fd = st->wait_fd();
    if (fd < 0) return false;
    f.store_wait = tbl_new_handle<uv_poll_t>();
    f.store_wait->data = reinterpret_cast<void *>(intptr_t(db));
    if (uv_poll_init(tbl_proc().loop, f.store_wait, fd) != 0) {
        delete f.store_wait;
        f.store_wait = nullptr;
        return false;
    }
    if (uv_poll_start(f.store_wait, UV_READABLE, on_store_wait) == 0 &&
        st->wait_again(f.cursor) == 0)
        return true;
    tbl_close_handle(reinterpret_cast<uv_handle_t *>(f.store_wait));
    f.store_wait = nullptr;
    return false;
}

void watch(int db, tbl_feed &f, tbl_store *st) {
    uv_loop_t *loop = tbl_proc().loop;
    if (!loop) return;
    void *tag = reinterpret_cast<void *>(intptr_t(db));
    f.wal_watch = tbl_new_handle<uv_fs_event_t>();
    uv_fs_event_init(loop, f.wal_watch);
    f.wal_watch->data = tag;
    uint64_t every = kBackstopMs;
    const std::string file = st->wake_file();
    if (file.empty() && wait_on(db, f, st)) {
        tbl_close_handle(reinterpret_cast<uv_handle_t *>(f.wal_watch));
        f.wal_watch = nullptr;
    } else if (file.empty() || uv_fs_event_start(f.wal_watch, on_wal, file.c_str(), 0) != 0) {
        if (!file.empty())
            std::fprintf(stderr, "ss_rt_tbl: store %d: cannot watch %s, checking every %llu ms\n",
                         db, file.c_str(), static_cast<unsigned long long>(kUnwatchedMs));
        tbl_close_handle(reinterpret_cast<uv_handle_t *>(f.wal_watch));
        f.wal_watch = nullptr;
        every = kUnwatchedMs;
    } else {
        f.settle = new_timer(loop, tag);
    }
    f.backstop = new_timer(loop, tag);
    uv_timer_start(f.backstop, on_backstop, every, every);
}

// Enters this process in the store's readers at the feed's place, so that
// writers keep the changes it has not read.
int join(tbl_store *st, tbl_feed &f) {
    if (f.joined) return 0;
    if (st->join_at(f.cursor) != 0) return kFail;
    f.joined = true;
    f.recorded = f.cursor;
    return 0;
}

// The process reads the store from its current end on. The place is taken
// at once (a read, which a writer's lock does not stop); the join, a write,
// may have to wait for the store.
int open_feed(int db, tbl_store *st) {
    auto &feeds = tbl_proc().feeds;
    if (feeds.count(db)) return feeds[db].joined ? 0 : kFail;
    int64_t top = 0;
    if (st->top(&top) != 0) return kFail;
    tbl_feed &f = feeds[db];
    f.cursor = f.recorded = top;
    watch(db, f, st);
    if (join(st, f) == 0) return 0;
    std::fprintf(stderr, "ss_rt_tbl: store %d: cannot join the change log (%s), trying again\n",
                 db, st->last_error().c_str());
    tbl_retry_arm();
    return kFail;
}

}  // namespace

// A table subscribed again keeps its place and takes the new handlers. The
// handlers stand even when the store cannot be joined yet: the join is
// retried from the loop, and smoothing waits for it.
int ss_rt_tbl_subscribe_detail(ss_rt_tbl *tbl, ss_rt_tbl_row_fn set, ss_rt_tbl_row_fn del, int,
                               int) {
    if (!tbl) return kInvalid;
    bool fresh = !tbl->on_set && !tbl->on_del;
    tbl->on_set = set;
    tbl->on_del = del;
    tbl_store *st = tbl_store_of(tbl->db);
    if (!st) {
        tbl_retry_arm();
        return kFail;
    }
    if (fresh && st->top(&tbl->sub_from) != 0) tbl->sub_from = 0;
    return open_feed(tbl->db, st);
}

void tbl_feed_check_files() {
    for (auto &[db, f] : tbl_proc().feeds) {
        auto st = tbl_proc().stores.find(db);
        if (st == tbl_proc().stores.end()) continue;
        const std::string gone = st->second->gone();
        if (gone.empty()) continue;
        std::fprintf(stderr,
                     "ss_rt_tbl: store %d (%s) %s: exiting with status %d for a restart on the "
                     "store that stands now\n",
                     db, st->second->path().c_str(), gone.c_str(), kTblExitStore);
        std::fflush(nullptr);
        _exit(kTblExitStore);
    }
}

int tbl_feed_mend() {
    tbl_process &p = tbl_proc();
    std::set<int> dbs;
    for (auto &[id, t] : p.tables)
        if (t->on_set || t->on_del) dbs.insert(t->db);
    int waiting = 0;
    for (int db : dbs) {
        tbl_store *st = tbl_store_of(db);
        if (!st) {
            waiting++;
            continue;
        }
        if (!p.feeds.count(db)) open_feed(db, st);
        if (!p.feeds.count(db)) {
            waiting++;
            continue;
        }
        tbl_feed &f = p.feeds[db];
        if (!f.joined) {
            if (join(st, f) != 0) {
                waiting++;
                continue;
            }
            std::fprintf(stderr, "ss_rt_tbl: store %d: joined the change log\n", db);
        }
        if (f.resync_due) deliver(db);
        if (p.feeds[db].resync_due) waiting++;
    }
    return waiting;
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
