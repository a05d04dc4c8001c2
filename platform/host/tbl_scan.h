// Reading whole tables and single rows of the stores.
#pragma once

#include <functional>
#include <string_view>

#include "platform/host/tbl_state.h"

// The exit status of a process whose table service cannot keep its word
// (a scan during data smoothing that could not read its table): a
// temporary failure, for the supervisor to start it again.
constexpr int kTblExitStore = 75;

// Hands every row of table `name` in store `db` to `fn`, in key order, a
// page at a time, so that `fn` may write to the store. 0 or -11.
int tbl_scan_rows(int db, std::string_view name, const std::function<void(const tbl_row &)> &fn);

// The stored row with the key of `row`, packed. 0 (with *found) or a code.
int tbl_find(ss_rt_tbl *tbl, const ProtobufCMessage *row, tbl_bytes *out, bool *found);
