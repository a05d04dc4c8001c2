// What the suites of the table service and its store share: rows of
// s_route.l3mac_hw_res built on the stack, a subscriber that records what it
// is handed, and another SQLite client of the store's file. (Other
// processes as forked children: managed_proc.h.)
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include <sqlite3.h>

#include "platform/host/tbl_state.h"
#include "platform/ss_rt_tbl.h"
#include "s_route.pb-c.h"
#include "support/managed_proc.h"

// A row of s_route.l3mac_hw_res on the stack; without attr it is a delete.
struct hw_row {
    SRoute__L3macHwKey key = S_ROUTE__L3MAC_HW_KEY__INIT;
    SRoute__L3macHwAttr attr = S_ROUTE__L3MAC_HW_ATTR__INIT;
    PLibpub__Mac mac = P_LIBPUB__MAC__INIT;
    SRoute__L3macHwRes res = S_ROUTE__L3MAC_HW_RES__INIT;
    uint8_t mac_bytes[6] = {0, 0x11, 0x22, 0x33, 0x44, 0x55};

    hw_row(uint32_t hw_id, uint32_t evlan, bool with_attr = true) {
        key.hw_id = hw_id;
        mac.data = {6, mac_bytes};
        attr.evlan = evlan, attr.evlan_mask = 0xfff, attr.mac = &mac;
        res.index = &key;
        res.attr = with_attr ? &attr : nullptr;
    }
    hw_row(const hw_row &) = delete;
    const ProtobufCMessage *get() const { return &res.base; }
};

inline int hw_set(ss_rt_tbl *t, uint32_t hw_id, uint32_t evlan) {
    hw_row r(hw_id, evlan);
    return ss_rt_tbl_add_str(t, r.get(), 0, 0);
}

inline int hw_del(ss_rt_tbl *t, uint32_t hw_id, bool with_attr = false) {
    hw_row r(hw_id, 0, with_attr);
    return ss_rt_tbl_del_str(t, r.get(), 0, 0);
}

// What the subscriber was handed, in order: "set <hw_id>:<evlan>" ("set
// <hw_id>" for a row without attr), "del <hw_id>", and "del <hw_id> with
// attr" for a delete that carried more than the key.
inline std::vector<std::string> &hw_seen() {
    static std::vector<std::string> seen;
    return seen;
}

inline int hw_record(const ProtobufCMessage *m, bool set) {
    auto *r = reinterpret_cast<const SRoute__L3macHwRes *>(m);
    std::string s = (set ? "set " : "del ") + std::to_string(r->index->hw_id);
    if (set && r->attr) s += ":" + std::to_string(r->attr->evlan);
    if (!set && r->attr) s += " with attr";
    hw_seen().push_back(s);
    return 0;
}

inline int hw_subscribe(ss_rt_tbl *t) {
    return ss_rt_tbl_subscribe_detail(
        t, [](const ProtobufCMessage *m) { return hw_record(m, true); },
        [](const ProtobufCMessage *m) { return hw_record(m, false); }, 0, 0);
}

// The change log's length in store 16, as this process's connection sees it.
inline int64_t hw_log_size() {
    int64_t n = -1;
    tbl_store_of(16)->log_size(&n);
    return n;
}

// Whether `said` is just the one line of a reader whose Redis server at
// `url` went away.
inline bool hw_server_lost(const std::string &said, const std::string &url) {
    const std::string tail = "): exiting with status 75 for a restart on the store that stands now\n";
    return said.rfind("ss_rt_tbl: store 16 (" + url + ") lost its server (", 0) == 0 &&
           said.ends_with(tail) && said.find('\n') == said.size() - 1;
}

// Another client of the SQLite store, on its own connection, as sqlite3
// would be.
struct sqlite_client {
    sqlite3 *db = nullptr;
    explicit sqlite_client(const std::string &root) {
        sqlite3_open((root + "/var/run/hnx/store-16.db").c_str(), &db);
        sqlite3_busy_timeout(db, 5000);
    }
    sqlite_client(const sqlite_client &) = delete;
    ~sqlite_client() { sqlite3_close(db); }
    int exec(const std::string &sql) { return sqlite3_exec(db, sql.c_str(), nullptr, nullptr, nullptr); }
    int64_t one(const std::string &sql) {
        sqlite3_stmt *s = nullptr;
        sqlite3_prepare_v2(db, sql.c_str(), -1, &s, nullptr);
        const int64_t v = sqlite3_step(s) == SQLITE_ROW ? sqlite3_column_int64(s, 0) : -1;
        sqlite3_finalize(s);
        return v;
    }
};
