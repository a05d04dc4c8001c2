// Data smoothing windows: rows of a table not written between begin and end
// are deleted at the end, as changes that subscribers see.
#pragma once

#include "platform/host/tbl_state.h"

// Notes a written key for the table's open window, if any.
void tbl_ds_mark(ss_rt_tbl *tbl, const tbl_bytes &key);

// Ends the windows whose time has run out; for processes that deliver by
// hnx_host_tbl_poll() and have no loop to time them.
void tbl_ds_expire_due();
