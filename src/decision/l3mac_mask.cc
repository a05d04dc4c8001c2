// Placeholder bodies until this module is written.
#include "decision/l3mac_mask.h"
int l3mac_masklist_calc(const evlan_bmp_t *, list_head *) { return -1; }
int l3mac_masklist_free(list_head *) { return 0; }
