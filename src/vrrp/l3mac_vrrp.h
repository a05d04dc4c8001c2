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

// Requests of the direct path. Add: 0 or -2; the row is published before
// it returns. Delete: 0 or -7; the last user's delete withdraws the row.
int sw_l3mac_add_vrrp_msg(const l3mac_msg *msg);
int sw_l3mac_del_vrrp_msg(const l3mac_msg *msg);

// Binds the entry to hw, releasing its old record first. 0.
int l3mac_user_bind_mac_hw(user_entry *entry, mac_hw *hw);
// Detaches the entry; its record goes with its last user. 0.
int l3mac_user_unbind_mac_hw(user_entry *entry);
// Withdraws and frees hw if it has no user left.
void l3mac_del_hw_entry(mac_hw *hw);
// Publishes the difference between is_hw and the user list. 0.
int l3mac_hw_dec(mac_hw *hw);

// Table rows: the hardware record (result of the table call) and the
// STATUS_FAILED row of a user of a full managed TCAM.
int sw_l3mac_set_vrrp_hw(const mac_hw *hw, int is_add);
int sw_l3mac_set_vrrp_fail(const user_entry *entry);

// True when a bound record (a user entry's `mac_entry`) is a mac_hw rather
// than a managed MAC entry.
bool l3mac_is_mac_hw(const void *rec);
