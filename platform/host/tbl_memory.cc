// The table store in this process's memory: see tbl_memory.h.
#include "platform/host/tbl_memory.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <map>
#include <optional>

#include "platform/host/tbl_redis.h"

namespace {

constexpr int kFail = -11;
constexpr int kPruneEvery = 128;
constexpr int64_t kPageBytes = 4096;

using mem_rows = std::map<tbl_bytes, tbl_bytes, tbl_bytes_less>;

struct mem_change {
    int64_t seq = 0;
    std::string table;
    bool is_del = false;
    tbl_bytes row;
    pid_t writer = 0;
};

// What a failed transaction puts back: the row of a key as it stood.
struct mem_undo {
    mem_rows *rows = nullptr;
    tbl_bytes key;
    bool had = false;
    tbl_bytes old;
};

bool pid_is_dead(pid_t pid) { return kill(pid, 0) != 0 && errno == ESRCH; }

}  // namespace

class tbl_memory_db {
public:
    std::map<std::string, mem_rows, std::less<>> tables;
    int64_t bytes = 0;  // keys and rows of the tables and the log

    // The log: a ring of the changes from top - n + 1 to top, oldest at
    // head. Pruned entries keep their buffers for the changes to come.
    std::vector<mem_change> ring;
    size_t head = 0, n = 0;
    int64_t top = 0;            // the last number given, committed or not
    int64_t committed_top = 0;  // what other connections see
    uint64_t version = 0;       // commits that changed something
    int logged = 0;             // changes logged since the last prune
    std::map<pid_t, int64_t> readers;  // by connection id (tbl_memory::self)
    int others = 0;                    // connections opened with open_other

    // The open transaction: its connection, and what a failure puts back.
    const tbl_memory *writer = nullptr;
    int64_t top_at_begin = 0;
    std::vector<mem_undo> undo;
    size_t undo_n = 0;

    mem_change &at(size_t i) { return ring[(head + i) % ring.size()]; }
    int64_t first_seq() const { return top - int64_t(n) + 1; }

    mem_change &push() {
        if (n == ring.size()) grow();
        return at(n++);
    }
    void grow() {
        std::vector<mem_change> bigger(std::max<size_t>(64, ring.size() * 2));
        for (size_t i = 0; i < n; i++) bigger[i] = std::move(at(i));
        ring = std::move(bigger);
        head = 0;
    }
    void drop_oldest() {
        bytes -= int64_t(at(0).row.size());
        head = (head + 1) % ring.size();
        n--;
    }
    void drop_newest() {
        bytes -= int64_t(at(n - 1).row.size());
        n--;
    }

    void keep_undo(mem_rows *rows, const tbl_bytes &key, const tbl_bytes *old) {
        if (undo_n == undo.size()) undo.emplace_back();
        mem_undo &u = undo[undo_n++];
        u.rows = rows;
        u.key.assign(key.begin(), key.end());
        u.had = old != nullptr;
        if (old) u.old.assign(old->begin(), old->end());
    }
    void set_row(mem_rows &rows, const tbl_bytes &key, const tbl_bytes &row) {
        auto [it, added] = rows.try_emplace(key);
        if (added) bytes += int64_t(key.size());
        bytes += int64_t(row.size()) - int64_t(it->second.size());
        it->second.assign(row.begin(), row.end());
    }
    void erase_row(mem_rows &rows, mem_rows::iterator it) {
        bytes -= int64_t(it->first.size() + it->second.size());
        rows.erase(it);
    }
    // Puts every row of the transaction back and takes its changes off the
    // log, newest first.
    void roll_back() {
        while (undo_n > 0) {
            mem_undo &u = undo[--undo_n];
            auto it = u.rows->find(u.key);
            if (u.had) set_row(*u.rows, u.key, u.old);
            else if (it != u.rows->end()) erase_row(*u.rows, it);
        }
        while (top > top_at_begin) drop_newest(), top--;
    }
};

namespace {

std::map<std::string, std::shared_ptr<tbl_memory_db>> &registry() {
    static std::map<std::string, std::shared_ptr<tbl_memory_db>> stores;
    return stores;
}

}  // namespace

bool tbl_memory_exists(const std::string &path) { return registry().count(path) > 0; }

void tbl_memory_drop(const std::string &path) { registry().erase(path); }

void tbl_memory_drop_all() { registry().clear(); }

std::unique_ptr<tbl_store> tbl_memory::open(int db, const std::string &path, tbl_open mode) {
    return std::unique_ptr<tbl_store>(make(db, path, mode));
}

std::unique_ptr<tbl_store> tbl_memory::open_other(int db, const std::string &path,
                                                  tbl_open mode) {
    tbl_memory *st = make(db, path, mode);
    if (st) st->self_ = -++st->mem_->others;
    return std::unique_ptr<tbl_store>(st);
}

