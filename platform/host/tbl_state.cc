// The table service's process state, the stores it opens, and the reset
// that tests use to start again: see tbl_state.h.
#include "platform/host/tbl_state.h"
#include "platform/host/tbl_owner.h"

#include "platform/host/tbl_retry.h"
#include "platform/host/tbl_turn.h"

#include <cstdio>
#include <set>
#include <string>

#include <unistd.h>

// Never destroyed: its stores and loop handles last to the end of the
// process, and destruction at exit would free handles that a loop still
// links.
tbl_process &tbl_proc() {
    static tbl_process *proc = new tbl_process;
    return *proc;
}

namespace {

// Handles whose close waits for a turn of the loop, held here meanwhile.
std::set<uv_handle_t *> &closing() {
    static auto *handles = new std::set<uv_handle_t *>;
    return *handles;
}

void free_handle(uv_handle_t *h) {
    closing().erase(h);
    switch (h->type) {
    case UV_TIMER: delete reinterpret_cast<uv_timer_t *>(h); break;
    case UV_FS_EVENT: delete reinterpret_cast<uv_fs_event_t *>(h); break;
    case UV_PREPARE: delete reinterpret_cast<uv_prepare_t *>(h); break;
    case UV_CHECK: delete reinterpret_cast<uv_check_t *>(h); break;
    case UV_POLL: delete reinterpret_cast<uv_poll_t *>(h); break;
    default: break;
    }
}

}  // namespace

// Closing stops the handle at once; the loop frees it at its next turn, or
// the runtime's finish does. The runtime's finish closes every handle left
// on its loop, so a handle found closed that way is only freed.
void tbl_close_handle(uv_handle_t *h) {
    if (!h || closing().count(h)) return;
    if (uv_is_closing(h)) {
        free_handle(h);
    } else {
        closing().insert(h);
        uv_close(h, free_handle);
    }
}

namespace {

// After fork the parent's connections and loop handles are the parent's:
// the child forgets them, unclosed, and opens its own stores on demand.
void forget_parent() {
    tbl_process &p = tbl_proc();
    tbl_turn_forget(false);
    for (auto &[db, st] : p.stores) st->abandon();
    p.stores.clear();
    p.feeds.clear();
    for (auto &[id, t] : p.tables) t->ds.timer = nullptr;
    p.kept.clear();
    p.kick = nullptr;
    p.retry = nullptr;
    p.retry_ms = 0;
    p.loop = nullptr;
}

}  // namespace

std::string tbl_store_path(int db) {
    return hnx_host_path("/var/run/hnx/store-" + std::to_string(db) + ".db");
}

void tbl_set_open_mode(tbl_open mode) { tbl_proc().open_mode = mode; }

namespace {

// The loop's process (the service) writes its output from what it reads: a
// damaged store would make it write wrong rows, or the same entry twice.
bool sound(tbl_store *st) {
    std::string problem;
    if (st->check_integrity(&problem) == 0) return true;
    std::fprintf(stderr,
                 "ss_rt_tbl: store %d (%s) is damaged (%s): refused. Stop every process of the "
                 "store, %s and start them again: each writes its rows anew\n",
                 st->db(), st->path().c_str(), problem.c_str(), st->remedy().c_str());
    return false;
}

}  // namespace

tbl_store *tbl_store_of(int db) {
    tbl_process &p = tbl_proc();
    if (!p.stores.empty() && p.stores.begin()->second->owner() != tbl_self_pid()) forget_parent();
    auto it = p.stores.find(db);
    if (it != p.stores.end()) return it->second.get();
    if (p.damaged.count(db)) return nullptr;
    std::unique_ptr<tbl_store> st = tbl_store::open(db, tbl_store_path(db), p.open_mode);
    if (!st) return nullptr;
    if (p.loop && !sound(st.get())) {
        p.damaged.insert(db);
        return nullptr;
    }
    if (p.loop) st->set_busy_ms(kTblLoopBusyMs);
    return p.stores.emplace(db, std::move(st)).first->second.get();
}

namespace {

void close_feeds(tbl_process &p) {
    for (auto &[db, f] : p.feeds) {
        tbl_close_handle(reinterpret_cast<uv_handle_t *>(f.wal_watch));
        tbl_close_handle(reinterpret_cast<uv_handle_t *>(f.settle));
        tbl_close_handle(reinterpret_cast<uv_handle_t *>(f.backstop));
        tbl_close_handle(reinterpret_cast<uv_handle_t *>(f.store_wait));
        auto st = p.stores.find(db);
        if (st != p.stores.end()) st->second->leave();
    }
    p.feeds.clear();
}

}  // namespace

void tbl_timer_once(uv_timer_t **slot, uv_timer_cb cb, uint64_t ms) {
    if (!*slot) {
        *slot = tbl_new_handle<uv_timer_t>();
        uv_timer_init(tbl_proc().loop, *slot);
    }
    uv_timer_start(*slot, cb, ms, 0);
}

void hnx_host_tbl_reset() {
    tbl_process &p = tbl_proc();
    if (!p.stores.empty() && p.stores.begin()->second->owner() != tbl_self_pid()) forget_parent();
    tbl_turn_forget(true);
    close_feeds(p);
    for (auto &[id, t] : p.tables) tbl_close_handle(reinterpret_cast<uv_handle_t *>(t->ds.timer));
    tbl_close_handle(reinterpret_cast<uv_handle_t *>(p.kick));
    tbl_close_handle(reinterpret_cast<uv_handle_t *>(p.retry));
    p = tbl_process{};
    tbl_owner_reset();
    p.keep_journal = true;
}
