// Table service: tables of protobuf rows in a shared store that outlives
// the process. Rows and templates are generated protobuf-c records on the
// caller's stack; the service packs and unpacks, the caller never does.
// All callbacks come on the event thread.
#pragma once

#include <cstdint>
#include <protobuf-c/protobuf-c.h>

#include "kw_runtime.h"

struct ss_rt_tbl;  // one table of one store

// A received row, valid only during the call. The result goes back to the
// table service.
using ss_rt_tbl_row_fn = int (*)(const ProtobufCMessage *row);
using ss_rt_tbl_void_fn = int (*)();

// Prepares the table service for this process. 0 or a code.
int ss_rt_tbl_init(kw_global *global, const char *name, int mode);

// Adds the table service's own debug commands to the module. No result read.
int ss_rt_tbl_ut_init(const char *name);

// Creates or attaches one table of store `db`: rows are `value_tpl`
// messages whose member at `key_pos` (12: the `index` member) holds the key,
// a `key_tpl` message. The sizes are those of the records on the target.
ss_rt_tbl *ss_rt_tbl_create_detail(int db, int kind,
                                   const ProtobufCMessage *value_tpl,
                                   uint32_t value_size, int key_pos,
                                   const ProtobufCMessage *key_tpl,
                                   uint32_t key_size, int last);

// Starts the connection to the store. 0 means under way: `cb` is called
// later from the event loop, perhaps more than once.
int ss_rt_tbl_connect_db(ss_rt_tbl_void_fn cb);

// Registers the data smoothing routine, called when smoothing is due.
int ss_rt_tbl_reg_ds_func(ss_rt_tbl_void_fn fn);

// From now on a row written by another process reaches `set`, a deleted
// row `del` (with the key only meaningful), in write order.
int ss_rt_tbl_subscribe_detail(ss_rt_tbl *tbl, ss_rt_tbl_row_fn set,
                               ss_rt_tbl_row_fn del, int a, int b);

// Every row of the table reaches the set handler before the call returns.
int ss_rt_tbl_scan_detail(ss_rt_tbl *tbl, int a, int b);

// Data smoothing: rows of the table not written between begin and end are
// deleted at the end. A begin without an end ends by itself after `secs`.
int ss_rt_tbl_ds_begin_detail(ss_rt_tbl *tbl, int secs, int a);
int ss_rt_tbl_ds_end_detail(ss_rt_tbl *tbl, int a);

// Stores the row under its key, replacing a row of that key. 0 or a code.
int ss_rt_tbl_add_str(ss_rt_tbl *tbl, const ProtobufCMessage *row, int a,
                      int b);

// Removes the row with the key of `row` (only its `index` matters).
int ss_rt_tbl_del_str(ss_rt_tbl *tbl, const ProtobufCMessage *row, int a,
                      int b);

// Record handed to the callback of kw_mom_scan_sync: the received row
// stands at byte 648.
struct kw_mom_scan_rec {
    unsigned char hdr[648];
    const ProtobufCMessage *row;
};
static_assert(__builtin_offsetof(kw_mom_scan_rec, row) == 648);

using kw_mom_scan_fn = int (*)(void *arg, void *rec);

// Calls `cb` for every row of the table of store `db` whose message is the
// template's, before it returns. `rec` is a kw_mom_scan_rec.
int kw_mom_scan_sync(kw_global *global, int db, const ProtobufCMessage *tpl,
                     int a, kw_mom_scan_fn cb, int b);
