// Placeholder bodies until this module is written.
#include "frame/l3mac_main.h"
const char *const l3mac_dbg_level_names[8] = {"CLOSE", "ERROR", "BRIEF", "EVENT", "WARNING", "INFO", "HIGH FREQ", "ALL"};
int l3mac_tbl_init() { return 0; }
int l3mac_connect_cb() { return 0; }
void l3mac_debug_set(int, int) {}
