// The table store on a Redis server: see tbl_redis.h.
#include "platform/host/tbl_redis.h"

#include "platform/host/tbl_redis_lua.h"

#include <algorithm>
#include <chrono>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <set>

#include <hiredis/hiredis.h>
#include <unistd.h>

namespace {

constexpr int kFail = -11;
constexpr int kPruneEvery = 128;
constexpr int64_t kPageBytes = 4096;

std::string text(const redisReply *r) {
    return r && (r->type == REDIS_REPLY_STRING || r->type == REDIS_REPLY_STATUS ||
                 r->type == REDIS_REPLY_ERROR)
               ? std::string(r->str, r->len)
               : "";
}

int64_t number(const redisReply *r) {
    if (!r) return 0;
    if (r->type == REDIS_REPLY_INTEGER) return r->integer;
    return r->type == REDIS_REPLY_STRING ? std::strtoll(text(r).c_str(), nullptr, 10) : 0;
}

tbl_bytes bytes(const redisReply *r) {
    if (!r || r->type != REDIS_REPLY_STRING) return {};
    auto *p = reinterpret_cast<const uint8_t *>(r->str);
    return tbl_bytes(p, p + r->len);
}

std::string str(const tbl_bytes &b) { return std::string(b.begin(), b.end()); }

std::string fresh_id() {
    std::random_device rd;
    char buf[40];
    std::snprintf(buf, sizeof buf, "%08x%08x%08x", rd(), rd(), rd());
    return buf;
}

// A connection's number in the log's entry IDs: the low half of an ID, which
// the script gives in full. Drawn from 2 to 2^63 - 1, so that two writers
// of a store never share one in practice, and never 1, the first layout's.
std::string fresh_writer() {
    std::random_device rd;
    uint64_t n = (uint64_t(rd()) << 32 | rd()) & ((uint64_t(1) << 63) - 1);
    return std::to_string(n < 2 ? n + 2 : n);
}

int64_t now_ms() {
    using namespace std::chrono;
    return duration_cast<milliseconds>(steady_clock::now().time_since_epoch()).count();
}

std::string first_line(const char *file) {
    std::FILE *f = std::fopen(file, "r");
    if (!f) return "";
    char buf[128] = "";
    const bool ok = std::fgets(buf, sizeof buf, f) != nullptr;
    std::fclose(f);
    std::string line = ok ? buf : "";
    while (!line.empty() && (line.back() == '\n' || line.back() == '\r')) line.pop_back();
    return line;
}

// Where a pid means one process: this boot of this host, in this pid
// namespace (a container has its own). A writer tells a reader of its own
// place dead by kill(pid, 0); any other only by its lease.
std::string this_place() {
    char host[256] = "";
    if (gethostname(host, sizeof host - 1) != 0) host[0] = 0;
    char ns[64] = "";
    const ssize_t n = readlink("/proc/self/ns/pid", ns, sizeof ns - 1);
    ns[n > 0 ? n : 0] = 0;
    // A sandbox that shows /proc's process folders alone (ProcSubset=pid)
    // hides the boot id: the machine id tells hosts apart then.
    std::string boot = first_line("/proc/sys/kernel/random/boot_id");
    if (boot.empty()) boot = first_line("/etc/machine-id");
    std::string place = std::string(host) + "/" + boot;
    const char *open = std::strchr(ns, '['), *close = std::strchr(ns, ']');
    if (open && close > open) place += "/" + std::string(open + 1, close);
    return place;
}

// A store that cannot be reached is tried again by every table made on it
// and by the retries: a line said already is not said again.
void say_once(const std::string &line) {
    static std::string last;
    if (line == last) return;
    std::fputs(line.c_str(), stderr);
    last = line;
}

}  // namespace

bool tbl_bytes_less::operator()(const tbl_bytes &a, const tbl_bytes &b) const {
    const size_t n = std::min(a.size(), b.size());
    const int c = n ? std::memcmp(a.data(), b.data(), n) : 0;
    return c < 0 || (c == 0 && a.size() < b.size());
}

namespace {

bool key_less(const tbl_row &a, const tbl_row &b) { return tbl_bytes_less()(a.key, b.key); }

}  // namespace

void tbl_redis::reply_free::operator()(redisReply *r) const { freeReplyObject(r); }

