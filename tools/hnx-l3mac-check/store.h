// Reading the tables of the table store for the checker: read-only, in
// one snapshot, so that a running service's later writes do not
// mix into what is checked.
#pragma once

#include <string>

#include "check/l3mac_check.h"

// Fills `rows` from the store: the SQLite file at `path`, or the Redis
// store that HNX_STORE names. Rows that do not unpack are
// violations of `rep`. False, with `err` set, when there is no file or it
// cannot be read as a store; the file is never created.
bool hnx_check_read_store(const std::string &path, l3mac_check_rows *rows,
                          l3mac_check_report *rep, std::string *err);
