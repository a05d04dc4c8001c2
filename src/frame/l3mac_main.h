// Process entry: table set-up and the connect callback; main itself lives
// in main.cc, which only the daemon links.
#pragma once

int l3mac_tbl_init();
int l3mac_connect_cb();

// The eight debug level names, shared with the `debug` command.
extern const char *const l3mac_dbg_level_names[8];

// Prints the level table, clamps the level and sets both log variables.
void l3mac_debug_set(int level, int log_cnt);
