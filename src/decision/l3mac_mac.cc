// Placeholder bodies until this module is written.
#include "decision/l3mac_mac.h"
void l3mac_mac_queue(mac_entry *) {}
mac_entry *sw_l3mac_get_or_add_mac_db(uint8_t, const uint8_t *, uint32_t, int) { return nullptr; }
int sw_l3mac_op_user_bind_mac(user_entry *) { return 0; }
int sw_l3mac_op_user_unbind_mac(user_entry *) { return 0; }
