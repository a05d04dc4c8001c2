// The table store over SQLite: see tbl_sqlite.h.
#include "platform/host/tbl_sqlite.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <filesystem>

#include <fcntl.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr int kFail = -11;
constexpr int kPruneEvery = 128;

// The change log numbers its changes max + 1 within 1..kTblSeqMax. Pruning
// never takes the newest change, so the numbers never go back;
// AUTOINCREMENT would promise the same at the price of a third B-tree write
// for every change (its sqlite_sequence row), a fifth of the cost of a row
// write, and would follow a stray number at the top of the range.
const char *const kSchema =
    "CREATE TABLE IF NOT EXISTS rows("
    " tbl TEXT NOT NULL, key BLOB NOT NULL, val BLOB NOT NULL,"
    " PRIMARY KEY(tbl, key)) WITHOUT ROWID;"
    "CREATE TABLE IF NOT EXISTS changes("
    " seq INTEGER PRIMARY KEY, tbl TEXT NOT NULL, op INTEGER NOT NULL,"
    " key BLOB NOT NULL, val BLOB NOT NULL, writer INTEGER NOT NULL);"
    "CREATE TABLE IF NOT EXISTS readers(pid INTEGER PRIMARY KEY, seq INTEGER NOT NULL);";

enum stmt_id {
    kGet, kPut, kErase, kLog, kPageFirst, kPageNext, kTop, kChanges, kJoin, kRecord,
    kLeave, kReaders, kDropReader, kSlowest, kPrune, kDropStray, kLogSize, kCount, kDataVersion,
    kBegin, kBeginRead, kCommit, kRollback, kStmtCount
};

#define SEQ_MAX "9007199254740992"
static_assert(kTblSeqMax == 9007199254740992);

const char *const kSql[kStmtCount] = {
    "SELECT val FROM rows WHERE tbl = ?1 AND key = ?2",
    "INSERT INTO rows(tbl, key, val) VALUES(?1, ?2, ?3)"
    " ON CONFLICT(tbl, key) DO UPDATE SET val = excluded.val WHERE val IS NOT excluded.val",
    "DELETE FROM rows WHERE tbl = ?1 AND key = ?2",
    "INSERT INTO changes(seq, tbl, op, key, val, writer) VALUES(COALESCE((SELECT seq FROM"
    " changes WHERE seq <= " SEQ_MAX " ORDER BY seq DESC LIMIT 1), 0) + 1, ?1, ?2, ?3, ?4, ?5)",
    "SELECT key, val FROM rows WHERE tbl = ?1 ORDER BY key LIMIT ?2",
    "SELECT key, val FROM rows WHERE tbl = ?1 AND key > ?3 ORDER BY key LIMIT ?2",
    "SELECT COALESCE((SELECT seq FROM changes WHERE seq <= " SEQ_MAX
    " ORDER BY seq DESC LIMIT 1), 0)",
    "SELECT seq, tbl, op, val, writer FROM changes WHERE seq > ?1 AND seq <= " SEQ_MAX
    " ORDER BY seq LIMIT ?2",
    "INSERT INTO readers(pid, seq) VALUES(?1, ?2)"
    " ON CONFLICT(pid) DO UPDATE SET seq = excluded.seq",
    "UPDATE readers SET seq = ?2 WHERE pid = ?1",
    "DELETE FROM readers WHERE pid = ?1",
    "SELECT pid FROM readers",
    "DELETE FROM readers WHERE pid = ?1",
    "SELECT MIN(seq) FROM readers",
    // A range from the log's start, so that a prune costs what it removes.
    "DELETE FROM changes WHERE seq <= ?1",
    "DELETE FROM changes WHERE seq > " SEQ_MAX,
    "SELECT count(*) FROM changes",
    "SELECT count(*) FROM rows WHERE tbl = ?1",
    "PRAGMA data_version",
    "BEGIN IMMEDIATE",
    "BEGIN",
    "COMMIT",
    "ROLLBACK",
};

enum change_op { kOpSet = 1, kOpDel = 2 };

// Resets a statement when the scope ends, so that every path leaves it
// ready for the next use and releases its read snapshot.
struct stmt_use {
    sqlite3_stmt *s;
    ~stmt_use() {
        sqlite3_reset(s);
        sqlite3_clear_bindings(s);
    }
};

void bind_text(sqlite3_stmt *s, int i, std::string_view t) {
    sqlite3_bind_text(s, i, t.data(), int(t.size()), SQLITE_STATIC);
}

