// The commands of hnx-tbl. Each returns the exit status: 0 done, 1 no such
// row (get), 2 bad input (nothing written), 3 the store failed or, for a
// command that only reads, there is none.
#pragma once

#include "args.h"

enum tbl_exit { kExitOk = 0, kExitAbsent = 1, kExitBadInput = 2, kExitStore = 3 };

int cmd_set(const tbl_args &a);
int cmd_del(const tbl_args &a);
int cmd_get(const tbl_args &a);
int cmd_dump(const tbl_args &a);
int cmd_watch(const tbl_args &a);
int cmd_tables(const tbl_args &a);
int cmd_fields(const tbl_args &a);
