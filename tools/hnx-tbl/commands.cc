// The commands of hnx-tbl over the table service: see commands.h. Every
// word is checked before the store is opened, so bad input writes nothing
// and creates no store.
#include "commands.h"

#include <cstdio>

#include "build.h"
#include "platform/host/hnx_host.h"
#include "platform/host/tbl_codec.h"
#include "platform/host/tbl_scan.h"
#include "platform/ss_rt_tbl.h"
#include "print.h"
#include "ranges.h"
#include "request.h"
#include "schema.h"

namespace {

constexpr int kStore = 16;

int bad(const std::string &why) {
    std::fprintf(stderr, "hnx-tbl: %s\n", why.c_str());
    return kExitBadInput;
}

const tbl_schema *find_table(const std::string &name) {
    const tbl_schema *s = schema_find(name);
    if (!s) bad("unknown table " + name + " (known: " + schema_names() + ")");
    return s;
}

// The row of the command's FIELD=VALUE words; with `key_only`, words may
// name only the key. Returns 0 or the exit status of the bad word.
int build_row(const tbl_args &a, const tbl_schema *s, bool key_only, msg_arena &arena,
              ProtobufCMessage **row) {
    *row = arena.make(s->row);
    // The key member always stands, so that every row carries its key.
    auto *key_desc = static_cast<const ProtobufCMessageDescriptor *>(s->key->descriptor);
    *reinterpret_cast<ProtobufCMessage **>(reinterpret_cast<char *>(*row) + s->key->offset) =
        arena.make(key_desc);
    for (const auto &[field, value] : a.fields) {
        field_path path;
        std::string err = path_resolve(s->row, field, &path);
        if (err.empty() && key_only && path[0] != s->key)
            err = field + " is not a key field of " + s->row->name + " (" + s->key->name + ".*)";
        if (err.empty()) {
            err = build_set(*row, path, value, arena);
            if (!err.empty()) err = "bad value \"" + value + "\" for " + field + ": " + err;
        }
        if (!err.empty()) return bad(err);
    }
    return 0;
}

using write_fn = int (*)(ss_rt_tbl *, const ProtobufCMessage *, int, int);

int write_row(const tbl_args &a, bool key_only, write_fn write) {
    msg_arena arena;
    const tbl_schema *s = find_table(a.tables[0]);
    ProtobufCMessage *row = nullptr;
    if (!s) return kExitBadInput;
    if (int rv = build_row(a, s, key_only, arena, &row)) return rv;
    if (!key_only)
        if (int rv = request_review(row)) return rv;
    schema_store_ready(tbl_open::create);
    ss_rt_tbl *t = schema_open(s, arena);
    if (!t) return kExitStore;
    return write(t, row, 0, 0) == 0 ? kExitOk : kExitStore;
}

}  // namespace

int cmd_set(const tbl_args &a) { return write_row(a, false, ss_rt_tbl_add_str); }

int cmd_del(const tbl_args &a) { return write_row(a, true, ss_rt_tbl_del_str); }

int cmd_get(const tbl_args &a) {
    msg_arena arena;
    const tbl_schema *s = find_table(a.tables[0]);
    ProtobufCMessage *row = nullptr;
    if (!s) return kExitBadInput;
    if (int rv = build_row(a, s, true, arena, &row)) return rv;
    if (!schema_store_ready(tbl_open::read_only)) return kExitStore;
    ss_rt_tbl *t = schema_open(s, arena);
    tbl_bytes bytes;
    bool found = false;
    if (!t || tbl_find(t, row, &bytes, &found) != 0) return kExitStore;
    if (!found) {
        std::fprintf(stderr, "hnx-tbl: %s: no row with %s\n", s->row->name,
                     print_member(row, s->key).c_str());
        return kExitAbsent;
    }
    tbl_msg got = tbl_unpack(s->row, bytes, s->row->name);
    if (!got) return kExitStore;
    std::printf("%s\n", print_readable(got.get()).c_str());
    return kExitOk;
}

int cmd_dump(const tbl_args &a) {
    if (a.tables.size() != 1) return bad("dump takes one table");
    const tbl_schema *s = find_table(a.tables[0]);
    if (!s) return kExitBadInput;
    if (a.ranges && !ranges_apply(s->row))
        return bad("--ranges goes with s_route.l3mac_hw_res and s_route.l3mac_bak");
    if (!schema_store_ready(tbl_open::read_only)) return kExitStore;
    int rv = tbl_scan_rows(kStore, s->row->name, [&](const tbl_row &r) {
        tbl_msg row = tbl_unpack(s->row, r.val, s->row->name);
        if (!row) return;
        const std::string ranges = a.ranges ? ranges_word(row.get()) : "";
        const std::string line =
            a.json ? print_json(row.get(), ranges) : print_readable(row.get()) + ranges;
        std::printf("%s\n", line.c_str());
    });
    return rv == 0 ? kExitOk : kExitStore;
}
