// The store file opened directly with SQLite, read-only: the checker must
// work beside a running service and must never change what it checks.
#include "store.h"

#include <filesystem>
#include <memory>

#include <sqlite3.h>

#include "s_route.pb-c.h"

namespace {

constexpr int kBusyMs = 5000;

struct hnx_check_db_close {
    void operator()(sqlite3 *db) const { sqlite3_close_v2(db); }
};
struct hnx_check_stmt_done {
    void operator()(sqlite3_stmt *s) const { sqlite3_finalize(s); }
};
using hnx_check_db = std::unique_ptr<sqlite3, hnx_check_db_close>;
using hnx_check_stmt = std::unique_ptr<sqlite3_stmt, hnx_check_stmt_done>;

const ProtobufCMessageDescriptor *const kTables[] = {
    &s_route__l3mac_res__descriptor,
    &s_route__l3mac_hw_res__descriptor,
    &s_route__l3mac_bak__descriptor,
    &s_route__l3mac_vrrp_hw_res__descriptor,
};

bool hnx_check_fail(sqlite3 *db, const std::string &what, std::string *err) {
    *err = what + ": " + (db ? sqlite3_errmsg(db) : "out of memory");
    return false;
}

// Every row of one table, unpacked and handed to the rules' input.
bool hnx_check_read_table(sqlite3 *db, const ProtobufCMessageDescriptor *desc,
                          l3mac_check_rows *rows, l3mac_check_report *rep, std::string *err) {
    sqlite3_stmt *raw = nullptr;
    if (sqlite3_prepare_v2(db, "SELECT val FROM rows WHERE tbl = ?1", -1, &raw, nullptr))
        return hnx_check_fail(db, "not a table store", err);
    hnx_check_stmt stmt(raw);
    sqlite3_bind_text(raw, 1, desc->name, -1, SQLITE_STATIC);
    int rc;
    while ((rc = sqlite3_step(raw)) == SQLITE_ROW) {
        const auto *val = static_cast<const uint8_t *>(sqlite3_column_blob(raw, 0));
        const size_t len = static_cast<size_t>(sqlite3_column_bytes(raw, 0));
        ProtobufCMessage *msg = protobuf_c_message_unpack(desc, nullptr, len, val);
        if (!msg) {
            rep->violation("a row of %s does not unpack", desc->name);
            continue;
        }
        l3mac_check_add_row(rows, msg);
        protobuf_c_message_free_unpacked(msg, nullptr);
    }
    return rc == SQLITE_DONE || hnx_check_fail(db, "reading " + std::string(desc->name), err);
}

}  // namespace

bool hnx_check_read_store(const std::string &path, l3mac_check_rows *rows,
                          l3mac_check_report *rep, std::string *err) {
    // Most likely a forgotten HNX_ROOT or a mistyped --root: an empty
    // answer would read as a consistent store.
    std::error_code ec;
    if (!std::filesystem::exists(path, ec)) {
        *err = "no table store at " + path + " (is HNX_ROOT set?)";
        return false;
    }
    sqlite3 *raw = nullptr;
    const int rc = sqlite3_open_v2(path.c_str(), &raw, SQLITE_OPEN_READONLY, nullptr);
    hnx_check_db db(raw);
    if (rc != SQLITE_OK) return hnx_check_fail(raw, "cannot open " + path, err);
    sqlite3_busy_timeout(raw, kBusyMs);
    if (sqlite3_exec(raw, "BEGIN", nullptr, nullptr, nullptr) != SQLITE_OK)
        return hnx_check_fail(raw, "cannot read " + path, err);
    for (const ProtobufCMessageDescriptor *desc : kTables)
        if (!hnx_check_read_table(raw, desc, rows, rep, err)) return false;
    sqlite3_exec(raw, "COMMIT", nullptr, nullptr, nullptr);
    return true;
}
