// The service under a fuzz target: one file root for the whole fuzzing
// process, its table store in the process's memory, and for each input an
// empty store and a service started afresh, so that inputs do not see each
// other: a check after each reset proves that nothing of the last input is
// left. Aborts (a finding) when that check or the in-process consistency
// check fails.
#pragma once

#include <cstdint>
#include <string>

#include <fuzzer/FuzzedDataProvider.h>

#include "check/l3mac_check.h"
#include "tests/support/service_world.h"

// The file root, made at first use (in /dev/shm where it exists) and
// removed when the process ends.
const std::string &fuzz_root();

// Boards with small TCAMs, so that inputs reach the full TCAM too; the
// profile's text of board `n` (any number: taken modulo the count).
std::string fuzz_board_json(unsigned n);

// Drops the store and the service of the last input, checks that nothing of
// it is left (fuzz_world_check_reset), gives the host the profile (none
// when `json` is empty) and brings a service up: tables, connect callback,
// and data smoothing when `smooth`.
void fuzz_world_start(const std::string &json, bool smooth = true);

// Aborts unless the service stands as a fresh process has it: no record in
// any keyed store, no pool and no index held, the store's tables empty, no
// runtime and so no timer, no handle on the event loop that the host keeps
// for the next start, no debug command registered, every counter and
// setting at its start value.
void fuzz_world_check_reset(const char *when);

// Whether the table service keeps its journal of this process's writes
// from the next start on (hnx_host_tbl_journal); off unless a target reads
// it, since packing a copy of every write costs time.
void fuzz_world_journal(bool keep);

// The process dies and starts again over the same store and profile:
// every record released, tables, stores and pools made anew, smoothing run.
void fuzz_world_restart();

// The in-process check; prints the report and aborts when it fails.
void fuzz_world_check(const l3mac_check_live_opts &opts, const char *when);

// The rules of the tables after a restart; aborts when they fail.
void fuzz_world_check_tables(const char *when);

// A row of s_route.l3mac_res drawn from the input: small ranges around the
// values that the checks and the cover treat specially, so that most rows
// are requests that the service acts on.
struct fuzz_row : l3mac_res_parts {
    char uuid[8] = {};
    explicit fuzz_row(FuzzedDataProvider &in);
};

// A number near the edges of the VLAN and VFI spaces, or a small one.
uint32_t fuzz_evlan(FuzzedDataProvider &in);
