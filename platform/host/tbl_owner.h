// Ownership of the tables that a process writes as their one writer (the
// service's output and backup tables): one process per table of a store.
// Two writers of one output table would each place entries by their own
// index pools, and two entries would end at one index. The instance lock
// of a service guards its own name only; this guards the tables.
#pragma once

#include <string>

// Takes the ownership of table `name` of store `db` for the life of the
// process (a lock file beside the store file; none for a store in this
// process's memory, which no other process writes). "" when this process
// owns it, else a line on who does and what to do.
std::string tbl_own(int db, const std::string &name);

// The pid of the process that owns the table, or 0 when none does.
long tbl_owner_of(int db, const std::string &name);

// Gives every ownership up (tests; a process's end gives them up anyway).
void tbl_owner_reset();
