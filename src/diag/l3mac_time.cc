// Placeholder bodies until this module is written.
#include "diag/l3mac_time.h"
void l3mac_time_start(uint32_t, int32_t) {}
void l3mac_time_end() {}
int l3mac_at_time_init(int32_t) { return 0; }
int l3mac_at_time_set(int32_t) { return 0; }
int l3mac_at_time_dump() { return 0; }
