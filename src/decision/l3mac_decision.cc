// Placeholder bodies until this module is written.
#include "decision/l3mac_decision.h"
int sw_l3mac_mac_decision() { return 0; }
uint32_t l3mac_mark_and_count_new_tcam(mac_masklist *, mac_entry *) { return 0; }
void l3mac_tcam_fail_notice(mac_masklist *) {}
int l3mac_start_decision_timer() { return 0; }
int l3mac_decision_timer(void *) { return 0; }
void l3mac_no_res_log() {}
