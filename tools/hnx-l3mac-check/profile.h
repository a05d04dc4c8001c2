// hnx-l3mac-check --profile FILE: a capability profile checked before a
// restart, as the daemon checks it at its start.
#pragma once

#include "cli.h"

// The exit status of a --profile run (0 good, 1 bad, 2 misused), or -1
// when the arguments ask for no profile check.
int hnx_check_profile_main(const cli_tool &tool, int argc, char **argv);

// The profile under the root, before the tables are judged by it: one the
// daemon would refuse to start on describes no board, and judging by the
// built-in defaults instead would report the wrong things. 0, or the exit
// status (2) after the reasons on stderr.
int hnx_check_root_profile();