std::unique_ptr<tbl_store> tbl_redis::open(int db, const tbl_where &where, tbl_open mode) {
    // A write to a server that has gone must fail as an error, not end the
    // process by SIGPIPE before it could say so. A handler of the process's
    // own stays.
    struct sigaction was {};
    if (sigaction(SIGPIPE, nullptr, &was) == 0 && was.sa_handler == SIG_DFL)
        signal(SIGPIPE, SIG_IGN);
    std::unique_ptr<tbl_redis> st(new tbl_redis(db, where.url));
    st->prefix_ = "hnx:" + std::to_string(db) + ":";
    st->read_only_ = mode == tbl_open::read_only;
    st->place_ = this_place();
    st->reader_id_ = std::to_string(st->owner_) + "@" + st->place_;
    st->writer_ = fresh_writer();
    st->where_ = where;
    if (st->connect(where, mode) != 0) return nullptr;
    return st;
}

tbl_redis::~tbl_redis() {
    if (ctx_) redisFree(ctx_);
    if (wait_ctx_) redisFree(wait_ctx_);
}

void tbl_redis::abandon() { ctx_ = wait_ctx_ = nullptr; }

// A connection to the server, authenticated and on its database; null
// after one line.
redisContext *tbl_redis::dial(const tbl_where &where, const char *what) const {
    const std::string head = "ss_rt_tbl: store " + std::to_string(db_) + " (" + path_ + "): ";
    std::string user, password;
    std::string err = tbl_where_password(&user, &password);
    if (!err.empty()) return say_once(head + err + "\n"), nullptr;
    const timeval connect_tv{2, 0};
    redisContext *c = where.socket.empty()
                          ? redisConnectWithTimeout(where.host.c_str(), where.port, connect_tv)
                          : redisConnectUnixWithTimeout(where.socket.c_str(), connect_tv);
    if (!c || c->err) {
        say_once(head + what + ": " + (c ? c->errstr : "out of memory") +
                 ". Start the Redis server there, or give HNX_STORE (--store) one that runs\n");
        if (c) redisFree(c);
        return nullptr;
    }
    std::vector<std::vector<std::string>> setup;
    if (!password.empty()) {
        setup.push_back({"AUTH"});
        if (!user.empty()) setup.back().push_back(user);
        setup.back().push_back(password);
    }
    if (where.db != 0) setup.push_back({"SELECT", std::to_string(where.db)});
    for (const auto &cmd : setup) {
        std::vector<const char *> argv;
        std::vector<size_t> lens;
        for (const std::string &a : cmd) argv.push_back(a.data()), lens.push_back(a.size());
        reply r(static_cast<redisReply *>(
            redisCommandArgv(c, int(argv.size()), argv.data(), lens.data())));
        if (!r || r->type == REDIS_REPLY_ERROR) {
            const std::string why = r ? text(r.get()) : c->errstr[0] ? c->errstr : "no reply";
            say_once(head + (cmd[0] == "AUTH" ? "authenticate: " : "select the database: ") +
                     why + "\n");
            redisFree(c);
            return nullptr;
        }
    }
    return c;
}

int tbl_redis::connect(const tbl_where &where, tbl_open mode) {
    ctx_ = dial(where, "cannot connect");
    if (!ctx_) return kFail;
    const timeval command_tv{5, 0};
    redisSetTimeout(ctx_, command_tv);
    for (const char *s : kTblLua) {
        reply r = run("load a script", {"SCRIPT", "LOAD", s});
        if (!r) return kFail;
        sha_.push_back(text(r.get()));
    }
    // The identity is read first: a user that may write only its own table
    // must not even try to make the store that stands.
    reply id = run("read the store's identity", {"GET", key("id")});
    if (id && id->type != REDIS_REPLY_STRING && mode == tbl_open::create) {
        const std::string made = std::string(kTblRedisLayout) + "/" + fresh_id();
        if (!run("make the store", {"SET", key("id"), made, "NX"})) return kFail;
        id = run("read the store's identity", {"GET", key("id")});
    }
    if (!id) return kFail;
    if (id->type != REDIS_REPLY_STRING) {
        say_once("ss_rt_tbl: store " + std::to_string(db_) + " (" + path_ +
                 "): no store there (no key " + key("id") +
                 "): start the service on it first, or check the URL and its database\n");
        return kFail;
    }
    id_ = text(id.get());
    if (check_layout(mode) != 0) return kFail;
    data_changed();
    return 0;
}

