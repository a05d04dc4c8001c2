// Placeholder bodies until this module is written.
#include "tcam/l3mac_tcam.h"
int l3mac_create_tcam1() { return 0; }
int l3mac_create_tcam2() { return 0; }
void l3mac_set_vfi_mask(int32_t) {}
int sw_l3mac_op_add_idx(uint32_t, uint32_t *, uint32_t, uint8_t) { return -1; }
int sw_l3mac_op_del_idx(int, uint32_t) { return 0; }
int sw_l3mac_add_tcam_entry(const mask_template *, mac_entry *) { return -1; }
int sw_l3mac_mark_tcam_entry(const mask_template *, mac_entry *) { return -4; }
int sw_l3mac_del_tcam(tcam_entry *) { return 0; }
void l3mac_update_tcam_entry(tcam_entry *, mac_entry *) {}
void l3mac_del_tcam_db(tcam_entry *) {}
int l3mac_publish_tcam_entry(tcam_entry *) { return 0; }
