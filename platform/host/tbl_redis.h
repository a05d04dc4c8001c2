// The table store on a Redis server, for a store that processes on other
// hosts or in other containers share. Key layout of store number N (16 for
// the service's tables), readable with redis-cli:
//
//   hnx:N:id             string "LAYOUT/IDENTITY": the layout of these keys
//                        (3) and the store's identity, set when it is made
//   hnx:N:top            string: the last sequence number given to a change
//   hnx:N:rows:TABLE     hash: packed key -> packed row (protobuf)
//   hnx:N:ver:TABLE      string: the number of the last change of TABLE
//                        (set by each write step that changes it, never
//                        read there: a writer may only write it), so that a
//                        reader keeps the table's sorted keys while it stands
//   hnx:N:log            stream: one entry per write step (one per 500
//                        changes of a larger step), ID "SEQ-WRITER" where SEQ
//                        is the number of its last change; a field per
//                        change, in order, "set:TABLE" or "del:TABLE" holding
//                        the row (a delete's row holds only the key), so the
//                        k-th of an entry's n changes is number SEQ - n + k;
//                        WRITER is the writing connection's number, drawn at
//                        random when it connects, by which a process skips
//                        its own
//   hnx:N:readers        hash: reader id of a subscribing process -> the
//                        last sequence number it delivered; the id is
//                        PID@HOST/BOOT-ID/PID-NAMESPACE (the machine id
//                        where the boot id is hidden), one per process
//                        wherever it runs
//   hnx:N:lease:ID       string with a TTL: reader ID is alive; set when it
//                        records its place, renewed while it waits
//
// A store of an earlier layout (the first: an identity without a layout, log
// entries of four fields; the second: "2/", an entry for each change) is
// brought to this one by the first process that may create the store (its
// log dropped, its rows and numbering kept); any other refuses it with a
// line that says so.
//
// Every write runs as one Lua script that compares, writes, numbers and
// logs, so a row and its change stand or fall together, and an equal
// rewrite logs nothing. Writes between begin() and commit() are held here
// and go in one script at commit: a loop turn's writes become visible
// together. Until then this connection's reads see them (get, page), and
// put/erase tell *changed by what this connection knows: a row equal to
// one written earlier in the transaction is no change, otherwise a write
// counts as a change (the script still logs only real ones).
//
// The log is trimmed with XTRIM MINID to the slowest live reader and in any
// case to the log cap behind the newest, every 128 changes a writer logs;
// an entry goes only when all its changes are behind that mark.
// A reader is live while its lease stands; one of the writer's own place
// whose pid is gone is dropped at once.
//
// A reader on an event loop waits for changes on a second connection,
// blocked in XREAD on the log (wait_fd), so that it costs nothing while no
// one writes.
//
// A connection that fails is not opened again: the store says so once and
// gone() names it, so that a subscribing process ends for its supervisor
// and starts again on the server as it stands when it is back.
#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/host/tbl_store.h"
#include "platform/host/tbl_where.h"

struct redisContext;
struct redisReply;

// Packed keys in key order: bytewise, as memcmp.
struct tbl_bytes_less {
    bool operator()(const tbl_bytes &a, const tbl_bytes &b) const;
};

// How long a reader's lease stands without being renewed: a reader that
// stalls longer is dropped by the next writer that trims, and reads its
// tables afresh when it reads on.
constexpr int64_t kTblLeaseMs = 60000;

class tbl_redis final : public tbl_store {
public:
    // Connects to the server of `where` and checks the store as `mode`
    // says (for tbl_open::create it makes the store's identity). Null after
    // one error line on stderr.
    static std::unique_ptr<tbl_store> open(int db, const tbl_where &where, tbl_open mode);
    ~tbl_redis() override;

    // The server's memory cap (CONFIG SET maxmemory): a write beyond it is
    // refused as on a full disk. `pages` counts 4 KiB; 0 lifts the cap.
    int limit_pages(int64_t pages) override;
    int check_integrity(std::string *problem) override;
    std::string gone() const override;
    std::string wake_file() const override { return ""; }
    int wait_fd() override;
    int wait_woken() override;
    int wait_again(int64_t after) override;
    std::string remedy() const override;
    void abandon() override;
    // This process's name in the store's readers.
    const std::string &reader_id() const { return reader_id_; }
    // This connection's number in the log's entry IDs.
    const std::string &writer() const { return writer_; }

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
    struct op {
        bool is_del;
        std::string table;
        tbl_bytes key;
        tbl_bytes row;
    };
    struct reply_free {
        void operator()(redisReply *r) const;
    };
    using reply = std::unique_ptr<redisReply, reply_free>;

    tbl_redis(int db, std::string url) : tbl_store(db, std::move(url)) {}
    int connect(const tbl_where &where, tbl_open mode);
    redisContext *dial(const tbl_where &where, const char *what) const;
    int check_layout(tbl_open mode);
    int wait_read();
    reply send(const std::vector<std::string> &args) const;
    reply checked(const char *what, reply r) const;
    reply run(const char *what, const std::vector<std::string> &args) const;
    reply script(const char *what, int which, const std::vector<std::string> &keys,
                 const std::vector<std::string> &args) const;
    int fail(const char *what, const std::string &why) const;
    int write_ops(std::vector<op> ops, std::vector<bool> *changed);
    int write_one(op o, bool *changed);
    int page_raw(std::string_view table, const tbl_bytes *after, int limit,
                 std::vector<tbl_row> *out);
    std::string key(const std::string &what) const { return prefix_ + what; }
    void keep_lease();

    std::string prefix_;                    // "hnx:N:"
    mutable redisContext *ctx_ = nullptr;
    mutable bool lost_ = false;             // the connection failed
    mutable std::string lost_why_;
    mutable bool quiet_ = false;            // failures are not said (gone() says them)
    std::string id_;                        // the store's identity at open
    std::string writer_;                    // this connection's number in the log
    tbl_where where_;                       // for the waiting connection
    redisContext *wait_ctx_ = nullptr;      // blocked in XREAD while a reader waits
    bool waiting_ = false;                  // an XREAD is out, its reply not read
    bool wait_failed_ = false;
    bool read_only_ = false;
    std::vector<std::string> sha_;          // the scripts' SHA1s on the server
    int depth_ = 0;
    std::vector<op> ops_;                   // the open transaction's writes
    std::map<std::string, std::map<tbl_bytes, std::optional<tbl_bytes>, tbl_bytes_less>> held_;
    int64_t seen_top_ = -1;                 // the top that data_changed saw last
    int logged_ = 0;                        // changes logged since the last prune
    struct key_list {
        std::string ver;                    // the table's version they are of
        std::vector<tbl_bytes> keys;        // sorted
    };
    std::map<std::string, key_list> key_lists_;  // tables being scanned
    std::string place_;                     // HOST/BOOT-ID/PID-NAMESPACE
    std::string reader_id_;                 // PID@place
    int64_t lease_ms_ = kTblLeaseMs;
    bool joined_ = false;                   // among the readers, with a lease
    int64_t leased_at_ = 0;                 // when the lease was last set (steady ms)
    int64_t recorded_ = 0;                  // the place in the log last recorded
};
