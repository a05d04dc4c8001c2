// The table service's calls for the service and its tools: creating
// tables, connecting, and writing rows. Delivery to subscribers is in
// tbl_feed.cc, scans in tbl_scan.cc, data smoothing in tbl_ds.cc, writes
// that the store refused in tbl_retry.cc.
#include <cstdio>

#include "platform/host/tbl_ds.h"
#include "platform/host/tbl_feed.h"
#include "platform/host/tbl_owner.h"
#include "platform/host/tbl_retry.h"
#include "platform/host/tbl_state.h"
#include "platform/ss_rt_tbl.h"

namespace {

constexpr int kInvalid = -4;
constexpr int kFail = -11;
constexpr int kInputDb = 16;

// Smoothing rebuilds the service from its tables and then deletes every
// output row that it did not write again: it must not start before this
// process stands in the change log of every subscribed table's store and
// can read those tables. Empty when it may start, else what it waits for.
std::string smoothing_waits_for() {
    tbl_process &p = tbl_proc();
    for (auto &[id, t] : p.tables) {
        if (!t->on_set && !t->on_del) continue;
        auto f = p.feeds.find(t->db);
        if (f == p.feeds.end() || !f->second.joined)
            return "store " + std::to_string(t->db) + ": not in its change log yet";
        if (f->second.resync_due)
            return "store " + std::to_string(t->db) + ": its tables are to be read afresh";
        tbl_store *st = tbl_store_of(t->db);
        std::vector<tbl_row> probe;
        if (!st || st->page(t->name, nullptr, 1, &probe) != 0)
            return t->name + " cannot be read" + (st ? ": " + st->last_error() : "");
    }
    return "";
}

// The connect callback and the smoothing routine run from the loop, one
// turn after they became due, never inside the call that made them due.
void kick_fire(uv_timer_t *) {
    tbl_process &p = tbl_proc();
    if (p.connect_due) {
        p.connect_due = false;
        p.connected = true;
        if (p.connect_cb) p.connect_cb();
    }
    tbl_smoothing_kick();
}

void kick() {
    tbl_process &p = tbl_proc();
    if (!p.loop) return;
    tbl_timer_once(&p.kick, kick_fire, 0);
}

bool row_fits(const ss_rt_tbl *tbl, const ProtobufCMessage *row) {
    if (tbl && row && row->descriptor == tbl->row) return true;
    if (!tbl)
        std::fprintf(stderr, "ss_rt_tbl: row refused: no table\n");
    else if (!row)
        std::fprintf(stderr, "ss_rt_tbl: %s: row refused: no row\n", tbl->name.c_str());
    else
        std::fprintf(stderr, "ss_rt_tbl: %s: row refused: a %s is not its row\n", tbl->name.c_str(),
                     row->descriptor->name);
    return false;
}

// Only a process that reset the service (a test) keeps a journal: the
// daemon's would grow with every write of its life.
void journal(const ss_rt_tbl *tbl, bool is_add, const ProtobufCMessage *row) {
    tbl_process &p = tbl_proc();
    if (p.keep_journal && tbl && row) p.journal.push_back({tbl->name, is_add, tbl_pack(row)});
}

}  // namespace

void tbl_smoothing_kick() {
    tbl_process &p = tbl_proc();
    if (!p.connected || !p.ds_fn || p.ds_called) return;
    std::string wait = smoothing_waits_for();
    if (!wait.empty()) {
        if (!p.waiting_said)
            std::fprintf(stderr, "ss_rt_tbl: data smoothing waits: %s\n", wait.c_str());
        p.waiting_said = true;
        tbl_retry_arm();
        return;
    }
    if (p.waiting_said) std::fprintf(stderr, "ss_rt_tbl: data smoothing starts: the store is ready\n");
    p.waiting_said = false;
    p.ds_called = true;
    p.ds_fn();
}

