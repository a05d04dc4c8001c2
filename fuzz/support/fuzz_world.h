// The service under a fuzz target: one file root for the whole fuzzing
// process, and for each input a fresh table store and a fresh service, so
// that inputs do not see each other. Aborts (a finding) when the in-process
// consistency check fails.
#pragma once

#include <cstdint>
#include <string>

#include <fuzzer/FuzzedDataProvider.h>

#include "diag/l3mac_check.h"
#include "s_route.pb-c.h"

// The file root, made at first use (in /dev/shm where it exists) and
// removed when the process ends.
const std::string &fuzz_root();

// Boards with small TCAMs, so that inputs reach the full TCAM too; the
// profile's text of board `n` (any number: taken modulo the count).
std::string fuzz_board_json(unsigned n);
unsigned fuzz_board_count();

// Drops the store and the service of the last input, writes the profile
// (no file when `json` is empty) and brings a service up: tables, connect
// callback, and data smoothing when `smooth`.
void fuzz_world_start(const std::string &json, bool smooth = true);

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
struct fuzz_row {
    SRoute__ResSubKey key = S_ROUTE__RES_SUB_KEY__INIT;
    SRoute__L3macAttr attr = S_ROUTE__L3MAC_ATTR__INIT;
    PLibpub__Mac mac = P_LIBPUB__MAC__INIT;
    SRoute__L3macRes res = S_ROUTE__L3MAC_RES__INIT;
    uint8_t mac_bytes[6] = {0x02, 0, 0, 0, 0, 0};
    char uuid[8] = {};

    explicit fuzz_row(FuzzedDataProvider &in);
    fuzz_row(const fuzz_row &) = delete;
};

// A number near the edges of the VLAN and VFI spaces, or a small one.
uint32_t fuzz_evlan(FuzzedDataProvider &in);
