// Writes that a store refused for now (another process holds its write
// lock, the disk is full), kept in write order and written again from the
// loop without a restart, and the rest of what waits for a store: joining
// its change log and reading subscribed tables afresh.
//
// The event loop's process never waits for a busy store longer than
// kTblLoopBusyMs: a write that finds the store locked is kept instead, and
// every later write of that store joins it, so that none overtakes another.
// A timer retries, backing off from 10 ms to 1 s.
#pragma once

#include <cstddef>
#include <string>

#include "platform/host/tbl_state.h"

constexpr int kTblLoopBusyMs = 50;

// Writes a row (or erases it, op.row then being the key row) through this
// turn's transaction, or keeps it. 0 when it stands in the store or in the
// turn's open transaction; -11 when it was kept for a retry. A process
// without a loop writes at once and gets the failure, as before.
int tbl_write(tbl_write_op op);

// The turn transaction of `db` failed to commit: its writes are kept, ahead
// of any kept since.
void tbl_keep_turn(int db, const std::string &why);

// Does what waits for the stores: joins and fresh reads of subscribed
// tables, then the kept writes, and lets data smoothing start if it waited.
// The retry timer calls it; so may a test. Returns how many of these still
// wait; the timer is armed again, backed off, while any does.
int tbl_retry_run();

// Arms the retry timer at its current back-off (a first wait: 10 ms).
void tbl_retry_arm();

// Writes of store `db` kept for a retry.
size_t tbl_kept_count(int db);

// Calls the data smoothing routine if it is due and the stores let it read
// its tables (table_service.cc).
void tbl_smoothing_kick();
