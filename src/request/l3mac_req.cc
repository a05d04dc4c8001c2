// Placeholder bodies until this module is written.
#include "request/l3mac_msg.h"
int l3mac_set_msg_proc(const l3mac_pmsg_t *) { return 0; }
int l3mac_del_msg_proc(const l3mac_pmsg_t *) { return 0; }
int l3mac_input_pmsg_parse(const l3mac_pmsg_t *, l3mac_msg *, int) { return 0; }
int sw_l3mac_user_param_check(const l3mac_msg *, int) { return 0; }
int l3mac_get_tcam_id(uint8_t) { return 0; }