// The earlier layouts: the first's identity names no layout and its log's
// entries have four fields (table, op, row, writer) under IDs "SEQ-1"; the
// second's log has an entry for each change, of one field.
namespace {

const char *earlier_layout(const std::string &layout) {
    if (layout.empty()) return "the first layout (change log entries of four fields)";
    if (layout == "2") return "layout 2 (a change log entry for each change)";
    return nullptr;
}

}  // namespace

int tbl_redis::check_layout(tbl_open mode) {
    const std::string mine = std::string(kTblRedisLayout) + "/";
    if (id_.compare(0, mine.size(), mine) == 0) return 0;
    const std::string head = "ss_rt_tbl: store " + std::to_string(db_) + " (" + path_ + "): ";
    const size_t slash = id_.find('/');
    const std::string layout = slash == std::string::npos ? "" : id_.substr(0, slash);
    const char *earlier = earlier_layout(layout);
    if (!earlier) {
        say_once(head + "its keys are of layout " + layout +
                 ", which this version does not know: run the version that made it, or " +
                 remedy() + " and start the service again\n");
        return kFail;
    }
    if (mode != tbl_open::create) {
        say_once(head + "its keys are of " + earlier + ": start the service "
                 "(hnx-l3table-l3mac) on it once, which brings it to this one\n");
        return kFail;
    }
    reply r = script("bring the store to this layout", kTblLuaMigrate, {},
                     {prefix_, id_, kTblRedisLayout});
    if (!r) return kFail;
    reply id = run("read the store's identity", {"GET", key("id")});
    if (!id || id->type != REDIS_REPLY_STRING) return kFail;
    id_ = text(id.get());
    if (number(r.get()) == 1)
        std::fprintf(stderr, "%sbrought its keys from %s to layout %s: its change log was "
                     "dropped, its rows kept\n", head.c_str(),
                     layout.empty() ? "the first layout" : ("layout " + layout).c_str(),
                     kTblRedisLayout);
    return id_.compare(0, mine.size(), mine) == 0 ? 0 : check_layout(mode);
}

int tbl_redis::fail(const char *what, const std::string &why) const {
    const_cast<tbl_redis *>(this)->last_error_ = std::string(what) + ": " + why;
    if (!quiet_)
        say_once("ss_rt_tbl: store " + std::to_string(db_) + " (" + path_ + "): " + last_error_ +
             "\n");
    return kFail;
}

// Null after the error line when the command fails or the connection is
// gone; a lost connection stays lost.
// One command as it is, on a connection that stands: null when no reply came.
tbl_redis::reply tbl_redis::send(const std::vector<std::string> &args) const {
    std::vector<const char *> argv;
    std::vector<size_t> lens;
    for (const std::string &a : args) argv.push_back(a.data()), lens.push_back(a.size());
    return reply(static_cast<redisReply *>(
        redisCommandArgv(ctx_, int(argv.size()), argv.data(), lens.data())));
}

// A reply that is an answer, else null after the error line; no reply at
// all means the server has gone, and every later command fails at once.
tbl_redis::reply tbl_redis::checked(const char *what, reply r) const {
    if (!r) {
        lost_ = true;
        lost_why_ = ctx_->errstr[0] ? ctx_->errstr : "no reply";
        fail(what, "connection lost (" + lost_why_ + ")");
        return nullptr;
    }
    if (r->type == REDIS_REPLY_ERROR) {
        fail(what, text(r.get()));
        return nullptr;
    }
    return r;
}

tbl_redis::reply tbl_redis::run(const char *what, const std::vector<std::string> &args) const {
    if (lost_ || !ctx_) {
        fail(what, "connection lost (" + lost_why_ + ")");
        return nullptr;
    }
    return checked(what, send(args));
}

// A server that restarted without its script cache gets the script again.
tbl_redis::reply tbl_redis::script(const char *what, int which,
                                   const std::vector<std::string> &keys,
                                   const std::vector<std::string> &args) const {
    std::vector<std::string> cmd{"EVALSHA", sha_.at(size_t(which)), std::to_string(keys.size())};
    cmd.insert(cmd.end(), keys.begin(), keys.end());
    cmd.insert(cmd.end(), args.begin(), args.end());
    if (lost_ || !ctx_) return run(what, cmd);
    reply r = send(cmd);
    if (r && r->type == REDIS_REPLY_ERROR && text(r.get()).rfind("NOSCRIPT", 0) == 0) {
        cmd[0] = "EVAL";
        cmd[1] = kTblLua[which];
        return run(what, cmd);
    }
    return checked(what, std::move(r));
}