tbl_memory *tbl_memory::make(int db, const std::string &path, tbl_open mode) {
    auto it = registry().find(path);
    if (it == registry().end()) {
        if (mode != tbl_open::create) {
            std::fprintf(stderr, "ss_rt_tbl: store %d (%s): open: no such store in this "
                                 "process's memory\n", db, path.c_str());
            return nullptr;
        }
        it = registry().emplace(path, std::make_shared<tbl_memory_db>()).first;
    }
    return new tbl_memory(db, path, it->second, mode == tbl_open::read_only);
}

tbl_memory::tbl_memory(int db, std::string path, std::shared_ptr<tbl_memory_db> mem,
                       bool read_only)
    : tbl_store(db, std::move(path)), mem_(std::move(mem)), self_(owner_),
      read_only_(read_only), seen_version_(mem_->version) {}

// A connection that goes with its transaction open leaves nothing of it;
// one that stood for another process leaves the readers as a process that
// ends would.
tbl_memory::~tbl_memory() {
    if (self_ < 0) mem_->readers.erase(self_);
    if (mem_->writer != this) return;
    mem_->roll_back();
    mem_->writer = nullptr;
}

int tbl_memory::fail(const std::string &why) {
    last_error_ = why;
    std::fprintf(stderr, "ss_rt_tbl: store %d (%s): %s\n", db_, path_.c_str(), why.c_str());
    return kFail;
}

int tbl_memory::writable() {
    if (read_only_) return fail("write: the store is open for reading only");
    if (mem_->writer && mem_->writer != this)
        return fail("write: the store is locked by another connection's transaction");
    return 0;
}

std::string tbl_memory::gone() const {
    auto it = registry().find(path_);
    return it == registry().end() || it->second != mem_
               ? "was removed, replaced or emptied while in use" : "";
}

int tbl_memory::limit_pages(int64_t pages) {
    cap_bytes_ = pages > 0 ? pages * kPageBytes : 0;
    return 0;
}

int tbl_memory::begin() {
    if (depth_++ > 0) return 0;
    if (mem_->writer && mem_->writer != this) {
        depth_ = 0;
        return fail("begin: the store is locked by another connection's transaction");
    }
    mem_->writer = this;
    mem_->top_at_begin = mem_->top;
    mem_->undo_n = 0;
    return 0;
}

int tbl_memory::commit() {
    if (depth_ == 0 || --depth_ > 0) return 0;
    if (mem_->writer != this) return 0;
    mem_->writer = nullptr;
    mem_->undo_n = 0;
    if (mem_->top != mem_->committed_top) {
        if (seen_version_ == mem_->version) seen_version_++;  // its own commit is no news
        mem_->version++;
        mem_->committed_top = mem_->top;
    }
    return prune(), 0;
}

int tbl_memory::finish(int rv) {
    if (rv == 0) return commit();
    if (depth_ > 0 && --depth_ == 0 && mem_->writer == this) {
        mem_->roll_back();
        mem_->writer = nullptr;
    }
    return rv;
}

// One row written (row set) or erased (row null), and `logged` logged when
// the table changes.
int tbl_memory::write(std::string_view table, const tbl_bytes &key, const tbl_bytes *row,
                      const tbl_bytes &logged, bool *changed) {
    *changed = false;
    if (writable() != 0) return kFail;
    auto t = mem_->tables.find(table);
    if (t == mem_->tables.end()) {
        if (!row) return 0;
        t = mem_->tables.emplace(std::string(table), mem_rows{}).first;
    }
    mem_rows &rows = t->second;
    auto it = rows.find(key);
    const bool had = it != rows.end();
    if (row ? had && it->second == *row : !had) return 0;
    if (mem_->top >= kTblSeqMax) return fail("log change: no sequence number left");
    const int64_t grows = int64_t(logged.size()) + (row ? int64_t(row->size()) : 0) +
                          (had ? 0 : int64_t(key.size()));
    if (cap_bytes_ > 0 && mem_->bytes + grows > cap_bytes_)
        return fail("write row: the store is full");
    if (begin() != 0) return kFail;
    mem_->keep_undo(&rows, key, had ? &it->second : nullptr);
    if (row) mem_->set_row(rows, key, *row);
    else mem_->erase_row(rows, it);
    mem_change &c = mem_->push();
    c.seq = ++mem_->top;
    c.table.assign(table);
    c.is_del = !row;
    c.row.assign(logged.begin(), logged.end());
    c.writer = self_;
    mem_->bytes += int64_t(logged.size());
    mem_->logged++;
    *changed = true;
    return commit();
}

