// Handles of the four stores, without the store's definition.
#pragma once

struct mac_entry;
struct tcam_entry;
struct user_entry;
struct mac_hw;

template <class Rec> class l3mac_store;

using mac_db_t = l3mac_store<mac_entry>;
using tcam_db_t = l3mac_store<tcam_entry>;
using user_db_t = l3mac_store<user_entry>;
using vrrp_db_t = l3mac_store<mac_hw>;
