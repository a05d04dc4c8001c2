// Decision round and its timer: where the wanted state of the pending MACs
// becomes TCAM entries.
#pragma once

#include <cstdint>

#include "decision/l3mac_masklist.h"

int sw_l3mac_mac_decision();
uint32_t l3mac_mark_and_count_new_tcam(mac_masklist *ml, mac_entry *mac);
void l3mac_tcam_fail_notice(mac_masklist *ml);
int l3mac_start_decision_timer();
int l3mac_decision_timer(void *arg);

// The paced system log message "L3MAC table is full.".
void l3mac_no_res_log();