int tbl_memory::put(std::string_view table, const tbl_bytes &key, const tbl_bytes &row,
                    bool *changed) {
    return write(table, key, &row, row, changed);
}

int tbl_memory::erase(std::string_view table, const tbl_bytes &key, const tbl_bytes &key_row,
                      bool *changed) {
    return write(table, key, nullptr, key_row, changed);
}

int tbl_memory::get(std::string_view table, const tbl_bytes &key, tbl_bytes *row, bool *found) {
    *found = false;
    auto t = mem_->tables.find(table);
    if (t == mem_->tables.end()) return 0;
    auto it = t->second.find(key);
    *found = it != t->second.end();
    if (*found && row) *row = it->second;
    return 0;
}

int tbl_memory::page(std::string_view table, const tbl_bytes *after, int limit,
                     std::vector<tbl_row> *out) {
    auto t = mem_->tables.find(table);
    if (t == mem_->tables.end()) return 0;
    auto it = after ? t->second.upper_bound(*after) : t->second.begin();
    for (int i = 0; i < limit && it != t->second.end(); i++, ++it)
        out->push_back({it->first, it->second});
    return 0;
}

// Other connections see the log up to the last commit.
int tbl_memory::top(int64_t *seq) {
    *seq = mem_->writer == this ? mem_->top : mem_->committed_top;
    return 0;
}

int tbl_memory::changes(int64_t after, int limit, std::vector<tbl_change> *out) {
    int64_t last = 0;
    top(&last);
    const int64_t first = std::max(after + 1, mem_->first_seq());
    for (int64_t seq = first; seq <= last && limit > 0; seq++, limit--) {
        const mem_change &c = mem_->at(size_t(seq - mem_->first_seq()));
        out->push_back({c.seq, c.table, c.is_del, c.row, c.writer});
    }
    return 0;
}

int tbl_memory::join(int64_t *seq) {
    top(seq);
    return join_at(*seq);
}

int tbl_memory::join_at(int64_t seq) {
    if (read_only_) return fail("join readers: the store is open for reading only");
    mem_->readers[self_] = seq;
    return 0;
}

int tbl_memory::record(int64_t seq) {
    if (read_only_) return fail("record reader: the store is open for reading only");
    auto it = mem_->readers.find(self_);
    if (it != mem_->readers.end()) it->second = seq;
    return 0;
}

int tbl_memory::leave() {
    if (read_only_) return fail("leave readers: the store is open for reading only");
    mem_->readers.erase(self_);
    return 0;
}

// As on a file: everything below the slowest live reader goes, or all but
// the newest when no one reads; never less than what lies more than the
// log cap behind. Only between transactions, so that a failed one never
// has to bring pruned changes back.
int tbl_memory::prune() {
    if (mem_->logged < kPruneEvery || mem_->writer) return 0;
    mem_->logged = 0;
    for (auto it = mem_->readers.begin(); it != mem_->readers.end();)
        it = it->first > 0 && it->first != owner_ && pid_is_dead(it->first) ? mem_->readers.erase(it)
                                                                            : ++it;
    const int64_t newest = mem_->top;
    int64_t keep_from = newest - 1;
    if (!mem_->readers.empty()) {
        int64_t slowest = kTblSeqMax;
        for (const auto &r : mem_->readers) slowest = std::min(slowest, r.second);
        keep_from = std::max(slowest, newest - log_cap_);
    }
    const int64_t floor = std::min(keep_from, newest - 1);
    while (mem_->n > 0 && mem_->first_seq() <= floor) mem_->drop_oldest();
    return 0;
}

int tbl_memory::log_size(int64_t *n) {
    *n = int64_t(mem_->n);
    return 0;
}

int tbl_memory::count(std::string_view table, int64_t *n) {
    auto t = mem_->tables.find(table);
    *n = t == mem_->tables.end() ? 0 : int64_t(t->second.size());
    return 0;
}

bool tbl_memory::data_changed() {
    const bool moved = seen_version_ != mem_->version;
    seen_version_ = mem_->version;
    return moved;
}

int tbl_memory::snapshot(const std::vector<std::string> &tables,
                         std::vector<std::vector<tbl_row>> *out, int64_t *top_seq) {
    out->assign(tables.size(), {});
    top(top_seq);
    for (size_t i = 0; i < tables.size(); i++) page(tables[i], nullptr, 1 << 30, &(*out)[i]);
    return 0;
}

int tbl_memory::check_integrity(std::string *problem) {
    for (size_t i = 0; i < mem_->n; i++) {
        if (mem_->at(i).seq != mem_->first_seq() + int64_t(i)) {
            *problem = "change " + std::to_string(mem_->at(i).seq) + " out of its place in the log";
            return kFail;
        }
    }
    *problem = "ok";
    return 0;
}