// An empty blob must stay a blob: a null pointer would bind NULL.
void bind_blob(sqlite3_stmt *s, int i, const tbl_bytes &b) {
    static const uint8_t kNone = 0;
    sqlite3_bind_blob(s, i, b.empty() ? &kNone : b.data(), int(b.size()), SQLITE_STATIC);
}

tbl_bytes column_blob(sqlite3_stmt *s, int i) {
    auto *p = static_cast<const uint8_t *>(sqlite3_column_blob(s, i));
    return tbl_bytes(p, p + sqlite3_column_bytes(s, i));
}

// SQLite's own busy wait sleeps for milliseconds at a time, longer than a
// whole write batch of another process: waiting in short steps lets a
// writer in as soon as the other's transaction ends.
int busy_wait(void *arg, int tries) {
    constexpr int kStepUs = 100;
    if (int64_t(tries) * kStepUs >= int64_t(*static_cast<const int *>(arg)) * 1000) return 0;
    usleep(kStepUs);
    return 1;
}

bool pid_is_dead(pid_t pid) { return kill(pid, 0) != 0 && errno == ESRCH; }

// Two processes that open a new store at once both switch it to WAL; the
// one that meets the other's switch is told "locked" at once, without the
// busy wait. It tries again for as long as a busy wait would last.
void wait_for_wal(sqlite3 *db) {
    for (int waited = 0; waited < kTblBusyMs; waited += 5) {
        if (sqlite3_exec(db, "PRAGMA journal_mode=WAL", nullptr, nullptr, nullptr) != SQLITE_BUSY)
            return;
        usleep(5000);
    }
}

int open_flags(tbl_open mode) {
    switch (mode) {
    case tbl_open::create: return SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX;
    case tbl_open::existing: return SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX;
    case tbl_open::read_only: return SQLITE_OPEN_READONLY | SQLITE_OPEN_NOMUTEX;
    }
    return SQLITE_OPEN_READONLY | SQLITE_OPEN_NOMUTEX;
}

}  // namespace

std::unique_ptr<tbl_store> tbl_sqlite::open(int db, const std::string &path, tbl_open mode) {
    std::error_code ec;
    if (mode == tbl_open::create)
        std::filesystem::create_directories(std::filesystem::path(path).parent_path(), ec);
    std::unique_ptr<tbl_sqlite> st(new tbl_sqlite(db, path));
    if (sqlite3_open_v2(path.c_str(), &st->sql_, open_flags(mode), nullptr) != SQLITE_OK) {
        st->fail("open");
        return nullptr;
    }
    sqlite3_busy_handler(st->sql_, busy_wait, &st->busy_ms_);
    if (st->setup(mode) != 0) return nullptr;
    return st;
}

int tbl_sqlite::setup_writer() {
    wait_for_wal(sql_);  // a failure that outlasts the wait is reported below
    // The store is the switch's runtime state under /var/run, which a
    // reboot empties anyway: it must survive its processes, not the power.
    // A killed process loses nothing without syncs, since the kernel holds
    // its writes, and no writer waits for the disk at a checkpoint.
    if (exec("PRAGMA synchronous=OFF") || exec("PRAGMA journal_mode=WAL") || exec(kSchema))
        return kFail;
    return 0;
}

int tbl_sqlite::setup(tbl_open mode) {
    // A reader takes the file as its writers made it: WAL mode and the
    // schema are theirs to set, and a file without the schema fails below.
    if (mode != tbl_open::read_only && setup_writer() != 0) return kFail;
    stmts_.assign(kStmtCount, nullptr);
    for (int i = 0; i < kStmtCount; i++) {
        if (sqlite3_prepare_v3(sql_, kSql[i], -1, SQLITE_PREPARE_PERSISTENT, &stmts_[i], nullptr))
            return fail("prepare");
    }
    data_changed();
    struct stat sb {};
    if (stat(path_.c_str(), &sb) == 0) dev_ = sb.st_dev, ino_ = sb.st_ino;
    return 0;
}

tbl_sqlite::~tbl_sqlite() {
    if (!sql_) return;
    for (sqlite3_stmt *s : stmts_) sqlite3_finalize(s);
    sqlite3_close_v2(sql_);
}

void tbl_sqlite::abandon() {
    sql_ = nullptr;
    stmts_.clear();
}

// A store that cannot be opened is tried again by every table made on it
// and by the connect: an open that fails as the last one did is not said
// again.
int tbl_sqlite::fail(const char *what) {
    last_error_ = std::string(what) + ": " + (sql_ ? sqlite3_errmsg(sql_) : "no connection");
    static std::string last_open;
    std::string line = "ss_rt_tbl: store " + std::to_string(db_) + " (" + path_ + "): " +
                       last_error_ + "\n";
    const bool is_open = std::string_view(what) == "open";
    if (!is_open || line != last_open) std::fputs(line.c_str(), stderr);
    if (is_open) last_open = std::move(line);
    return kFail;
}

