// MAC entries: one record per {mac_type, mac, phyid} on the managed path,
// the binding of user entries to them, and the pending list of MACs whose
// users changed since the last decision.
#pragma once

#include <cstdint>

#include "decision/l3mac_bmp.h"
#include "frame/l3mac_list.h"
#include "request/l3mac_user.h"

struct mac_entry {
    list_head pending_lst;  // place in the pending list; self when not pending
    list_head user_head;    // bound user_entry records (not owned)
    list_head tcam_head;    // tcam_entry records that serve this MAC
    uint8_t mac_type;       // key: mac_type, mac, a 0 byte, phyid
    uint8_t mac[6];
    uint8_t rsvd;
    uint32_t phyid;
    evlan_bmp_t evlan_bmp;    // the VLAN set of the last decision
};

inline constexpr unsigned L3MAC_MAC_KEY_LEN = 12;

// Head of the pending list, linked to itself at load.
extern list_head l3mac_pending_head;

inline mac_entry *l3mac_mac_of_pending(list_head *l) {
    return list_rec<mac_entry, &mac_entry::pending_lst>(l);
}

// Queues the MAC at the front of the pending list unless it is pending.
void l3mac_mac_queue(mac_entry *mac);

// Finds (is_add 0) or finds or creates (is_add 1) the MAC of the key.
mac_entry *sw_l3mac_get_or_add_mac_db(uint8_t mac_type, const uint8_t *mac,
                                      uint32_t phyid, int is_add);

// Binds the entry to the MAC of its attributes. 0 or -2.
int sw_l3mac_op_user_bind_mac(user_entry *entry);

// Detaches the entry from its MAC and queues that MAC. 0.
int sw_l3mac_op_user_unbind_mac(user_entry *entry);
