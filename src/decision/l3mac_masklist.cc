// Placeholder bodies until this module is written.
#include "decision/l3mac_masklist.h"
mac_masklist *l3mac_alloc_masklist() { return nullptr; }
void l3mac_release_masklist(mac_masklist *) {}
int l3mac_add_masklist(mac_masklist *) { return -11; }
int l3mac_mac_op_add_tcam(mac_masklist *) { return -11; }
void l3mac_mac_op_del_tcam(mac_entry *) {}