int tbl_sqlite::exec(const char *sql) {
    char *err = nullptr;
    if (sqlite3_exec(sql_, sql, nullptr, nullptr, &err) == SQLITE_OK) return 0;
    last_error_ = err ? err : "failed";
    std::fprintf(stderr, "ss_rt_tbl: store %d (%s): %s\n", db_, path_.c_str(), last_error_.c_str());
    sqlite3_free(err);
    return kFail;
}

sqlite3_stmt *tbl_sqlite::prep(int which) { return stmts_[which]; }

int tbl_sqlite::begin() {
    if (depth_++ > 0) return 0;
    stmt_use u{prep(kBegin)};
    if (sqlite3_step(u.s) == SQLITE_DONE) return 0;
    depth_ = 0;
    return fail("begin");
}

// Every writer prunes once its changes are committed, also one that
// batches its writes in transactions of its own (a users' tool), so that
// the log's bound does not rest on another process writing.
int tbl_sqlite::commit() {
    if (depth_ == 0 || --depth_ > 0) return 0;
    int done = 0;
    {
        stmt_use u{prep(kCommit)};
        done = sqlite3_step(u.s) == SQLITE_DONE;
    }
    if (done) return prune(), 0;
    int rv = fail("commit");
    stmt_use r{prep(kRollback)};
    sqlite3_step(r.s);
    return rv;
}

// Ends a write begun with begin(): commits it, or rolls it back when a step
// failed, so that a row and its logged change stand or fall together.
int tbl_sqlite::finish(int rv) {
    if (rv == 0) return commit();
    if (depth_ > 0 && --depth_ == 0) {
        stmt_use r{prep(kRollback)};
        sqlite3_step(r.s);
    }
    return rv;
}

int tbl_sqlite::get(std::string_view table, const tbl_bytes &key, tbl_bytes *row, bool *found) {
    stmt_use u{prep(kGet)};
    bind_text(u.s, 1, table);
    bind_blob(u.s, 2, key);
    int rc = sqlite3_step(u.s);
    *found = rc == SQLITE_ROW;
    if (*found && row) *row = column_blob(u.s, 0);
    return rc == SQLITE_ROW || rc == SQLITE_DONE ? 0 : fail("read row");
}

int tbl_sqlite::log_change(std::string_view table, bool is_del, const tbl_bytes &key,
                          const tbl_bytes &row) {
    stmt_use u{prep(kLog)};
    bind_text(u.s, 1, table);
    sqlite3_bind_int(u.s, 2, is_del ? kOpDel : kOpSet);
    bind_blob(u.s, 3, key);
    bind_blob(u.s, 4, row);
    sqlite3_bind_int64(u.s, 5, owner_);
    if (sqlite3_step(u.s) != SQLITE_DONE) return fail("log change");
    logged_++;
    return 0;
}

int tbl_sqlite::put(std::string_view table, const tbl_bytes &key, const tbl_bytes &row,
                   bool *changed) {
    *changed = false;
    if (begin() != 0) return kFail;
    // An equal rewrite matches the upsert's WHERE, changes no row and is
    // not logged: subscribers see only real changes.
    int rv = 0;
    {
        stmt_use u{prep(kPut)};
        bind_text(u.s, 1, table);
        bind_blob(u.s, 2, key);
        bind_blob(u.s, 3, row);
        rv = sqlite3_step(u.s) == SQLITE_DONE ? 0 : fail("write row");
    }
    if (rv == 0 && sqlite3_changes(sql_) > 0) {
        rv = log_change(table, false, key, row);
        *changed = rv == 0;
    }
    rv = finish(rv);
    if (rv == 0 && depth_ == 0) prune();
    return rv;
}

int tbl_sqlite::erase(std::string_view table, const tbl_bytes &key, const tbl_bytes &key_row,
                     bool *changed) {
    *changed = false;
    if (begin() != 0) return kFail;
    int rv = 0;
    {
        stmt_use u{prep(kErase)};
        bind_text(u.s, 1, table);
        bind_blob(u.s, 2, key);
        rv = sqlite3_step(u.s) == SQLITE_DONE ? 0 : fail("delete row");
    }
    if (rv == 0 && sqlite3_changes(sql_) > 0) {
        rv = log_change(table, true, key, key_row);
        *changed = rv == 0;
    }
    rv = finish(rv);
    if (rv == 0 && depth_ == 0) prune();
    return rv;
}

