// hnx-tbl watch: prints each change that other processes make to the
// tables, as it happens, until the process is told to end.
#include <cstdio>

#include "commands.h"
#include "platform/host/hnx_host.h"
#include "platform/ss_rt_tbl.h"
#include "print.h"
#include "schema.h"

namespace {

bool g_json = false;  // --json: one object a change

// "set TABLE words" for a row written, "del TABLE key words" for one gone.
int on_set(const ProtobufCMessage *row) {
    if (g_json) std::printf("%s\n", print_json_change("set", row, nullptr).c_str());
    else std::printf("set %s %s\n", row->descriptor->name, print_readable(row).c_str());
    std::fflush(stdout);
    return 0;
}

int on_del(const ProtobufCMessage *row) {
    const tbl_schema *s = schema_find(row->descriptor->name);
    if (g_json) {
        std::printf("%s\n", print_json_change("del", row, s ? s->key : nullptr).c_str());
    } else {
        std::string words = s ? print_member(row, s->key) : print_readable(row);
        std::printf("del %s %s\n", row->descriptor->name, words.c_str());
    }
    std::fflush(stdout);
    return 0;
}

int subscribe(const tbl_schema *s, msg_arena &arena) {
    ss_rt_tbl *t = schema_open(s, arena);
    return t && ss_rt_tbl_subscribe_detail(t, on_set, on_del, 0, 0) == 0 ? 0 : kExitStore;
}

}  // namespace

int cmd_watch(const tbl_args &a) {
    g_json = a.json;
    std::vector<const tbl_schema *> tables;
    for (const std::string &name : a.tables) {
        const tbl_schema *s = schema_find(name);
        if (!s) {
            std::fprintf(stderr, "hnx-tbl: unknown table %s (known: %s)\n", name.c_str(),
                         schema_names().c_str());
            return kExitBadInput;
        }
        tables.push_back(s);
    }
    // A watcher writes only its place in the change log.
    if (!schema_store_ready(tbl_open::existing)) return kExitStore;
    kw_global *global = kw_global_init("hnx-tbl", 0);
    if (!global) return kExitStore;
    ss_rt_tbl_init(global, "hnx-tbl", 4);
    msg_arena arena;
    for (const tbl_schema *s : tables)
        if (int rv = subscribe(s, arena)) return rv;
    // Changes from here on are shown: a waiting caller may write now.
    std::fprintf(stderr, "hnx-tbl: watching %zu table(s)\n", tables.size());
    kw_global_run(global);
    kw_global_finish(global);
    return kExitOk;
}
