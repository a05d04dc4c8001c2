// The table service's state in this process: the runtime it was given, the
// open stores, the tables, the subscriptions' read positions, smoothing
// windows, the writes that wait for the store, and the journal of this
// process's writes.
#pragma once

#include <chrono>
#include <cstdint>
#include <list>
#include <map>
#include <memory>
#include <set>
#include <unordered_map>
#include <unordered_set>
#include <string>
#include <utility>
#include <vector>

#include <uv.h>

#include "platform/host/hnx_host.h"
#include "platform/host/tbl_codec.h"
#include "platform/host/tbl_store.h"
#include "platform/ss_rt_tbl.h"

// A data smoothing window of one table: the keys written since its begin,
// as byte strings in a hash set, since a window may hold many thousands.
struct tbl_ds {
    bool open = false;
    std::unordered_set<std::string> written;
    std::chrono::steady_clock::time_point deadline;
    uv_timer_t *timer = nullptr;
};

struct ss_rt_tbl {
    int db = 0;
    std::string name;                               // the row message's full name
    const ProtobufCMessageDescriptor *row = nullptr;
    const ProtobufCFieldDescriptor *key = nullptr;  // the row's key member
    ss_rt_tbl_row_fn on_set = nullptr;
    ss_rt_tbl_row_fn on_del = nullptr;
    int64_t sub_from = 0;                      // changes after this reach the handlers
    tbl_ds ds;
    // A subscribed table's rows as its handlers last saw them (key bytes to
    // a hash of the row), so that a reader that missed changes can hand on
    // exactly what differs, deletions included.
    std::unordered_map<std::string, uint64_t> seen;
};

// One row write of this process: a put, or an erase (row: the key row).
struct tbl_write_op {
    ss_rt_tbl *tbl = nullptr;
    bool is_del = false;
    tbl_bytes key;
    tbl_bytes row;
};

// The writes of one store that it refused for now (busy, full), in write
// order, one per {table, key}: a later write of a key replaces the kept one
// and goes to the end.
struct tbl_kept {
    std::list<tbl_write_op> order;
    std::map<std::pair<std::string, tbl_bytes>, std::list<tbl_write_op>::iterator> at;
};

// What became of the writes that the store refused.
struct tbl_write_stats {
    uint64_t failed = 0;    // writes refused (or lost with their turn's commit), each once
    uint64_t written = 0;   // kept writes that reached the store later
    uint64_t retries = 0;   // attempts to write the kept ones
    std::string last_error;
};

// What a subscribing process reads of one store: its position in the change
// log and what wakes it.
struct tbl_feed {
    int64_t cursor = 0;      // last change handed on (or skipped)
    int64_t recorded = 0;    // last position written to the store's readers
    bool joined = false;     // this process stands in the store's readers
    bool resync_due = false; // changes were lost: read the tables afresh
    uv_fs_event_t *wal_watch = nullptr;
    uv_timer_t *settle = nullptr;    // looks again shortly after a wake
    int settle_step = 0;
    uv_timer_t *backstop = nullptr;
    uv_poll_t *store_wait = nullptr; // the store's descriptor that wakes (Redis)
};

struct tbl_process {
    kw_global *global = nullptr;
    uv_loop_t *loop = nullptr;
    std::map<int, std::unique_ptr<tbl_store>> stores;
    std::map<std::pair<int, std::string>, std::unique_ptr<ss_rt_tbl>> tables;
    std::map<int, tbl_feed> feeds;
    std::vector<hnx_tbl_write> journal;
    bool keep_journal = false;               // set by hnx_host_tbl_reset
    ss_rt_tbl_void_fn connect_cb = nullptr;
    ss_rt_tbl_void_fn ds_fn = nullptr;
    std::string owner_refusal;               // a table that another process writes
    bool connect_due = false;
    bool connected = false;
    bool ds_called = false;
    uv_timer_t *kick = nullptr;
    std::set<int> turn_open;                 // stores with this turn's transaction open
    uv_prepare_t *turn_prepare = nullptr;
    uv_check_t *turn_check = nullptr;
    tbl_open open_mode = tbl_open::create;   // how stores are opened from now on
    std::map<int, std::vector<tbl_write_op>> turn_writes;  // this turn's, until committed
    std::map<int, tbl_kept> kept;
    tbl_write_stats stats;
    uv_timer_t *retry = nullptr;
    uint64_t retry_ms = 0;                   // the retry timer's current back-off
    bool waiting_said = false;               // smoothing's wait has been said
    std::set<int> damaged;                   // stores refused at open: not sound
};

tbl_process &tbl_proc();

// A hash of a packed row (FNV-1a), to tell a changed row from a seen one.
inline uint64_t tbl_row_hash(const tbl_bytes &row) {
    uint64_t h = 14695981039346656037ull;
    for (uint8_t b : row) h = (h ^ b) * 1099511628211ull;
    return h;
}

// The store of number `db`, opened on first use under the current file
// root. Null after an error line when it cannot be opened. A child process
// after fork opens its own connections.
tbl_store *tbl_store_of(int db);

// The file of store `db` under the current file root.
std::string tbl_store_path(int db);

// How this process opens its stores from the next first use on (see
// tbl_open). The default creates a missing store; a tool that only reads
// sets tbl_open::read_only, one that subscribes tbl_open::existing.
void tbl_set_open_mode(tbl_open mode);

// A libuv handle of the table service (a timer or an fs event), freed once
// the loop has closed it.
template <typename H>
H *tbl_new_handle() {
    return new H{};
}
void tbl_close_handle(uv_handle_t *h);

// Starts the one-shot timer in *slot on this process's loop, making it on
// first use; a running one starts again. The caller has a loop.
void tbl_timer_once(uv_timer_t **slot, uv_timer_cb cb, uint64_t ms);