int tbl_sqlite::page(std::string_view table, const tbl_bytes *after, int limit,
                    std::vector<tbl_row> *out) {
    stmt_use u{prep(after ? kPageNext : kPageFirst)};
    bind_text(u.s, 1, table);
    sqlite3_bind_int(u.s, 2, limit);
    if (after) bind_blob(u.s, 3, *after);
    int rc;
    while ((rc = sqlite3_step(u.s)) == SQLITE_ROW)
        out->push_back({column_blob(u.s, 0), column_blob(u.s, 1)});
    return rc == SQLITE_DONE ? 0 : fail("read rows");
}

int tbl_sqlite::top(int64_t *seq) {
    stmt_use u{prep(kTop)};
    int rc = sqlite3_step(u.s);
    *seq = rc == SQLITE_ROW ? sqlite3_column_int64(u.s, 0) : 0;
    return rc == SQLITE_ROW || rc == SQLITE_DONE ? 0 : fail("read log top");
}

int tbl_sqlite::changes(int64_t after, int limit, std::vector<tbl_change> *out) {
    stmt_use u{prep(kChanges)};
    sqlite3_bind_int64(u.s, 1, after);
    sqlite3_bind_int(u.s, 2, limit);
    int rc;
    while ((rc = sqlite3_step(u.s)) == SQLITE_ROW) {
        auto *name = reinterpret_cast<const char *>(sqlite3_column_text(u.s, 1));
        out->push_back({sqlite3_column_int64(u.s, 0), name ? name : "",
                        sqlite3_column_int(u.s, 2) == kOpDel, column_blob(u.s, 3),
                        pid_t(sqlite3_column_int64(u.s, 4))});
    }
    return rc == SQLITE_DONE ? 0 : fail("read changes");
}

int tbl_sqlite::join(int64_t *seq) {
    if (begin() != 0) return kFail;
    int rv = top(seq);
    if (rv == 0) {
        stmt_use u{prep(kJoin)};
        sqlite3_bind_int64(u.s, 1, owner_);
        sqlite3_bind_int64(u.s, 2, *seq);
        rv = sqlite3_step(u.s) == SQLITE_DONE ? 0 : fail("join readers");
    }
    return finish(rv);
}

int tbl_sqlite::join_at(int64_t seq) {
    stmt_use u{prep(kJoin)};
    sqlite3_bind_int64(u.s, 1, owner_);
    sqlite3_bind_int64(u.s, 2, seq);
    return sqlite3_step(u.s) == SQLITE_DONE ? 0 : fail("join readers");
}

int tbl_sqlite::record(int64_t seq) {
    stmt_use u{prep(kRecord)};
    sqlite3_bind_int64(u.s, 1, owner_);
    sqlite3_bind_int64(u.s, 2, seq);
    return sqlite3_step(u.s) == SQLITE_DONE ? 0 : fail("record reader");
}

int tbl_sqlite::leave() {
    stmt_use u{prep(kLeave)};
    sqlite3_bind_int64(u.s, 1, owner_);
    return sqlite3_step(u.s) == SQLITE_DONE ? 0 : fail("leave readers");
}

// A reader that died without leaving would hold the log forever.
int tbl_sqlite::drop_dead_readers() {
    std::vector<pid_t> dead;
    {
        stmt_use u{prep(kReaders)};
        while (sqlite3_step(u.s) == SQLITE_ROW) {
            pid_t pid = pid_t(sqlite3_column_int64(u.s, 0));
            if (pid_is_dead(pid)) dead.push_back(pid);
        }
    }
    for (pid_t pid : dead) {
        stmt_use u{prep(kDropReader)};
        sqlite3_bind_int64(u.s, 1, pid);
        if (sqlite3_step(u.s) != SQLITE_DONE) return fail("drop reader");
    }
    return 0;
}

// Everything below the slowest live reader goes, or all but the newest when
// no one reads; never less than what lies more than kTblLogCap behind.
int tbl_sqlite::prune_floor(int64_t newest, int64_t *floor) {
    stmt_use u{prep(kSlowest)};
    if (sqlite3_step(u.s) != SQLITE_ROW) return fail("read readers");
    int64_t keep_from = newest - 1;
    if (sqlite3_column_type(u.s, 0) != SQLITE_NULL)
        keep_from = std::max<int64_t>(sqlite3_column_int64(u.s, 0), newest - log_cap_);
    *floor = std::min(keep_from, newest - 1);
    return 0;
}

