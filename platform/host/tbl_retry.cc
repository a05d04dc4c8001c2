// Kept writes and their retry: see tbl_retry.h.
#include "platform/host/tbl_retry.h"

#include <algorithm>
#include <cstdio>
#include <iterator>

#include "platform/host/tbl_feed.h"
#include "platform/host/tbl_turn.h"

namespace {

constexpr int kFail = -11;
constexpr uint64_t kFirstRetryMs = 10;
constexpr uint64_t kLastRetryMs = 1000;

std::pair<std::string, tbl_bytes> slot_of(const tbl_write_op &op) {
    return {op.tbl->name, op.key};
}

// A later write of the same key replaces the kept one: the last one wins,
// at the place of the last one.
void keep(tbl_kept &k, tbl_write_op op) {
    auto it = k.at.find(slot_of(op));
    if (it != k.at.end()) k.order.erase(it->second);
    k.order.push_back(std::move(op));
    k.at[slot_of(k.order.back())] = std::prev(k.order.end());
}

// The first refusal is said once; the retry that writes them says so too.
void start_keeping(int db, const std::string &why) {
    tbl_process &p = tbl_proc();
    p.stats.last_error = why;
    if (!p.kept[db].order.empty()) return;
    std::fprintf(stderr,
                 "ss_rt_tbl: store %d: write refused (%s): writes are kept and retried until the "
                 "store takes them\n",
                 db, why.c_str());
    tbl_retry_arm();
}

int apply(tbl_store *st, const tbl_write_op &op) {
    bool changed = false;
    return op.is_del ? st->erase(op.tbl->name, op.key, op.row, &changed)
                     : st->put(op.tbl->name, op.key, op.row, &changed);
}

// A subscribed table's own writes, once they stand in the store, are what
// its handlers must not be told again when the table is read afresh.
void note_seen(const tbl_write_op &op) {
    ss_rt_tbl *t = op.tbl;
    if (!t->on_set && !t->on_del) return;
    std::string k(op.key.begin(), op.key.end());
    if (op.is_del) t->seen.erase(k);
    else t->seen[k] = tbl_row_hash(op.row);
}

// Every kept write of `db` in one transaction: all land, or all stay kept.
int write_kept(int db, tbl_kept &k) {
    tbl_process &p = tbl_proc();
    tbl_store *st = tbl_store_of(db);
    if (!st) return kFail;
    tbl_turn_commit(db);
    p.stats.retries++;
    int rv = st->begin();
    if (rv == 0) {
        for (auto it = k.order.begin(); rv == 0 && it != k.order.end(); ++it) rv = apply(st, *it);
        rv = st->finish(rv);
    }
    for (auto it = k.order.begin(); rv == 0 && it != k.order.end(); ++it) note_seen(*it);
    if (rv != 0) {
        p.stats.last_error = st->last_error();
        return kFail;
    }
    std::fprintf(stderr, "ss_rt_tbl: store %d: %zu kept writes written\n", db, k.order.size());
    p.stats.written += k.order.size();
    k = tbl_kept{};
    st->prune();
    return 0;
}

void on_retry(uv_timer_t *) { tbl_retry_run(); }

}  // namespace

size_t tbl_kept_count(int db) {
    auto it = tbl_proc().kept.find(db);
    return it == tbl_proc().kept.end() ? 0 : it->second.order.size();
}

void tbl_retry_arm() {
    tbl_process &p = tbl_proc();
    if (!p.loop) return;
    if (p.retry_ms == 0) p.retry_ms = kFirstRetryMs;
    tbl_timer_once(&p.retry, on_retry, p.retry_ms);
}

int tbl_write(tbl_write_op op) {
    tbl_process &p = tbl_proc();
    const int db = op.tbl->db;
    // A process without a loop (a tool) has no timer to retry with, and
    // batches its writes in transactions of its own: it gets the failure.
    if (!p.loop) {
        tbl_store *st = tbl_store_of(db);
        int rv = st ? apply(st, op) : kFail;
        if (rv == 0) note_seen(op);
        return rv;
    }
    if (tbl_kept_count(db) == 0) {
        tbl_store *st = tbl_turn_store(db);
        int rv = st ? apply(st, op) : kFail;
        if (rv == 0) {
            note_seen(op);
            if (p.turn_open.count(db)) p.turn_writes[db].push_back(std::move(op));
            return 0;
        }
        auto open = p.stores.find(db);  // a store whose turn could not begin
        std::string why = open != p.stores.end() ? open->second->last_error()
                                                 : "the store cannot be opened";
        // The failed statement may have taken the whole turn's transaction
        // with it: the turn's writes are kept, this one after them.
        if (st && p.turn_open.count(db)) {
            st->finish(kFail);
            p.turn_open.erase(db);
            tbl_keep_turn(db, why);
        } else {
            start_keeping(db, why);
        }
    }
    keep(p.kept[db], std::move(op));
    p.stats.failed++;
    return kFail;
}

void tbl_keep_turn(int db, const std::string &why) {
    tbl_process &p = tbl_proc();
    std::vector<tbl_write_op> lost = std::move(p.turn_writes[db]);
    p.turn_writes.erase(db);
    start_keeping(db, why);
    tbl_kept &k = p.kept[db];
    tbl_kept ahead;
    for (tbl_write_op &op : lost) keep(ahead, std::move(op));
    for (tbl_write_op &op : k.order) keep(ahead, std::move(op));
    k = std::move(ahead);
    p.stats.failed += lost.size();
}

int tbl_retry_run() {
    tbl_process &p = tbl_proc();
    int waiting = tbl_feed_mend();
    for (auto &[db, k] : p.kept)
        if (!k.order.empty() && write_kept(db, k) != 0) waiting++;
    tbl_smoothing_kick();
    if (waiting == 0) {
        p.retry_ms = 0;
        return 0;
    }
    p.retry_ms = p.retry_ms == 0 ? kFirstRetryMs : std::min(p.retry_ms * 2, kLastRetryMs);
    tbl_retry_arm();
    return waiting;
}
