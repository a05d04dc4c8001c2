// The table store in this process's memory, for tests, fuzz targets and
// benchmarks that do not test the store itself. It keeps every promise of
// tbl_store.h, with the same log bound, readers and pruning as the SQLite
// store, so that a service on it behaves as on a file.
//
// A store is named by its path (the file that SQLite would use under the
// file root) and lives until the process ends or tbl_memory_drop removes
// it: every connection of this process that opens the path shares it, so a
// test can have a user's connection and the daemon's side by side, and a
// restart of the service finds its tables as it left them. Another process
// never sees it; a child after fork has a copy of its own. A connection
// opened with open_other() stands for another process of the store (a user
// writing requests, a second daemon): its changes reach this process's
// readers, and it reads and leaves the log under an id of its own.
//
// Rows stand per table in a map ordered by packed key bytes; the log is a
// ring of changes whose entries keep their buffers when they are pruned, so
// that a steady stream of writes allocates nothing once the ring has grown.
//
// One connection writes at a time: a write of another connection while a
// transaction is open fails at once as busy (the process has one thread,
// so waiting would never end it). Reads of other connections see the open
// transaction's rows, since nothing else can run between its writes; its
// changes reach their logs and data_changed() only at the commit.
#pragma once

#include <memory>
#include <string>

#include "platform/host/tbl_store.h"

class tbl_memory_db;

class tbl_memory final : public tbl_store {
public:
    // Opens the store of `path`, making it for tbl_open::create. Null after
    // one error line on stderr when it does not exist (other modes).
    static std::unique_ptr<tbl_store> open(int db, const std::string &path, tbl_open mode);
    // A connection that acts as another process would, as said above.
    static std::unique_ptr<tbl_store> open_other(int db, const std::string &path,
                                                 tbl_open mode = tbl_open::create);
    ~tbl_memory() override;
    // The id that its changes and its place among the readers carry: this
    // process's pid, or a negative number of its own for open_other.
    pid_t self() const { return self_; }

    // Caps the rows and the log at `pages` of 4096 bytes: a write beyond
    // it fails as on a full disk. 0 lifts the cap.
    int limit_pages(int64_t pages) override;
    // The log's numbers run on without a gap and every table's count holds.
    int check_integrity(std::string *problem) override;
    std::string gone() const override;
    std::string wake_file() const override { return ""; }
    std::string remedy() const override { return "let the store go with its process"; }
    void abandon() override {}

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
    tbl_memory(int db, std::string path, std::shared_ptr<tbl_memory_db> mem, bool read_only);
    static tbl_memory *make(int db, const std::string &path, tbl_open mode);
    int fail(const std::string &why);
    int writable();
    int write(std::string_view table, const tbl_bytes &key, const tbl_bytes *row,
              const tbl_bytes &logged, bool *changed);

    std::shared_ptr<tbl_memory_db> mem_;
    pid_t self_ = 0;
    bool read_only_ = false;
    int depth_ = 0;
    uint64_t seen_version_ = 0;  // the store's commit count that data_changed saw
    int64_t cap_bytes_ = 0;      // limit_pages, in bytes; 0: none
};

// Whether a store of `path` stands in this process's memory.
bool tbl_memory_exists(const std::string &path);

// Removes the store of `path`, as removing its file would: connections that
// still have it open find it gone, and the next open makes it anew.
void tbl_memory_drop(const std::string &path);

// Removes every store of this process.
void tbl_memory_drop_all();
