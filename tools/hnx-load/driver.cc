// Runs a workload: writes its requests as users do, follows the output
// tables until every request has reached its row, gathers the figures, and
// takes its rows back. Only a daemon that answers is loaded, and no row of
// another writer is taken over.
#include <algorithm>
#include <set>
#include <thread>

#include <sys/resource.h>

#include "load.h"
#include "platform/host/hnx_host.h"
#include "platform/host/tbl_scan.h"
#include "platform/host/tbl_state.h"
#include "platform/ss_rt_tbl.h"
#include "rows.h"
#include "s_route.pb-c.h"
#include "track.h"

namespace {

constexpr int kStore = 16;
using secs = std::chrono::duration<double>;

struct run_state {
    ss_rt_tbl *res = nullptr;
    load_track track;
    load_clock::time_point first{}, last_commit{};
    size_t written = 0;
    load_rows rows;
};

constexpr int kStopped = 3;  // a signal ended the run

int write_one(ss_rt_tbl *t, const load_req &r) {
    SRoute__L3macRes row = S_ROUTE__L3MAC_RES__INIT;
    SRoute__ResSubKey key = S_ROUTE__RES_SUB_KEY__INIT;
    SRoute__L3macAttr attr = S_ROUTE__L3MAC_ATTR__INIT;
    PLibpub__Mac mac = P_LIBPUB__MAC__INIT;
    key.t_user = r.user;
    key.uuid = const_cast<char *>(r.uuid.c_str());
    row.index = &key;
    if (r.del) return ss_rt_tbl_del_str(t, &row.base, 0, 0);
    mac.data.len = 6;
    mac.data.data = const_cast<uint8_t *>(r.mac);
    attr.evlan = r.vlan;
    attr.mac_type = SRoute__L3macTypeE(r.mac_type);
    attr.mac = &mac;
    row.status = S_ROUTE__L3TABLE_STATUS_E__STATUS_REQUEST;
    row.attr = &attr;
    return ss_rt_tbl_add_str(t, &row.base, 0, 0);
}

// One transaction per batch; a request counts as written at its commit.
int write_batch(run_state &s, const std::vector<load_req> &reqs, size_t from, size_t to, bool track) {
    tbl_store *st = tbl_store_of(kStore);
    if (!st || st->begin() != 0) return -11;
    int rv = 0;
    for (size_t i = from; i < to && rv == 0; i++) rv = write_one(s.res, reqs[i]);
    if ((rv = st->finish(rv)) != 0) return rv;
    s.last_commit = load_clock::now();
    s.written += to - from;
    for (size_t i = from; i < to; i++) s.rows.committed(reqs[i]);
    for (size_t i = from; i < to && track; i++) {
        s.track.forget(reqs[i]);
        if (!reqs[i].del) s.track.expect(reqs[i], s.last_commit);
    }
    hnx_host_tbl_poll();
    return 0;
}

// Writes at `rate` per second (0: as fast as the store takes them).
int write_all(run_state &s, const std::vector<load_req> &reqs, const load_opts &o, double rate,
              bool track) {
    s.first = load_clock::now();
    size_t batch = size_t(std::max(1, o.batch));
    for (size_t at = 0; at < reqs.size();) {
        if (load_stopped()) return kStopped;
        if (rate > 0) {
            auto due = s.first + secs(double(at) / rate);
            while (load_clock::now() < due && !load_stopped()) {
                hnx_host_tbl_poll();
                std::this_thread::sleep_for(std::chrono::microseconds(200));
            }
        }
        size_t to = std::min(reqs.size(), at + (rate > 0 ? std::min<size_t>(batch, 1 + size_t(rate / 1000)) : batch));
        if (int rv = write_batch(s, reqs, at, to, track)) return rv;
        at = to;
    }
    return 0;
}

// Delivers output rows until every request has its row or `limit` passed.
void settle(run_state &s, double limit) {
    auto deadline = load_clock::now() + secs(limit);
    while (s.track.pending_count > 0 && load_clock::now() < deadline && !load_stopped()) {
        if (hnx_host_tbl_poll() == 0) std::this_thread::sleep_for(std::chrono::microseconds(100));
    }
}

// Keeps delivering for `d` seconds, for the changes that follow an end.
void drain(double d) {
    auto until = load_clock::now() + secs(d);
    while (load_clock::now() < until && !load_stopped()) {
        hnx_host_tbl_poll();
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}

double pct(std::vector<double> v, double p) {
    if (v.empty()) return 0;
    std::sort(v.begin(), v.end());
    return v[std::min(v.size() - 1, size_t(p * double(v.size() - 1) + 0.5))];
}

long count_rows(const char *table) {
    long n = 0;
    tbl_scan_rows(kStore, table, [&](const tbl_row &) { n++; });
    return n;
}

std::vector<tbl_row> rows_of(const char *table) {
    std::vector<tbl_row> out;
    tbl_scan_rows(kStore, table, [&](const tbl_row &r) { out.push_back(r); });
    return out;
}

// Entries of `before` that do not stand unchanged at their index in `after`.
long moved(const std::vector<tbl_row> &before, const std::vector<tbl_row> &after) {
    auto text = [](const tbl_bytes &b) { return std::string(b.begin(), b.end()); };
    std::map<std::string, const tbl_bytes *> now;
    for (const tbl_row &r : after) now[text(r.key)] = &r.val;
    long n = 0;
    for (const tbl_row &r : before) {
        auto it = now.find(text(r.key));
        if (it == now.end() || *it->second != r.val) n++;
    }
    return n + long(after.size() > before.size() ? after.size() - before.size() : 0);
}

// {mac_type, MAC, VLAN} wanted by the requests that stand after `reqs`.
size_t distinct_wanted(const std::vector<load_req> &reqs) {
    std::map<std::pair<uint32_t, std::string>, const load_req *> live;
    for (const load_req &r : reqs) {
        if (r.del) live.erase({r.user, r.uuid});
        else live[{r.user, r.uuid}] = &r;
    }
    std::set<std::tuple<uint32_t, std::string, uint32_t>> wanted;
    for (auto &[k, r] : live)
        wanted.insert({r->mac_type, std::string(reinterpret_cast<const char *>(r->mac), 6), r->vlan});
    return wanted.size();
}

void add_load_figures(load_figures *f, const run_state &s, size_t n) {
    double write_s = secs(s.last_commit - s.first).count();
    f->add("requests", double(n));
    f->add("write_rate_per_s", write_s > 0 ? double(n) / write_s : 0);
    double done_ms = 0;
    if (s.track.last_resolved > s.last_commit)
        done_ms = std::chrono::duration<double, std::milli>(s.track.last_resolved - s.last_commit).count();
    f->add("complete_after_last_commit_ms", done_ms);
    double total_s = write_s + done_ms / 1000;
    f->add("end_to_end_per_s", total_s > 0 ? double(n) / total_s : 0);
    f->add("latency_p50_ms", pct(s.track.latency_ms, 0.5));
    f->add("latency_p99_ms", pct(s.track.latency_ms, 0.99));
    f->add("latency_max_ms", pct(s.track.latency_ms, 1.0));
    f->add("unresolved", double(s.track.pending_count));
}

void add_table_figures(load_figures *f, const run_state &s, const std::vector<load_req> &all) {
    for (const char *t : {"s_route.l3mac_hw_res", "s_route.l3mac_bak", "s_route.l3mac_vrrp_hw_res"}) {
        auto si = s.track.sets.find(t);
        auto di = s.track.dels.find(t);
        std::string name = std::string(t).substr(8);
        f->add(name + "_sets", si == s.track.sets.end() ? 0 : double(si->second));
        f->add(name + "_dels", di == s.track.dels.end() ? 0 : double(di->second));
    }
    f->add("tcam_entries", double(count_rows("s_route.l3mac_hw_res")));
    f->add("vrrp_hw_rows", double(count_rows("s_route.l3mac_vrrp_hw_res")));
    f->add("mac_vlan_pairs", double(distinct_wanted(all)));
}

double own_cpu_s() {
    rusage u{};
    getrusage(RUSAGE_SELF, &u);
    auto s = [](const timeval &t) { return double(t.tv_sec) + double(t.tv_usec) / 1e6; };
    return s(u.ru_utime) + s(u.ru_stime);
}

// On a machine shared with other work, wall time says more about the
// others than about the service: the CPU both sides spent per request is
// the rate a core of their own would reach.
void add_proc_figures(load_figures *f, pid_t pid, const load_proc_stats &before, double tool_cpu,
                      size_t n) {
    load_proc_stats now;
    f->add("writer_cpu_s", tool_cpu);
    if (pid <= 0 || !load_proc_read(pid, &now)) return;
    double daemon = now.cpu_secs - before.cpu_secs;
    f->add("daemon_cpu_s", daemon);
    f->add("daemon_peak_rss_mb", now.peak_rss_mb);
    f->add("per_cpu_s_requests", tool_cpu + daemon > 0 ? double(n) / (tool_cpu + daemon) : 0);
}

void add_idle_figure(load_figures *f, pid_t pid, double idle) {
    load_proc_stats a, b;
    if (idle <= 0 || pid <= 0 || !load_proc_read(pid, &a)) return;
    drain(idle);
    if (!load_proc_read(pid, &b)) return;
    f->add("idle_cpu_ms_per_s", (b.cpu_secs - a.cpu_secs) * 1000 / idle);
}

pid_t start_fresh(const load_opts &o, int *smoothed) {
    pid_t pid = load_daemon_start(o);
    if (pid > 0 && load_wait_smoothed(o, ++*smoothed, o.settle_limit)) return pid;
    std::fprintf(stderr, "hnx-load: the daemon %s did not come up\n", o.daemon.c_str());
    load_daemon_kill(pid);
    return -1;
}

int open_tables(run_state &s) {
    SRoute__L3macRes row = S_ROUTE__L3MAC_RES__INIT;
    SRoute__ResSubKey key = S_ROUTE__RES_SUB_KEY__INIT;
    s.res = ss_rt_tbl_create_detail(kStore, 1, &row.base, 0, 12, &key.base, 0, 0);
    if (!s.res || load_track_start(&s.track) != 0) {
        std::fprintf(stderr, "hnx-load: cannot open the tables of store %d\n", kStore);
        return 2;
    }
    return 0;
}

// Loads `reqs` (and `ops` after them at o.rate for churn) and measures.
int measure(run_state &s, const load_opts &o, pid_t pid, const std::vector<load_req> &reqs,
            const std::vector<load_req> &ops, load_figures *f) {
    load_proc_stats before;
    if (pid > 0) load_proc_read(pid, &before);
    double cpu0 = own_cpu_s();
    if (int rv = write_all(s, reqs, o, 0, ops.empty())) return rv == kStopped ? rv : 2;
    settle(s, o.settle_limit);
    if (!ops.empty()) {
        s.track = load_track{};
        load_track_start(&s.track);
        if (int rv = write_all(s, ops, o, o.rate, true)) return rv == kStopped ? rv : 2;
        settle(s, o.settle_limit);
    }
    drain(0.05);
    if (load_stopped()) return kStopped;
    const std::vector<load_req> &timed = ops.empty() ? reqs : ops;
    add_load_figures(f, s, timed.size());
    std::vector<load_req> all = reqs;
    all.insert(all.end(), ops.begin(), ops.end());
    add_table_figures(f, s, all);
    add_proc_figures(f, pid, before, own_cpu_s() - cpu0, timed.size());
    add_idle_figure(f, pid, o.idle);
    return 0;
}

// Kills the loaded daemon, starts it again, and counts what the hardware
// side sees until smoothing has ended and one more decision tick passed.
int restart(run_state &s, const load_opts &o, pid_t *pid, int *smoothed, load_figures *f) {
    std::vector<tbl_row> before = rows_of("s_route.l3mac_hw_res");
    load_daemon_kill(*pid);
    s.track.clear_counts();
    auto t0 = load_clock::now();
    *pid = load_daemon_start(o);
    bool ok = *pid > 0 && load_wait_smoothed(o, ++*smoothed, o.settle_limit);
    double smooth_ms = std::chrono::duration<double, std::milli>(load_clock::now() - t0).count();
    drain(0.5);
    std::vector<tbl_row> after = rows_of("s_route.l3mac_hw_res");
    f->add("restart_smoothing_end_ms", ok ? smooth_ms : -1);
    f->add("restart_hw_changes", double(s.track.changes()));
    f->add("restart_entries_moved", double(moved(before, after)));
    load_proc_stats st;
    if (*pid > 0 && load_proc_read(*pid, &st)) f->add("restart_daemon_cpu_s", st.cpu_secs);
    return ok ? 0 : 2;
}

long output_rows() {
    return count_rows("s_route.l3mac_hw_res") + count_rows("s_route.l3mac_vrrp_hw_res");
}

// Before anything is written: without --daemon a daemon must answer under
// the root (a store without one would only fill up); with it, none may run
// there yet (a second start would be refused).
int check_daemon(const load_opts &o, pid_t *pid) {
    const std::string root = hnx_host_root().empty() ? "/" : hnx_host_root();
    std::string why;
    const bool up = load_daemon_answers(o, pid, &why);
    if (o.daemon.empty() && !up) {
        std::fprintf(stderr, "hnx-load: no daemon answers under the root %s (%s): start "
                             "hnx-l3table-l3mac there first, or give --daemon to have hnx-load "
                             "start one\n", root.c_str(), why.c_str());
        return 2;
    }
    if (!o.daemon.empty() && *pid >= 0) {
        std::fprintf(stderr, "hnx-load: a daemon (pid %ld) already runs under the root %s: leave "
                             "out --daemon to load it, or give another root\n",
                     long(*pid), root.c_str());
        return 2;
    }
    return 0;
}

// Another writer's rows are never overwritten, and so never deleted at
// the end either.
int check_keys(const std::vector<load_req> &reqs, const std::vector<load_req> &ops) {
    std::vector<load_req> all = reqs;
    all.insert(all.end(), ops.begin(), ops.end());
    const std::vector<load_key> taken = load_rows_taken(all);
    if (taken.empty()) return 0;
    std::fprintf(stderr, "hnx-load: s_route.l3mac_res already holds %zu rows with keys of this "
                         "workload (user %u uuid %s, ...), left by an earlier run with --keep or "
                         "written by another user: delete them, or give another root\n",
                 taken.size(), taken[0].first, taken[0].second.c_str());
    return 2;
}

// Deletes the rows the run wrote, unless kept, and follows the output
// tables until the daemon has taken back what it made of them (at most
// `limit`: a daemon that serves other users may change them meanwhile).
int end_rows(run_state &s, const load_opts &o, long baseline) {
    if (s.rows.live.empty()) return 0;
    if (o.keep) {
        std::fprintf(stderr, "hnx-load: %zu request rows kept in s_route.l3mac_res (--keep)\n",
                     s.rows.live.size());
        return 0;
    }
    const size_t n = s.rows.live.size();
    if (load_rows_remove(s.res, &s.rows, o.batch) != 0) {
        std::fprintf(stderr, "hnx-load: %zu of the %zu request rows written could not be "
                             "deleted from s_route.l3mac_res: delete them by hand (hnx-tbl del)\n",
                     s.rows.live.size(), n);
        return 2;
    }
    auto deadline = load_clock::now() + secs(o.settle_limit);
    while (output_rows() > baseline && load_clock::now() < deadline) {
        hnx_host_tbl_poll();
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    std::fprintf(stderr, "hnx-load: the %zu request rows written are deleted%s\n", n,
                 output_rows() > baseline ? "; the daemon has not yet taken back all its entries"
                                          : "");
    return 0;
}

}  // namespace

int load_run(const load_opts &o, load_figures *f) {
    pid_t pid = -1;
    if (int rv = check_daemon(o, &pid)) return rv;
    run_state s;
    if (int rv = open_tables(s)) return rv;
    int smoothed = 0;
    if (!o.daemon.empty() && (pid = start_fresh(o, &smoothed)) <= 0) return 2;
    std::vector<load_req> reqs, ops;
    if (o.workload == "churn") ops = load_churn_ops(o, &reqs);
    else reqs = load_make(o.workload == "restart" ? o.base : o.workload, o);
    int rv = check_keys(reqs, ops);
    const long baseline = output_rows();
    if (rv == 0) rv = measure(s, o, pid, reqs, ops, f);
    if (rv == 0 && o.workload == "restart") rv = restart(s, o, &pid, &smoothed, f);
    if (load_stopped()) rv = 128 + load_stopped();
    const int end = end_rows(s, o, baseline);
    if (!o.daemon.empty()) load_daemon_kill(pid);
    return rv != 0 ? rv : end;
}
