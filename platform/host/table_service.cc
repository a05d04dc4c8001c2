// The table service's calls for the service and its tools: creating
// tables, connecting, and writing rows. Delivery to subscribers is in
// tbl_feed.cc, scans in tbl_scan.cc, data smoothing in tbl_ds.cc.
#include <cstdio>

#include "platform/host/tbl_ds.h"
#include "platform/host/tbl_feed.h"
#include "platform/host/tbl_state.h"
#include "platform/host/tbl_turn.h"
#include "platform/ss_rt_tbl.h"

namespace {

constexpr int kInvalid = -4;
constexpr int kFail = -11;
constexpr int kInputDb = 16;

// The connect callback and the smoothing routine run from the loop, one
// turn after they became due, never inside the call that made them due.
void kick_fire(uv_timer_t *) {
    tbl_process &p = tbl_proc();
    if (p.connect_due) {
        p.connect_due = false;
        p.connected = true;
        if (p.connect_cb) p.connect_cb();
    }
    if (p.connected && p.ds_fn && !p.ds_called) {
        p.ds_called = true;
        p.ds_fn();
    }
}

void kick() {
    tbl_process &p = tbl_proc();
    if (!p.loop) return;
    if (!p.kick) {
        p.kick = tbl_new_handle<uv_timer_t>();
        uv_timer_init(p.loop, p.kick);
    }
    uv_timer_start(p.kick, kick_fire, 0, 0);
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

int ss_rt_tbl_init(kw_global *global, const char *, int) {
    tbl_process &p = tbl_proc();
    p.global = global;
    p.loop = global ? hnx_host_loop(global) : nullptr;
    return 0;
}

// The host has no debug commands of its own for tables: hnx-tbl shows them.
int ss_rt_tbl_ut_init(const char *) { return 0; }

ss_rt_tbl *ss_rt_tbl_create_detail(int db, int, const ProtobufCMessage *value_tpl, uint32_t,
                                   int key_pos, const ProtobufCMessage *key_tpl, uint32_t, int) {
    if (!value_tpl) return nullptr;
    const ProtobufCMessageDescriptor *row = value_tpl->descriptor;
    const ProtobufCFieldDescriptor *key =
        tbl_key_field(row, key_pos, key_tpl ? key_tpl->descriptor : nullptr);
    if (!key) {
        std::fprintf(stderr, "ss_rt_tbl: %s: no key member at %d\n", row->name, key_pos);
        return nullptr;
    }
    if (!tbl_store_of(db)) return nullptr;
    auto &slot = tbl_proc().tables[{db, row->name}];
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

int ss_rt_tbl_add_str(ss_rt_tbl *tbl, const ProtobufCMessage *row, int, int) {
    journal(tbl, true, row);
    if (!row_fits(tbl, row)) return kInvalid;
    tbl_store *st = tbl_turn_store(tbl->db);
    if (!st) return kFail;
    tbl_bytes key = tbl_key_of(row, tbl->key);
    bool changed = false;
    int rv = st->put(tbl->name, key, tbl_pack(row), &changed);
    if (rv == 0) tbl_ds_mark(tbl, key);
    return rv;
}

int ss_rt_tbl_del_str(ss_rt_tbl *tbl, const ProtobufCMessage *row, int, int) {
    journal(tbl, false, row);
    if (!row_fits(tbl, row)) return kInvalid;
    tbl_store *st = tbl_turn_store(tbl->db);
    if (!st) return kFail;
    tbl_bytes key = tbl_key_of(row, tbl->key);
    bool changed = false;
    return st->erase(tbl->name, key, tbl_key_row(tbl->key, key), &changed);
}

const std::vector<hnx_tbl_write> &hnx_host_tbl_journal() { return tbl_proc().journal; }

void hnx_host_tbl_journal_clear() { tbl_proc().journal.clear(); }
