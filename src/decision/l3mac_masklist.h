// Mask-list application: turns one MAC's set of TCAM entries into its new
// cover, adding before it removes, after a test for room in the pool.
#pragma once

#include <cstdint>

#include "decision/l3mac_bmp.h"
#include "decision/l3mac_mac.h"
#include "frame/l3mac_list.h"
#include "platform/sw_res_comm.h"

// One MAC's change within a decision round.
struct mac_masklist {
    list_head retry_lst;  // place in the round's held-over list
    list_head mask_lst;   // templates of the new cover (owned)
    mac_entry *mac;       // the MAC being changed, or null (not owned)
    sw_res_rm *rm;        // pool of the MAC's TCAM, null when missing
    uint32_t add_cnt;     // templates of the new cover, filler not counted
    uint32_t del_cnt;     // entries the MAC held when the round came to it
    evlan_bmp_t old_bmp;    // the MAC's VLAN set before this round
};

inline mac_masklist *l3mac_masklist_of_retry(list_head *l) {
    return list_rec<mac_masklist, &mac_masklist::retry_lst>(l);
}

mac_masklist *l3mac_alloc_masklist();
void l3mac_release_masklist(mac_masklist *ml);

// 0 done; -6 no room, nothing touched; -11 the change failed.
int l3mac_add_masklist(mac_masklist *ml);
int l3mac_mac_op_add_tcam(mac_masklist *ml);
void l3mac_mac_op_del_tcam(mac_entry *mac);
