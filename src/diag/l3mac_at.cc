// Placeholder bodies until this module is written.
#include "diag/l3mac_at.h"
int sw_l3mac_at_init() { return 0; }
