// hnx-load: drives a running daemon through the table store as its users
// would and measures it. The records shared by the tool's files.
#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include <sys/types.h>

using load_clock = std::chrono::steady_clock;

// One request row of s_route.l3mac_res.
struct load_req {
    uint32_t user = 0;
    std::string uuid;
    uint8_t mac[6] = {};
    uint32_t vlan = 0;      // a VLAN, or a VFI number for L3MAC_OL
    uint32_t mac_type = 0;
    bool del = false;       // a delete of the row with this key
};

struct load_opts {
    std::string root;
    bool has_root = false;
    std::string workload;
    std::string base = "l3intf";   // restart: what is loaded first
    std::string daemon;            // start this daemon program ("" : use a running one)
    std::string cap;               // capability profile installed before the start
    bool json = false;
    bool keep = false;             // leave the request rows written in the store
    int batch = 64;                // rows per transaction
    double rate = 20000;           // churn: operations per second
    double secs = 5;               // churn: length
    int requests = 100000;         // scale
    int macs = 1000;               // scale, churn
    double idle = 0;               // seconds of idle measured after the load
    double settle_limit = 10;      // longest wait for the output, seconds
    unsigned seed = 1;
};

// Figures in print order.
struct load_figures {
    std::vector<std::pair<std::string, double>> items;
    void add(const std::string &name, double v) { items.emplace_back(name, v); }
};

// workloads.cc: the request rows of a workload, in write order.
std::vector<load_req> load_make(const std::string &workload, const load_opts &o);
// The churn operations of one run, in write order, from a preloaded set.
std::vector<load_req> load_churn_ops(const load_opts &o, std::vector<load_req> *preload);

// daemon.cc: the daemon under the tool's control, and its use of the host.
struct load_proc_stats {
    double cpu_secs = 0;
    double peak_rss_mb = 0;
    double rss_mb = 0;
};
pid_t load_daemon_start(const load_opts &o);
void load_daemon_kill(pid_t pid);
// The instance lock file under the root.
std::string load_lock_path();
// The pid of the daemon that holds the instance lock (0 when it lies in
// another pid namespace), or -1 when none holds it.
pid_t load_daemon_pid(const load_opts &o);
// True when a daemon holds the lock (its pid in *pid) and answers on its
// command socket; otherwise *why says what is missing.
bool load_daemon_answers(const load_opts &o, pid_t *pid, std::string *why);
bool load_proc_read(pid_t pid, load_proc_stats *out);
// Waits until the daemon's error output holds its n-th line saying that
// data smoothing ended on the VRRP output table. False after `limit`.
bool load_wait_smoothed(const load_opts &o, int n, double limit);

// main.cc: SIGINT and SIGTERM end a run early, through its clean-up: the
// signal taken (0 while none came).
int load_stopped();

// driver.cc: writes requests and follows the output tables.
int load_run(const load_opts &o, load_figures *fig);

// report.cc
void load_print(const load_figures &fig, const std::string &workload, bool json);
