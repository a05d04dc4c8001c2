// Writes of one turn of the event loop share one transaction, committed
// before the loop waits again, so that a decision round's rows reach the
// store (and wake its readers) once, and nothing written outlives a turn
// uncommitted.
#pragma once

#include "platform/host/tbl_store.h"

// The store of `db` with this turn's transaction open; without a loop, the
// store as it is (each write its own transaction). Null when it cannot be
// opened, or the turn's transaction cannot begin (the store is busy).
tbl_store *tbl_turn_store(int db);

// Commits the open turn transaction of `db` (every store for -1). A commit
// that fails keeps the turn's writes for a retry.
void tbl_turn_commit(int db = -1);

// Closes the turn's loop handles (reset and fork).
void tbl_turn_forget(bool close_handles);
