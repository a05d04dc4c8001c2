// Output and graceful-restart backup: the hardware output table, keyed by
// position, and the backup table, keyed by content, and the restore of
// entries from the backup during data smoothing.
#pragma once

#include "tcam/l3mac_tcam.h"

// is_add 1 add, 0 delete. Result of the table call.
int l3mac_set_output(const tcam_entry *entry, int is_add);
int l3mac_set_backup(const tcam_entry *entry, int is_add);

// Reads the row of a kw_mom_scan_rec into a scratch entry. 0 or -4.
int l3mac_backup_pmsg_parse(void *scan_rec, tcam_entry *entry);
int l3mac_tcam_param_check(const tcam_entry *entry);

// Callback of kw_mom_scan_sync for each backup row. 0, -2, -4 or a code.
int l3mac_tcam_gr_backup(void *arg, void *scan_rec);