int tbl_sqlite::prune() {
    if (logged_ < kPruneEvery) return 0;
    logged_ = 0;
    if (begin() != 0) return kFail;
    int64_t newest = 0, floor = 0;
    int rv = drop_dead_readers();
    if (rv == 0) rv = top(&newest);
    if (rv == 0) rv = prune_floor(newest, &floor);
    if (rv == 0) {
        stmt_use u{prep(kPrune)};
        sqlite3_bind_int64(u.s, 1, floor);
        rv = sqlite3_step(u.s) == SQLITE_DONE ? 0 : fail("prune changes");
    }
    if (rv == 0) {
        stmt_use u{prep(kDropStray)};
        rv = sqlite3_step(u.s) == SQLITE_DONE ? 0 : fail("drop stray changes");
    }
    return finish(rv);
}

int tbl_sqlite::log_size(int64_t *n) {
    stmt_use u{prep(kLogSize)};
    int rc = sqlite3_step(u.s);
    *n = rc == SQLITE_ROW ? sqlite3_column_int64(u.s, 0) : 0;
    return rc == SQLITE_ROW ? 0 : fail("count changes");
}

int tbl_sqlite::count(std::string_view table, int64_t *n) {
    stmt_use u{prep(kCount)};
    bind_text(u.s, 1, table);
    int rc = sqlite3_step(u.s);
    *n = rc == SQLITE_ROW ? sqlite3_column_int64(u.s, 0) : 0;
    return rc == SQLITE_ROW ? 0 : fail("count rows");
}

bool tbl_sqlite::data_changed() {
    stmt_use u{prep(kDataVersion)};
    if (sqlite3_step(u.s) != SQLITE_ROW) return true;
    int64_t v = sqlite3_column_int64(u.s, 0);
    bool moved = v != data_version_;
    data_version_ = v;
    return moved;
}

int tbl_sqlite::limit_pages(int64_t pages) {
    std::string sql = "PRAGMA max_page_count=" + std::to_string(pages > 0 ? pages : 4294967294LL);
    return exec(sql.c_str());
}

int tbl_sqlite::snapshot(const std::vector<std::string> &tables,
                        std::vector<std::vector<tbl_row>> *out, int64_t *top_seq) {
    out->assign(tables.size(), {});
    {
        stmt_use b{prep(kBeginRead)};
        if (sqlite3_step(b.s) != SQLITE_DONE) return fail("begin read");
    }
    int rv = top(top_seq);
    for (size_t i = 0; i < tables.size() && rv == 0; i++) {
        const tbl_bytes *after = nullptr;
        tbl_bytes last;
        size_t before = 0;
        do {
            before = (*out)[i].size();
            rv = page(tables[i], after, 1024, &(*out)[i]);
            if (rv == 0 && (*out)[i].size() > before) last = (*out)[i].back().key;
            after = &last;
        } while (rv == 0 && (*out)[i].size() - before == 1024);
    }
    stmt_use c{prep(rv == 0 ? kCommit : kRollback)};
    sqlite3_step(c.s);
    return rv;
}

int tbl_sqlite::check_integrity(std::string *problem) {
    sqlite3_stmt *s = nullptr;
    if (sqlite3_prepare_v2(sql_, "PRAGMA integrity_check(1)", -1, &s, nullptr) != SQLITE_OK) {
        *problem = sqlite3_errmsg(sql_);
        return kFail;
    }
    int rc = sqlite3_step(s);
    auto *text = rc == SQLITE_ROW ? reinterpret_cast<const char *>(sqlite3_column_text(s, 0)) : nullptr;
    *problem = text ? text : sqlite3_errmsg(sql_);
    sqlite3_finalize(s);
    return *problem == "ok" ? 0 : kFail;
}

std::string tbl_sqlite::gone() const {
    return replaced() ? "was removed, replaced or emptied while in use" : "";
}

bool tbl_sqlite::replaced() const {
    struct stat sb {};
    if (stat(path_.c_str(), &sb) != 0) return errno == ENOENT;
    if (sb.st_dev != dev_ || sb.st_ino != ino_) return true;
    // Truncated in place: a store never loses its header once it has one.
    static constexpr char kMagic[16] = "SQLite format 3";  // and its zero byte
    char head[sizeof kMagic] = {};
    const int fd = ::open(path_.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return false;
    const ssize_t n = pread(fd, head, sizeof head, 0);
    close(fd);
    return n >= 0 && std::memcmp(head, kMagic, sizeof kMagic) != 0;
}