std::string tbl_redis::gone() const {
    if (!lost_) {
        quiet_ = true;
        reply id = run("check the store's identity", {"GET", key("id")});
        quiet_ = false;
        if (id && text(id.get()) != id_) return "was emptied or replaced while in use";
    }
    return lost_ ? "lost its server (" + lost_why_ + ")" : "";
}

std::string tbl_redis::remedy() const {
    return "delete its keys on the server (redis-cli --scan --pattern '" + prefix_ +
           "*' | xargs redis-cli DEL)";
}

int tbl_redis::check_integrity(std::string *problem) {
    reply r = run("check the store", {"TYPE", key("log")});
    if (!r) return *problem = last_error_, kFail;
    const std::string type = text(r.get());
    if (type != "stream" && type != "none") {
        *problem = key("log") + " is a " + type + ", not a stream";
        return kFail;
    }
    *problem = "ok";
    return 0;
}

int tbl_redis::limit_pages(int64_t pages) {
    const int64_t cap = pages > 0 ? pages * kPageBytes : 0;
    return run("cap the memory", {"CONFIG", "SET", "maxmemory", std::to_string(cap)}) ? 0 : kFail;
}

int tbl_redis::write_ops(std::vector<op> ops, std::vector<bool> *changed) {
    if (read_only_) return fail("write", "the store is open for reading only");
    std::vector<std::string> args{prefix_, writer_};
    args.reserve(2 + 4 * ops.size());
    for (op &o : ops) {
        args.push_back(o.is_del ? "d" : "s");
        args.push_back(std::move(o.table));
        args.push_back(str(o.key));
        args.push_back(str(o.row));
    }
    reply r = script("write rows", kTblLuaWrite, {}, args);
    if (!r) return kFail;
    if (r->type != REDIS_REPLY_ARRAY || r->elements != 3)
        return fail("write rows", "unexpected reply");
    const int64_t before = number(r->element[0]), after = number(r->element[1]);
    if (before == seen_top_) seen_top_ = after;
    logged_ += int(after - before);
    const redisReply *c = r->element[2];
    if (changed)
        for (size_t i = 0; i < c->elements; i++) changed->push_back(number(c->element[i]) != 0);
    return 0;
}

int tbl_redis::write_one(op o, bool *changed) {
    if (depth_ > 0) {
        auto &held = held_[o.table];
        auto it = held.find(o.key);
        const std::optional<tbl_bytes> now =
            o.is_del ? std::nullopt : std::optional<tbl_bytes>(o.row);
        *changed = it == held.end() || it->second != now;
        if (!*changed) return 0;
        held[o.key] = now;
        ops_.push_back(std::move(o));
        return 0;
    }
    std::vector<bool> done;
    std::vector<op> one;
    one.push_back(std::move(o));
    if (write_ops(std::move(one), &done) != 0) return kFail;
    *changed = !done.empty() && done[0];
    return prune();
}

int tbl_redis::put(std::string_view table, const tbl_bytes &key, const tbl_bytes &row,
                   bool *changed) {
    *changed = false;
    if (read_only_) return fail("write row", "the store is open for reading only");
    return write_one({false, std::string(table), key, row}, changed);
}

int tbl_redis::erase(std::string_view table, const tbl_bytes &key, const tbl_bytes &key_row,
                     bool *changed) {
    *changed = false;
    if (read_only_) return fail("delete row", "the store is open for reading only");
    return write_one({true, std::string(table), key, key_row}, changed);
}

int tbl_redis::get(std::string_view table, const tbl_bytes &k, tbl_bytes *row, bool *found) {
    auto held = held_.find(std::string(table));
    if (held != held_.end()) {
        auto it = held->second.find(k);
        if (it != held->second.end()) {
            *found = it->second.has_value();
            if (*found && row) *row = *it->second;
            return 0;
        }
    }
    reply r = run("read row", {"HGET", key("rows:" + std::string(table)), str(k)});
    if (!r) return kFail;
    *found = r->type == REDIS_REPLY_STRING;
    if (*found && row) *row = bytes(r.get());
    return 0;
}

