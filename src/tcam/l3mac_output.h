// Output and graceful-restart backup: the hardware output table, keyed by
// position, and the backup table, keyed by content, and the restore of
// entries from the backup during data smoothing.
#pragma once

#include "tcam/l3mac_tcam.h"

// is_add 1 add, 0 delete. Result of the table call.
int l3mac_set_output(const tcam_entry *entry, int is_add);
int l3mac_set_backup(const tcam_entry *entry, int is_add);

// The output row's key {hw_id, phase} of an entry. hw_id is the entry's
// idx, except on a board that uses both TCAMs at once (both pools, no copy
// to the second): there an entry of the second TCAM with phase 0 stands at
// tcam_cap + idx, so that it cannot take the row of the first TCAM's entry
// with the same idx.
uint32_t l3mac_output_hw_id(const tcam_entry *entry);
uint32_t l3mac_output_phase(const tcam_entry *entry);

// Reads the row of a kw_mom_scan_rec into a scratch entry. 0 or -4.
int l3mac_backup_pmsg_parse(void *scan_rec, tcam_entry *entry);
int l3mac_tcam_param_check(const tcam_entry *entry);

// Which backup rows l3mac_tcam_gr_backup takes. Smoothing reads the table
// twice: first the rows that the output table agrees with, then the others,
// so that a row the hardware stands behind takes its index before any other
// row can claim it. Outside smoothing every row is taken.
enum l3mac_gr_pass : int { L3MAC_GR_ALL = 0, L3MAC_GR_AGREED = 1, L3MAC_GR_REST = 2 };
void l3mac_tcam_gr_set_pass(int pass);

// Callback of kw_mom_scan_sync for each backup row: takes the entry's old
// index again, links it to its MAC and queues the MAC. Writes no table.
// 0, -2, -4 or the pool's code.
int l3mac_tcam_gr_backup(void *arg, void *scan_rec);
