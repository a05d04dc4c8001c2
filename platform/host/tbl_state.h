// The table service's state in this process: the runtime it was given, the
// open stores, the tables, the subscriptions' read positions, smoothing
// windows, and the journal of this process's writes.
#pragma once

#include <chrono>
#include <map>
#include <memory>
#include <set>
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
};

// What a subscribing process reads of one store: its position in the change
// log and what wakes it.
struct tbl_feed {
    int64_t cursor = 0;      // last change handed on (or skipped)
    int64_t recorded = 0;    // last position written to the store's readers
    uv_fs_event_t *wal_watch = nullptr;
    uv_timer_t *settle = nullptr;    // looks again shortly after a wake
    int settle_step = 0;
    uv_timer_t *backstop = nullptr;
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
    bool connect_due = false;
    bool connected = false;
    bool ds_called = false;
    uv_timer_t *kick = nullptr;
    std::set<int> turn_open;                 // stores with this turn's transaction open
    uv_prepare_t *turn_prepare = nullptr;
    uv_check_t *turn_check = nullptr;
    tbl_open open_mode = tbl_open::create;   // how stores are opened from now on
};

tbl_process &tbl_proc();

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