// The table's keys are read once, sorted here, and kept while the table's
// version stands: a scan page by page costs one step per page, not a read
// of the whole table. A table changed since reads its keys again, and then
// takes the rows of those keys whatever was written since (a row deleted
// meanwhile is left out, one added after the keys were read is not in this
// page), as a page read at one moment would: a table that its writers
// never leave alone is still read.
int tbl_redis::page_raw(std::string_view table, const tbl_bytes *after, int limit,
                        std::vector<tbl_row> *out) {
    const std::string t(table);
    key_list &kl = key_lists_[t];
    const size_t first = out->size();
    bool fresh = false;
    auto start = [&] {
        const tbl_bytes *last = out->size() > first ? &out->back().key : after;
        return size_t((last ? std::upper_bound(kl.keys.begin(), kl.keys.end(), *last,
                                               tbl_bytes_less())
                            : kl.keys.begin()) -
                      kl.keys.begin());
    };
    size_t at = start();
    while (int(out->size() - first) < limit) {
        const size_t want = size_t(limit) - (out->size() - first);
        const size_t to = std::min(kl.keys.size(), at + want);
        std::vector<std::string> args{key("ver:" + t), key("rows:" + t), fresh ? "*" : kl.ver};
        for (size_t k = at; k < to; k++) args.push_back(str(kl.keys[k]));
        reply r = script("read rows", kTblLuaPage, {}, args);
        if (!r) return kFail;
        if (r->elements == 2 && r->element[1]->type == REDIS_REPLY_ARRAY) {
            kl.ver = text(r->element[0]);
            kl.keys.clear();
            for (size_t i = 0; i < r->element[1]->elements; i++)
                kl.keys.push_back(bytes(r->element[1]->element[i]));
            std::sort(kl.keys.begin(), kl.keys.end(), tbl_bytes_less());
            fresh = true;
            at = start();
            continue;
        }
        for (size_t i = 0; i < r->elements && at + i < to; i++)
            if (r->element[i]->type == REDIS_REPLY_STRING)
                out->push_back({kl.keys[at + i], bytes(r->element[i])});
        at = to;
        if (at == kl.keys.size()) {
            key_lists_.erase(t);  // the scan is done
            break;
        }
    }
    return 0;
}

// Inside a transaction the rows held here stand over the server's: each
// piece of the table read from the server is merged with the held writes
// of its key range until the page is full or the table ends.
int tbl_redis::page(std::string_view table, const tbl_bytes *after, int limit,
                    std::vector<tbl_row> *out) {
    auto held_it = held_.find(std::string(table));
    if (held_it == held_.end()) return page_raw(table, after, limit, out);
    const auto &held = held_it->second;
    std::optional<tbl_bytes> from;
    if (after) from = *after;
    std::vector<tbl_row> merged;
    while (int(merged.size()) < limit) {
        std::vector<tbl_row> raw;
        if (page_raw(table, from ? &*from : nullptr, limit, &raw) != 0) return kFail;
        const bool end = int(raw.size()) < limit;
        std::vector<tbl_row> piece;
        std::set<tbl_bytes, tbl_bytes_less> in_raw;
        for (tbl_row &r : raw) {
            in_raw.insert(r.key);
            auto h = held.find(r.key);
            if (h == held.end()) piece.push_back(std::move(r));
            else if (h->second) piece.push_back({r.key, *h->second});
        }
        auto lo = from ? held.upper_bound(*from) : held.begin();
        auto hi = end ? held.end() : held.upper_bound(raw.back().key);
        for (auto h = lo; h != hi; ++h)
            if (h->second && !in_raw.count(h->first)) piece.push_back({h->first, *h->second});
        std::sort(piece.begin(), piece.end(), key_less);
        for (tbl_row &r : piece) merged.push_back(std::move(r));
        if (end) break;
        from = raw.back().key;
    }
    if (int(merged.size()) > limit) merged.resize(size_t(limit));
    for (tbl_row &r : merged) out->push_back(std::move(r));
    return 0;
}

int tbl_redis::begin() {
    depth_++;
    return 0;
}

