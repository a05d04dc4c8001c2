// The table store as the table service sees it: rows keyed by table name
// and packed key, and a change log that every process of the store reads
// in write order. Three backends implement it: SQLite, a file under the root
// (tbl_sqlite.h), Redis, a server that may run on another host
// (tbl_redis.h), and this process's memory (tbl_memory.h). HNX_STORE
// chooses one for the whole process (tbl_where.h).
//
// What each backend promises:
// - a write equal to the stored row changes nothing and logs nothing;
// - every change is logged with the next sequence number (1 to kTblSeqMax)
//   in the transaction that makes it, so readers replay changes in write
//   order, exactly once;
// - writes between begin() and commit() become visible together;
// - the log is bounded: writers prune it up to the slowest live reader, and
//   in any case beyond kTblLogCap behind the newest; a reader that stood
//   still that long finds the gap and reads its tables afresh;
// - snapshot() reads tables and the log's top consistently.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include <sys/types.h>

#include "platform/host/tbl_codec.h"

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
// reads its tables afresh when it reads on. The store lives in memory, and
// each change holds its whole row.
constexpr int64_t kTblLogCap = 1 << 17;

// The highest sequence number a change may carry: a million changes a
// second would take centuries to reach it.
constexpr int64_t kTblSeqMax = int64_t(1) << 53;

// How long a writer waits for another connection's write lock by default
// (the tools); the event loop's process waits far less, see set_busy_ms.
constexpr int kTblBusyMs = 5000;

// How a process opens a store. The daemon and the writers create a missing
// store; a tool that only reads must never do so, since a store made empty
// under a mistyped root reads as "no rows". A reader that subscribes still
// writes its place in the store's readers.
enum class tbl_open {
    create,     // read and write; a missing store is made
    existing,   // read and write; only a store that exists
    read_only,  // reads only, of a store that exists; every write fails
};

class tbl_store {
public:
    // Opens store `db` on the backend that HNX_STORE names: the SQLite file
    // at `path`, the Redis server of the URL, or the memory store of `path`. Null after one error line
    // on stderr.
    static std::unique_ptr<tbl_store> open(int db, const std::string &path,
                                           tbl_open mode = tbl_open::create);
    virtual ~tbl_store() = default;
    tbl_store(const tbl_store &) = delete;
    tbl_store &operator=(const tbl_store &) = delete;

    int db() const { return db_; }
    pid_t owner() const { return owner_; }
    // Where the store is: its file, or its URL.
    const std::string &path() const { return path_; }

    // How long a statement waits for another connection's lock before it
    // fails as busy (where the backend has such locks).
    virtual void set_busy_ms(int) {}
    // Caps the store at `pages` pages on this connection: a write that needs
    // more fails as on a full disk. 0 lifts the cap. -11 where the backend
    // cannot.
    virtual int limit_pages(int64_t pages) = 0;
    // How far behind the newest change this writer prunes in any case
    // (kTblLogCap unless a test wants a short log).
    void set_log_cap(int64_t changes) { log_cap_ = changes; }
    // 0 when the store is sound, else -11 with the first problem in *problem.
    virtual int check_integrity(std::string *problem) = 0;
    // What a person does with a damaged store so that its processes make it
    // anew: "move the file away ..." (completes "Stop every process of the
    // store, ...").
    virtual std::string remedy() const = 0;
    // "" while the store that this connection opened still stands, else
    // what became of it ("was removed, replaced or emptied while in use").
    virtual std::string gone() const = 0;
    // A file that every commit of another process touches, for a watch that
    // wakes its readers at once; "" when they poll.
    virtual std::string wake_file() const = 0;
    // Where there is no such file: a descriptor that turns readable when
    // another connection may have logged a change, for the reader's loop to
    // wait on; -1 when the backend has none (the reader polls). When it
    // wakes, wait_woken() reads what woke it; once at the start and after
    // each wake's delivery, wait_again(after) waits for changes after
    // `after` (the reader's place). Each is -11 when the wait failed (the
    // server may have gone), after which the reader polls.
    virtual int wait_fd() { return -1; }
    virtual int wait_woken() { return -11; }
    virtual int wait_again(int64_t) { return -11; }

    // The text of the last failure of this connection.
    const std::string &last_error() const { return last_error_; }

    // A child process after fork must not touch its parent's connection:
    // this drops the handle without closing it.
    virtual void abandon() = 0;

    // Writes: 0, or -11 after an error line. *changed is false when the
    // table stands as it was (an equal rewrite, a delete of an absent row),
    // and then nothing is logged.
    virtual int put(std::string_view table, const tbl_bytes &key, const tbl_bytes &row,
                    bool *changed) = 0;
    virtual int erase(std::string_view table, const tbl_bytes &key, const tbl_bytes &key_row,
                      bool *changed) = 0;

    // Reads: 0 or -11. get sets *found.
    virtual int get(std::string_view table, const tbl_bytes &key, tbl_bytes *row,
                    bool *found) = 0;
    // Up to `limit` rows in key order (bytewise), after the key `after`
    // (from the first row when null).
    virtual int page(std::string_view table, const tbl_bytes *after, int limit,
                     std::vector<tbl_row> *out) = 0;

    // Writes between begin and commit share one transaction; they nest.
    virtual int begin() = 0;
    virtual int commit() = 0;
    // Ends a write begun with begin(): commits it, or drops it when a step
    // failed, so that a row and its logged change stand or fall together.
    virtual int finish(int rv) = 0;

    // The change log. `top` is the last sequence ever given.
    virtual int top(int64_t *seq) = 0;
    virtual int changes(int64_t after, int limit, std::vector<tbl_change> *out) = 0;
    virtual int join(int64_t *seq) = 0;      // reader from the current top on
    virtual int join_at(int64_t seq) = 0;    // reader from seq on
    virtual int record(int64_t seq) = 0;     // reader has delivered up to seq
    virtual int leave() = 0;                 // no longer a reader
    virtual int prune() = 0;
    virtual int log_size(int64_t *n) = 0;
    // The rows of `table` as they stand, counted by the store itself.
    virtual int count(std::string_view table, int64_t *n) = 0;
    // Whether another connection committed since the last call.
    virtual bool data_changed() = 0;

    // The rows of each of `tables` and the log's top, read in one snapshot,
    // so that the changes after *top are exactly those the rows miss.
    virtual int snapshot(const std::vector<std::string> &tables,
                         std::vector<std::vector<tbl_row>> *out, int64_t *top) = 0;

protected:
    tbl_store(int db, std::string path) : db_(db), path_(std::move(path)), owner_(tbl_self_pid()) {}

    int db_;
    std::string path_;
    pid_t owner_;
    int64_t log_cap_ = kTblLogCap;
    std::string last_error_;
};
