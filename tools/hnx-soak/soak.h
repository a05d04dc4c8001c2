// hnx-soak: the daemon driven through its table store with random requests,
// killed at random moments, restarted, settled and checked, again and again.
#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <random>
#include <string>
#include <vector>

#include <sys/types.h>

#include "check/l3mac_check.h"

struct soak_opts {
    std::string bin;              // folder of the daemon and the checker
    std::string root;             // file root; a fresh temporary one when empty
    std::string board = "two";    // built-in board profile
    bool keep = false;            // keep the root at the end
    int seconds = 40;             // the run stops after this time ...
    int restarts = 1000000;       // ... or after this many restarts
    uint32_t seed = 1;
    int macs = 16;                // MAC addresses in play
    int keys = 300;               // most requests standing at once
    int burst = 120;              // most requests written between two kills
    int unit_ms = 5;              // timer unit of the daemon
};

struct soak_figures {
    int restarts = 0;
    int kills_starting = 0;       // of them, before the daemon answered
    int checks = 0;
    uint64_t requests = 0;        // rows written or deleted
    int violations = 0;
    int entries_kept = 0;         // entries checked for their index
    int entries_moved = 0;        // of them, found at another index
    int entries_renewed = 0;      // moved by design: MACs with a phyid
    int unserved = 0;             // unserved MACs over all checks
    uint32_t fill[2] = {};        // at the last check
};

// --- daemon.cc --------------------------------------------------------------

// Starts the daemon under the root; its output is appended to
// <root>/daemon.log.
pid_t soak_daemon_start(const soak_opts &o);
// SIGKILL and reap; pid becomes 0.
void soak_daemon_kill(pid_t &pid);
// SIGTERM and reap, bounded; then SIGKILL.
void soak_daemon_stop(pid_t &pid);
// True once the daemon answers a debug command, which it does only after
// data smoothing; false when it died or `limit` passed.
bool soak_daemon_ready(pid_t pid, std::chrono::milliseconds limit);
// Runs hnx-l3mac-check --restarted on the root; its output lines and status.
int soak_run_checker(const soak_opts &o, std::vector<std::string> *lines);

// --- traffic.cc -------------------------------------------------------------

// The requests that the soak has written, and the writer of new ones.
class soak_traffic {
public:
    soak_traffic(const soak_opts &o, std::mt19937 &rng);
    // Writes `n` random adds, updates and deletes into the input table.
    void burst(int n, soak_figures *f);
    // Most requests to stand at once from now on: a high bound fills the
    // TCAMs, a low one drains them again.
    void set_bound(int keys) { bound_ = keys; }

private:
    struct request {
        uint32_t user;
        uint32_t mac_type;
        int mac;
        uint32_t evlan;
        uint32_t phyid;
    };
    void add(soak_figures *f);
    void update(soak_figures *f);
    void remove(soak_figures *f);
    void write(const std::string &uuid, const request &r);
    request random_request();

    const soak_opts &o_;
    std::mt19937 &rng_;
    std::map<std::string, request> standing_;
    uint64_t next_uuid_ = 0;
    int bound_;
};

// Creates the input table in this process's table service.
void soak_tables_open();

// --- places.cc --------------------------------------------------------------

// Entries that stood whole in both tables (output row and backup row at the
// same index), with their output key {hw_id, phase}.
using soak_places = std::map<l3mac_entry_key, std::pair<uint32_t, uint32_t>>;

soak_places soak_whole_entries(const l3mac_check_board &b);
// Waits until the output and backup tables stop changing; false at `limit`.
bool soak_settle(std::chrono::milliseconds limit);
// Entries of `before` that stand in the output table now: each must stand
// at its old place. Counts into `f`, and reports moves.
void soak_compare_places(const soak_places &before, const soak_places &now, soak_figures *f,
                         std::vector<std::string> *moved);

// --- board.cc ---------------------------------------------------------------

// The capability file's text of a built-in board; empty for an unknown name.
std::string soak_board_json(const std::string &name);
// The names of the built-in boards, for an error line: "two, copy, direct, one".
std::string soak_board_names();