// The loop's process waits for a busy store only briefly: what the store
// refuses is kept and retried from the loop instead.
int ss_rt_tbl_init(kw_global *global, const char *, int) {
    tbl_process &p = tbl_proc();
    p.global = global;
    p.loop = global ? hnx_host_loop(global) : nullptr;
    for (auto &[db, st] : p.stores) st->set_busy_ms(p.loop ? kTblLoopBusyMs : kTblBusyMs);
    return 0;
}

// The host has no debug commands of its own for tables: hnx-tbl shows them.
int ss_rt_tbl_ut_init(const char *) { return 0; }

// A last argument other than 0 makes this process the table's one writer:
// when another process is, the connect is refused (see tbl_owner.h).
ss_rt_tbl *ss_rt_tbl_create_detail(int db, int, const ProtobufCMessage *value_tpl, uint32_t,
                                   int key_pos, const ProtobufCMessage *key_tpl, uint32_t,
                                   int own) {
    if (!value_tpl) return nullptr;
    const ProtobufCMessageDescriptor *row = value_tpl->descriptor;
    const ProtobufCFieldDescriptor *key =
        tbl_key_field(row, key_pos, key_tpl ? key_tpl->descriptor : nullptr);
    if (!key) {
        std::fprintf(stderr, "ss_rt_tbl: %s: no key member at %d\n", row->name, key_pos);
        return nullptr;
    }
    if (!tbl_store_of(db)) return nullptr;
    tbl_process &p = tbl_proc();
    if (own) {
        std::string why = tbl_own(db, row->name);
        if (!why.empty() && p.owner_refusal.empty()) p.owner_refusal = std::move(why);
    }
    auto &slot = p.tables[{db, row->name}];
    if (!slot) {
        slot = std::make_unique<ss_rt_tbl>();
        slot->db = db;
        slot->name = row->name;
        slot->row = row;
        slot->key = key;
    }
    return slot.get();
}

int ss_rt_tbl_connect_db(ss_rt_tbl_void_fn cb) {
    tbl_process &p = tbl_proc();
    if (!tbl_store_of(kInputDb)) return kFail;
    if (!p.owner_refusal.empty()) {
        std::fprintf(stderr, "ss_rt_tbl: %s\n", p.owner_refusal.c_str());
        return kFail;
    }
    p.connect_cb = cb;
    p.connect_due = true;
    kick();
    return 0;
}

int ss_rt_tbl_reg_ds_func(ss_rt_tbl_void_fn fn) {
    tbl_process &p = tbl_proc();
    p.ds_fn = fn;
    p.ds_called = false;
    kick();
    return 0;
}

// A write that the store refuses is kept and lands later: its key counts
// as written for smoothing all the same, so that the end of smoothing does
// not delete the row it is to replace.
int ss_rt_tbl_add_str(ss_rt_tbl *tbl, const ProtobufCMessage *row, int, int) {
    journal(tbl, true, row);
    if (!row_fits(tbl, row)) return kInvalid;
    tbl_bytes key = tbl_key_of(row, tbl->key);
    tbl_ds_mark(tbl, key);
    return tbl_write({tbl, false, key, tbl_pack(row)});
}

int ss_rt_tbl_del_str(ss_rt_tbl *tbl, const ProtobufCMessage *row, int, int) {
    journal(tbl, false, row);
    if (!row_fits(tbl, row)) return kInvalid;
    tbl_bytes key = tbl_key_of(row, tbl->key);
    tbl_bytes key_row = tbl_key_row(tbl->key, key);
    return tbl_write({tbl, true, std::move(key), std::move(key_row)});
}

const std::vector<hnx_tbl_write> &hnx_host_tbl_journal() { return tbl_proc().journal; }

void hnx_host_tbl_journal_clear() { tbl_proc().journal.clear(); }

void hnx_host_tbl_keep_journal(bool keep) {
    tbl_process &p = tbl_proc();
    p.keep_journal = keep;
    if (!keep) p.journal.clear();
}
