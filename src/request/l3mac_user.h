// User entries: one record per request key {user, uuid}, on both paths,
// and the managed path's add and delete with the direct-decision budget.
#pragma once

#include <cstdint>

#include "frame/l3mac_list.h"
#include "request/l3mac_msg.h"

struct user_entry {
    uint32_t user;         // key, first part
    char uuid[128];        // key, second part, zero padded
    list_head mac_lst;     // place in user_head of the bound record
    void *mac_entry;       // bound mac_entry (managed) or mac_hw (direct)
    uint8_t is_match_evlan;
    uint8_t mac_type;
    uint8_t mac[6];
    uint32_t evlan;
    uint32_t phyid;
};

inline constexpr unsigned L3MAC_USER_KEY_LEN = 132;

inline user_entry *l3mac_user_of(list_head *l) {
    return list_rec<user_entry, &user_entry::mac_lst>(l);
}

// Finds (is_add 0) or finds or creates (is_add 1) the entry of {user, uuid}.
user_entry *l3mac_get_or_add_user_db(uint32_t user, const char *uuid,
                                     int is_add);

// Copies the five attributes of the request into the entry.
void l3mac_set_user_attr(user_entry *entry, const l3mac_msg *msg);

// Managed path. Add: 0 or -2. Delete: 0 or -7.
int sw_l3mac_add_user_entry(const l3mac_msg *msg);
int sw_l3mac_del_user_entry(const l3mac_msg *msg);

// Removes an unbound entry from the user store and frees it.
void l3mac_del_user_db(user_entry *entry);
