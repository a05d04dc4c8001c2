// VRRP direct path: one hardware record per distinct {evlan, mac, mac_type}
// for a TCAM that the service does not manage, and the failure row by which
// VRRP users learn that a managed TCAM is full.
#pragma once

#include <cstdint>

#include "frame/l3mac_list.h"
#include "request/l3mac_user.h"

struct mac_hw {
    uint32_t evlan;        // key: evlan, evlan_mask, mac, mac_type, a 0 byte
    uint32_t evlan_mask;
    uint8_t mac[6];
    uint8_t mac_type;
    uint8_t rsvd;
    list_head user_head;   // bound user_entry records (not owned)
    uint8_t is_hw;         // the row stands in s_route.l3mac_vrrp_hw_res
};

inline constexpr unsigned L3MAC_HW_KEY_LEN = 16;

int sw_l3mac_add_vrrp_msg(const l3mac_msg *msg);
int sw_l3mac_del_vrrp_msg(const l3mac_msg *msg);
int l3mac_user_bind_mac_hw(user_entry *entry, mac_hw *hw);
int l3mac_user_unbind_mac_hw(user_entry *entry);
void l3mac_del_hw_entry(mac_hw *hw);
int l3mac_hw_dec(mac_hw *hw);
int sw_l3mac_set_vrrp_hw(const mac_hw *hw, int is_add);
int sw_l3mac_set_vrrp_fail(const user_entry *entry);
