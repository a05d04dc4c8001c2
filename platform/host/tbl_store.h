// One table store: a SQLite database in WAL mode, shared by every process
// that opens it. Rows stand in `rows`, keyed by table name and packed key.
// Every change of a row is logged in `changes`, in the transaction that
// makes it, so that other processes replay changes in write order.
//
// The log's bound: each subscribing process records in `readers` how far
// it has read (at least every 64 changes). Every 128 changes it logs, a
// writer drops the readers whose process is gone and prunes the log up to
// the slowest live reader, or all but the newest change when there is none
// (a new reader starts from the end). Changes more than kTblLogCap behind
// the newest go in any case, so that a stopped reader cannot grow the log
// without end; it finds the gap when it reads on and reads the tables
// afresh. The newest always stays: the next change's number follows it.
//
// Sequence numbers run from 1 to kTblSeqMax. A row outside that range can
// only come from another writer's mistake: readers never see it, writers
// number past it, and pruning removes it, so that it cannot make a reader
// wait for numbers that never come.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include <sys/types.h>

#include "platform/host/tbl_codec.h"

struct sqlite3;
struct sqlite3_stmt;

struct tbl_row {
    tbl_bytes key;
    tbl_bytes val;
};

// One logged change. A delete carries a row with only its key set.
struct tbl_change {
    int64_t seq;
    std::string table;
    bool is_del;
    tbl_bytes row;
    pid_t writer;
};

// This process's id, without a system call on every write; a child after
// fork reads its own.
pid_t tbl_self_pid();

// Changes further than this behind the newest are pruned even when a reader
// still stands on them: a reader that stalls this long loses the oldest and
// reads its tables afresh when it reads on. The store lives in memory
// (/var/run), and each change holds its whole row.
constexpr int64_t kTblLogCap = 1 << 17;

// The highest sequence number a change may carry: a million changes a
// second would take centuries to reach it.
constexpr int64_t kTblSeqMax = int64_t(1) << 53;

// How long a writer waits for another connection's write lock by default
// (the tools); the event loop's process waits far less, see set_busy_ms.
constexpr int kTblBusyMs = 5000;

// How a process opens a store file. The daemon and the writers create a
// missing store with its folders; a tool that only reads must never do so,
// since a store made empty under a mistyped root reads as "no rows". A
// reader that subscribes still writes its place in `readers`.
enum class tbl_open {
    create,     // read and write; a missing file is made
    existing,   // read and write; only a file that exists
    read_only,  // reads only, of a file that exists; every write fails
};

class tbl_store {
public:
    // Opens the store file as `mode` says, creating it with its directories
    // only for tbl_open::create. Null after one error line on stderr when the
    // file is missing (other modes) or no usable store.
    static std::unique_ptr<tbl_store> open(int db, const std::string &path,
                                           tbl_open mode = tbl_open::create);
    ~tbl_store();
    tbl_store(const tbl_store &) = delete;
    tbl_store &operator=(const tbl_store &) = delete;

    int db() const { return db_; }
    pid_t owner() const { return owner_; }
    const std::string &path() const { return path_; }

    // How long a statement waits for another connection's lock before it
    // fails as busy.
    void set_busy_ms(int ms) { busy_ms_ = ms; }
    // Caps the store file at `pages` pages on this connection: a write that
    // needs more fails as on a full disk. 0 lifts the cap.
    int limit_pages(int64_t pages);
    // How far behind the newest change this writer prunes in any case
    // (kTblLogCap unless a test wants a short log).
    void set_log_cap(int64_t changes) { log_cap_ = changes; }
    // PRAGMA integrity_check, which also finds keys out of order that
    // quick_check passes: 0 when the file is sound, else -11 with the first
    // problem in *problem.
    int check_integrity(std::string *problem);
    // Whether the file at the store's path is no longer the one this
    // connection opened (removed, or another file put in its place).
    bool file_replaced() const;

    // The text of the last failure of this connection.
    const std::string &last_error() const { return last_error_; }

    // A child process after fork must not touch its parent's connection:
    // this drops the handle without closing it.
    void abandon();

    // Writes: 0, or -11 after an error line. *changed is false when the
    // table stands as it was (an equal rewrite, a delete of an absent row),
    // and then nothing is logged.
    int put(std::string_view table, const tbl_bytes &key, const tbl_bytes &row, bool *changed);
    int erase(std::string_view table, const tbl_bytes &key, const tbl_bytes &key_row,
              bool *changed);

    // Reads: 0 or -11. get sets *found.
    int get(std::string_view table, const tbl_bytes &key, tbl_bytes *row, bool *found);
    // Up to `limit` rows in key order, after the key `after` (from the
    // first row when null).
    int page(std::string_view table, const tbl_bytes *after, int limit, std::vector<tbl_row> *out);

    // Writes between begin and commit share one transaction; they nest.
    int begin();
    int commit();
    int finish(int rv);

    // The change log. `top` is the last sequence ever given.
    int top(int64_t *seq);
    int changes(int64_t after, int limit, std::vector<tbl_change> *out);
    int join(int64_t *seq);      // reader from the current top on
    int join_at(int64_t seq);    // reader from seq on
    int record(int64_t seq);     // reader has delivered up to seq
    int leave();                 // no longer a reader
    int prune();
    int log_size(int64_t *n);
    // Whether another connection committed since the last call.
    bool data_changed();

    // The rows of each of `tables` and the log's top, read in one snapshot,
    // so that the changes after *top are exactly those the rows miss.
    int snapshot(const std::vector<std::string> &tables, std::vector<std::vector<tbl_row>> *out,
                 int64_t *top);

private:
    tbl_store(int db, std::string path) : db_(db), path_(std::move(path)) {}
    int setup(tbl_open mode);
    int setup_writer();
    sqlite3_stmt *prep(int which);
    int fail(const char *what);
    int exec(const char *sql);
    int log_change(std::string_view table, bool is_del, const tbl_bytes &key,
                   const tbl_bytes &row);
    int drop_dead_readers();
    int prune_floor(int64_t newest, int64_t *floor);

    int db_;
    std::string path_;
    pid_t owner_ = 0;
    sqlite3 *sql_ = nullptr;
    std::vector<sqlite3_stmt *> stmts_;
    int depth_ = 0;
    int64_t data_version_ = -1;
    int busy_ms_ = kTblBusyMs;
    int64_t log_cap_ = kTblLogCap;
    dev_t dev_ = 0;
    ino_t ino_ = 0;
    std::string last_error_;
    int logged_ = 0;  // changes logged since the last prune
};
