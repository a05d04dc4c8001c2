// Placeholder bodies until this module is written.
#include "request/l3mac_user.h"
user_entry *l3mac_get_or_add_user_db(uint32_t, const char *, int) { return nullptr; }
void l3mac_set_user_attr(user_entry *, const l3mac_msg *) {}
int sw_l3mac_add_user_entry(const l3mac_msg *) { return 0; }
int sw_l3mac_del_user_entry(const l3mac_msg *) { return 0; }
void l3mac_del_user_db(user_entry *) {}
