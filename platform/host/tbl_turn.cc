// One transaction per loop turn: see tbl_turn.h. The prepare handle commits
// what timers wrote before the loop blocks, the check handle what I/O
// callbacks wrote after it woke.
#include "platform/host/tbl_turn.h"

#include "platform/host/tbl_retry.h"
#include "platform/host/tbl_state.h"

namespace {

void on_prepare(uv_prepare_t *) { tbl_turn_commit(); }
void on_check(uv_check_t *) { tbl_turn_commit(); }

void arm(tbl_process &p) {
    if (p.turn_prepare) return;
    p.turn_prepare = tbl_new_handle<uv_prepare_t>();
    uv_prepare_init(p.loop, p.turn_prepare);
    uv_prepare_start(p.turn_prepare, on_prepare);
    p.turn_check = tbl_new_handle<uv_check_t>();
    uv_check_init(p.loop, p.turn_check);
    uv_check_start(p.turn_check, on_check);
    // They must not keep a loop alive that has nothing else to do.
    uv_unref(reinterpret_cast<uv_handle_t *>(p.turn_prepare));
    uv_unref(reinterpret_cast<uv_handle_t *>(p.turn_check));
}

}  // namespace

tbl_store *tbl_turn_store(int db) {
    tbl_process &p = tbl_proc();
    tbl_store *st = tbl_store_of(db);
    if (!st || !p.loop || p.turn_open.count(db)) return st;
    if (st->begin() != 0) return nullptr;
    p.turn_open.insert(db);
    arm(p);
    return st;
}

void tbl_turn_commit(int db) {
    tbl_process &p = tbl_proc();
    for (auto it = p.turn_open.begin(); it != p.turn_open.end();) {
        if (db >= 0 && *it != db) {
            ++it;
            continue;
        }
        const int db_open = *it;
        it = p.turn_open.erase(it);
        auto st = p.stores.find(db_open);
        if (st == p.stores.end()) continue;
        if (st->second->commit() == 0) {
            p.turn_writes.erase(db_open);
            st->second->prune();
        } else {
            tbl_keep_turn(db_open, st->second->last_error());
        }
    }
}

void tbl_turn_forget(bool close_handles) {
    tbl_process &p = tbl_proc();
    if (close_handles) {
        tbl_turn_commit();
        tbl_close_handle(reinterpret_cast<uv_handle_t *>(p.turn_prepare));
        tbl_close_handle(reinterpret_cast<uv_handle_t *>(p.turn_check));
    }
    p.turn_open.clear();
    p.turn_writes.clear();
    p.turn_prepare = nullptr;
    p.turn_check = nullptr;
}
