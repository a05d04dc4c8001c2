// Placeholder bodies until this module is written.
#include "vrrp/l3mac_vrrp.h"
int sw_l3mac_add_vrrp_msg(const l3mac_msg *) { return 0; }
int sw_l3mac_del_vrrp_msg(const l3mac_msg *) { return 0; }
int l3mac_user_bind_mac_hw(user_entry *, mac_hw *) { return 0; }
int l3mac_user_unbind_mac_hw(user_entry *) { return 0; }
void l3mac_del_hw_entry(mac_hw *) {}
int l3mac_hw_dec(mac_hw *) { return 0; }
int sw_l3mac_set_vrrp_hw(const mac_hw *, int) { return 0; }
int sw_l3mac_set_vrrp_fail(const user_entry *) { return 0; }
