// Seams of the host platform for the project's tools and tests. The service
// never includes this file: it sees only the declarations in platform/.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <uv.h>

#include "platform/kw_runtime.h"

// --- runtime (runtime.cc) ---------------------------------------------------

// The libuv loop behind a runtime record.
uv_loop_t *hnx_host_loop(kw_global *global);

// The runtime record made last by kw_global_init, for components whose
// calls carry no handle; null before the first and after its finish.
kw_global *hnx_host_global();

// In-process mode, for harnesses that start a service again and again in
// one process and drive it by direct calls: a module's debug commands run
// through ssat_run_line only, with no socket and no lock file, and the
// event loop of a finished runtime is kept, with no handle left on it, for
// the next kw_global_init. Off (the default) gives a daemon's runtime.
void hnx_host_set_in_process(bool on);
bool hnx_host_in_process();

// Handles on the kept loop of in-process mode: 0 when nothing of the last
// runtime is left on it.
size_t hnx_host_kept_handles();

// The file root: HNX_ROOT from the environment unless a test set another.
// "" means the real paths.
void hnx_host_set_root(const std::string &root);
const std::string &hnx_host_root();

// <root> followed by an absolute path ("/var/run/hnx/16.db").
std::string hnx_host_path(std::string_view abs_path);

// Replaces the monotonic clock (tests); null gives the real clock back.
void hnx_host_set_clock(int (*now)(kw_timeval *tv));

// --- capability profile (cap.cc) -------------------------------------------

// Gives the board's profile as text in memory, for the harnesses of
// hnx_host_set_in_process: the start check and the capability service read
// it and open no file. nullopt: no profile, as a missing file.
void hnx_host_set_profile(std::optional<std::string> text);
// <root>/etc/hnx/capability.json is read again from now on.
void hnx_host_profile_from_file();

// --- index pools (pool.cc) -------------------------------------------------

// Frees every pool, for harnesses that start the service again in one
// process: the handles that the service held go with them.
void hnx_host_pool_reset();

// How many pools stand, and how many indexes they hold together.
size_t hnx_host_pool_count();
uint64_t hnx_host_pool_held();

// --- table service (tbl_*.cc) -----------------------------------------------

// Every tool's first call: takes `--store URL` (or `--store=URL`) out of
// argv, wherever it stands, and sets HNX_STORE to it, so that the tool
// works on the store the daemon uses (see tbl_where.h for the URLs). A
// missing or bad URL, there or in HNX_STORE, or "memory" (a store that no
// other process sees), ends the tool with status 2 after one line on
// standard error.
void hnx_host_store_arg(int *argc, char **argv);

// One write of this process, as the table service received it.
struct hnx_tbl_write {
    std::string table;         // the row message's full name, "s_route.l3mac_hw_res"
    bool is_add;               // add_str (true) or del_str (false)
    std::vector<uint8_t> row;  // the row, packed
};

// Forgets every table, subscription, smoothing state and the journal, and
// closes the stores, so that a test can start again under a new root.
void hnx_host_tbl_reset();

// Writes of this process since the last clear, in call order. Kept only
// from the first hnx_host_tbl_reset() on, so that a process that never
// resets (the daemon, the tools) does not hold every write of its life.
const std::vector<hnx_tbl_write> &hnx_host_tbl_journal();
void hnx_host_tbl_journal_clear();
// Stops (false) or starts the journal; a fuzz target that resets the
// service for every input reads the tables instead, and packing a copy of
// each write cost it a twentieth of its time.
void hnx_host_tbl_keep_journal(bool keep);

// The rows that stand in a table of store 16, packed, in key order.
std::vector<std::vector<uint8_t>> hnx_host_tbl_rows(std::string_view table);

// Delivers the changes of other processes that wait for the subscribers,
// now, on the calling thread. Returns how many were delivered.
int hnx_host_tbl_poll();