int tbl_redis::commit() {
    if (depth_ == 0 || --depth_ > 0) return 0;
    std::vector<op> ops = std::move(ops_);
    ops_.clear();
    held_.clear();
    if (ops.empty()) return 0;
    if (write_ops(std::move(ops), nullptr) != 0) return kFail;
    return prune(), 0;
}

int tbl_redis::finish(int rv) {
    if (rv == 0) return commit();
    if (depth_ > 0 && --depth_ == 0) {
        ops_.clear();
        held_.clear();
    }
    return rv;
}

int tbl_redis::top(int64_t *seq) {
    reply r = run("read log top", {"GET", key("top")});
    *seq = r ? number(r.get()) : 0;
    return r ? 0 : kFail;
}

// An entry holds the changes numbered up to its ID, so the first entry
// whose ID is past `after` holds the next change. At most `limit` changes
// are given (the next call reads the rest of a cut entry again); entries
// are asked for a few at a time, as many as the changes still wanted by
// those seen so far, so that a log of large entries is not read whole.
int tbl_redis::changes(int64_t after, int limit, std::vector<tbl_change> *out) {
    const size_t full = out->size() + static_cast<size_t>(limit);
    std::string from = std::to_string(after + 1);
    size_t ask = std::min<size_t>(static_cast<size_t>(limit), 4), entries = 0, seen = 0;
    while (out->size() < full) {
        reply r = run("read changes", {"XRANGE", key("log"), from, "+", "COUNT",
                                       std::to_string(ask)});
        if (!r) return kFail;
        for (size_t i = 0; i < r->elements && out->size() < full; i++) {
            const redisReply *e = r->element[i];
            if (e->type != REDIS_REPLY_ARRAY || e->elements != 2) continue;
            const std::string id = text(e->element[0]);
            from = "(" + id;
            const redisReply *f = e->element[1];
            const size_t dash = id.find('-');
            if (f->type != REDIS_REPLY_ARRAY || f->elements % 2 != 0 || dash == std::string::npos)
                continue;
            // The writer is known by the number its connection drew: a pid
            // would name another host's process of the same pid as this one.
            const pid_t writer = id.compare(dash + 1, std::string::npos, writer_) == 0 ? owner_ : 0;
            const size_t n = f->elements / 2;
            entries++, seen += n;
            int64_t seq = std::strtoll(id.c_str(), nullptr, 10) - int64_t(n);
            for (size_t j = 0; j < n && out->size() < full; j++) {
                ++seq;
                const std::string field = text(f->element[2 * j]);
                const bool set = field.rfind("set:", 0) == 0;
                if (seq <= after || seq < 1 || seq > kTblSeqMax ||
                    (!set && field.rfind("del:", 0) != 0))
                    continue;
                out->push_back({seq, field.substr(4), !set, bytes(f->element[2 * j + 1]), writer});
            }
        }
        if (r->elements < ask) break;  // the end of the log
        const size_t per_entry = std::max<size_t>(1, seen / std::max<size_t>(1, entries));
        ask = (full - out->size()) / per_entry + 1;
    }
    return 0;
}

int tbl_redis::join(int64_t *seq) {
    reply r = script("join readers", kTblLuaJoin, {}, {prefix_, reader_id_, std::to_string(lease_ms_)});
    *seq = r ? number(r.get()) : 0;
    if (r) joined_ = true, leased_at_ = now_ms(), recorded_ = *seq;
    return r ? 0 : kFail;
}

int tbl_redis::join_at(int64_t seq) { return record(seq); }

int tbl_redis::record(int64_t seq) {
    if (!script("record reader", kTblLuaRecord, {},
                {prefix_, reader_id_, std::to_string(lease_ms_), std::to_string(seq)}))
        return kFail;
    joined_ = true;
    leased_at_ = now_ms();
    recorded_ = seq;
    return 0;
}

int tbl_redis::leave() {
    joined_ = false;
    return script("leave readers", kTblLuaLeave, {}, {prefix_, reader_id_}) ? 0 : kFail;
}

// A reader that polls without reading anything new still holds its lease:
// its place is written again with the lease, with SET alone, which a user
// that may write its lease but read nothing of it is allowed (PEXPIRE is
// not).
void tbl_redis::keep_lease() {
    if (!joined_ || lost_ || now_ms() - leased_at_ < lease_ms_ / 4) return;
    quiet_ = true;
    if (script("renew reader lease", kTblLuaRecord, {},
               {prefix_, reader_id_, std::to_string(lease_ms_), std::to_string(recorded_)}))
        leased_at_ = now_ms();
    quiet_ = false;
}

