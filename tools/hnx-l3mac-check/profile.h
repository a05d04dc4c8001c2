// hnx-l3mac-check --profile FILE: a capability profile checked before a
// restart, as the daemon checks it at its start.
#pragma once

// The exit status of a --profile run (0 good, 1 bad, 2 misused), or -1
// when the arguments ask for no profile check.
int hnx_check_profile_main(int argc, char **argv);
