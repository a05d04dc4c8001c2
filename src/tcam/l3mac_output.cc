// Placeholder bodies until this module is written.
#include "tcam/l3mac_output.h"
int l3mac_set_output(const tcam_entry *, int) { return 0; }
int l3mac_set_backup(const tcam_entry *, int) { return 0; }
int l3mac_backup_pmsg_parse(void *, tcam_entry *) { return -4; }
int l3mac_tcam_param_check(const tcam_entry *) { return -4; }
int l3mac_tcam_gr_backup(void *, void *) { return -4; }