// A reader that died without leaving would hold the log forever. One of
// this place whose pid is not alive is dropped at once; any other is dropped
// when its lease runs out, so a writer never drops a live reader of another
// host or container. A reader dropped finds the gap and reads afresh when
// it reads on.
int tbl_redis::prune() {
    if (logged_ < kPruneEvery) return 0;
    logged_ = 0;
    if (read_only_) return 0;
    reply ids = run("read readers", {"HKEYS", key("readers")});
    if (!ids) return kFail;
    std::vector<std::string> args{prefix_, std::to_string(log_cap_)};
    const std::string here = "@" + place_;
    for (size_t i = 0; i < ids->elements; i++) {
        const std::string id = text(ids->element[i]);
        const size_t at = id.find('@');
        if (at == std::string::npos || id.compare(at, std::string::npos, here) != 0) continue;
        const pid_t pid = pid_t(std::strtol(id.c_str(), nullptr, 10));
        if (pid > 0 && kill(pid, 0) != 0 && errno == ESRCH) args.push_back(id);
    }
    return script("prune changes", kTblLuaPrune, {}, args) ? 0 : kFail;
}

// The changes the log holds: its numbers run without a gap from the first
// change of its oldest entry to the ID of its newest.
int tbl_redis::log_size(int64_t *n) {
    *n = 0;
    reply first = run("count changes", {"XRANGE", key("log"), "-", "+", "COUNT", "1"});
    reply last = first ? run("count changes", {"XREVRANGE", key("log"), "+", "-", "COUNT", "1"})
                       : reply();
    if (!first || !last) return kFail;
    // An entry's ID and its count of changes, when the range held one.
    auto entry = [](const redisReply *r, int64_t *id, int64_t *count) {
        if (r->elements != 1 || r->element[0]->elements != 2) return false;
        *id = std::strtoll(text(r->element[0]->element[0]).c_str(), nullptr, 10);
        *count = int64_t(r->element[0]->element[1]->elements / 2);
        return true;
    };
    int64_t oldest = 0, oldest_count = 0, newest = 0, newest_count = 0;
    if (entry(first.get(), &oldest, &oldest_count) && entry(last.get(), &newest, &newest_count))
        *n = newest - (oldest - oldest_count);
    return 0;
}

int tbl_redis::count(std::string_view table, int64_t *n) {
    reply r = run("count rows", {"HLEN", key("rows:" + std::string(table))});
    *n = r ? number(r.get()) : 0;
    return r ? 0 : kFail;
}

bool tbl_redis::data_changed() {
    keep_lease();
    int64_t now = 0;
    if (top(&now) != 0) return true;
    const bool moved = now != seen_top_;
    seen_top_ = now;
    return moved;
}

// MULTI/EXEC runs the reads as one step: no write comes between them.
int tbl_redis::snapshot(const std::vector<std::string> &tables,
                        std::vector<std::vector<tbl_row>> *out, int64_t *top_seq) {
    out->assign(tables.size(), {});
    if (!run("begin read", {"MULTI"})) return kFail;
    bool queued = run("read log top", {"GET", key("top")}) != nullptr;
    for (size_t i = 0; i < tables.size() && queued; i++)
        queued = run("read rows", {"HGETALL", key("rows:" + tables[i])}) != nullptr;
    if (!queued) {
        run("end read", {"DISCARD"});
        return kFail;
    }
    reply r = run("read tables", {"EXEC"});
    if (!r || r->type != REDIS_REPLY_ARRAY || r->elements != tables.size() + 1)
        return r ? fail("read tables", "unexpected reply") : kFail;
    *top_seq = number(r->element[0]);
    for (size_t i = 0; i < tables.size(); i++) {
        const redisReply *h = r->element[i + 1];
        auto &rows = (*out)[i];
        for (size_t j = 0; j + 1 < h->elements; j += 2)
            rows.push_back({bytes(h->element[j]), bytes(h->element[j + 1])});
        std::sort(rows.begin(), rows.end(), key_less);
    }
    return 0;
}
