// The table store over SQLite: a database in WAL mode, shared by every
// process that opens it. Rows stand in `rows`, keyed by table name and
// packed key. Every change of a row is logged in `changes`, in the
// transaction that makes it, so that other processes replay changes in
// write order.
//
// The log's bound: each subscribing process records in `readers` how far
// it has read (at least every 64 changes). Every 128 changes it logs, a
// writer drops the readers whose process is gone and prunes the log up to
// the slowest live reader, or all but the newest change when there is none
// (a new reader starts from the end). Changes more than the log cap behind
// the newest go in any case, so that a stopped reader cannot grow the log
// without end; it finds the gap when it reads on and reads the tables
// afresh. The newest always stays: the next change's number follows it.
//
// Sequence numbers run from 1 to kTblSeqMax. A row outside that range can
// only come from another writer's mistake: readers never see it, writers
// number past it, and pruning removes it, so that it cannot make a reader
// wait for numbers that never come.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "platform/host/tbl_store.h"

struct sqlite3;
struct sqlite3_stmt;

class tbl_sqlite final : public tbl_store {
public:
    // Opens the store file as `mode` says, creating it with its directories
    // only for tbl_open::create. Null after one error line on stderr when the
    // file is missing (other modes) or no usable store.
    static std::unique_ptr<tbl_store> open(int db, const std::string &path, tbl_open mode);
    ~tbl_sqlite() override;

    void set_busy_ms(int ms) override { busy_ms_ = ms; }
    int limit_pages(int64_t pages) override;
    // PRAGMA integrity_check, which also finds keys out of order that
    // quick_check passes.
    int check_integrity(std::string *problem) override;
    // The file at the store's path is no longer the one this connection
    // opened: removed, another file put in its place, or emptied.
    std::string gone() const override;
    std::string wake_file() const override { return path_ + "-wal"; }
    std::string remedy() const override {
        return "move the file away (with its -wal and -shm files)";
    }
    void abandon() override;

    int put(std::string_view table, const tbl_bytes &key, const tbl_bytes &row,
            bool *changed) override;
    int erase(std::string_view table, const tbl_bytes &key, const tbl_bytes &key_row,
              bool *changed) override;
    int get(std::string_view table, const tbl_bytes &key, tbl_bytes *row, bool *found) override;
    int page(std::string_view table, const tbl_bytes *after, int limit,
             std::vector<tbl_row> *out) override;
    int begin() override;
    int commit() override;
    int finish(int rv) override;
    int top(int64_t *seq) override;
    int changes(int64_t after, int limit, std::vector<tbl_change> *out) override;
    int join(int64_t *seq) override;
    int join_at(int64_t seq) override;
    int record(int64_t seq) override;
    int leave() override;
    int prune() override;
    int log_size(int64_t *n) override;
    int count(std::string_view table, int64_t *n) override;
    bool data_changed() override;
    int snapshot(const std::vector<std::string> &tables, std::vector<std::vector<tbl_row>> *out,
                 int64_t *top) override;

private:
    tbl_sqlite(int db, std::string path) : tbl_store(db, std::move(path)) {}
    int setup(tbl_open mode);
    int setup_writer();
    sqlite3_stmt *prep(int which);
    int fail(const char *what);
    int exec(const char *sql);
    int log_change(std::string_view table, bool is_del, const tbl_bytes &key,
                   const tbl_bytes &row);
    int drop_dead_readers();
    int prune_floor(int64_t newest, int64_t *floor);
    bool replaced() const;

    sqlite3 *sql_ = nullptr;
    std::vector<sqlite3_stmt *> stmts_;
    int depth_ = 0;
    int64_t data_version_ = -1;
    int busy_ms_ = kTblBusyMs;
    dev_t dev_ = 0;
    ino_t ino_ = 0;
    int logged_ = 0;  // changes logged since the last prune
};
