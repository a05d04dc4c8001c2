// Placeholder bodies until this module is written.
#include "frame/l3mac_init.h"
int l3mac_init() { return 0; }
int l3mac_service_create() { return 0; }
int l3mac_cap_init() { return 0; }
void l3mac_get_cap() {}
void l3mac_cap_dump() {}
