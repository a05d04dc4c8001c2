// TCAM entries and the index pools of the one or two my-station TCAMs.
#pragma once

#include <cstdint>

#include "decision/l3mac_mac.h"
#include "decision/l3mac_mask.h"
#include "frame/l3mac_list.h"

// Identity of an entry: 20 raw bytes, hashed and compared as they lie.
struct tcam_key {
    uint32_t evlan;       // value to match
    uint32_t evlan_mask;  // compared bits, cut to the VLAN or VFI width
    uint8_t mac[6];
    uint8_t mac_type;
    uint8_t rsvd;         // always 0
    uint32_t phyid;
};
static_assert(sizeof(tcam_key) == 20);

struct tcam_entry {
    list_head tcam_lst;   // place in tcam_head of its MAC
    tcam_key key;
    uint32_t idx;         // position in the TCAM while valid
    uint32_t ref_cnt;     // claims since the last reset; 0: removable
    uint8_t valid;        // holds an index of the pool
    uint8_t is_hw;        // published by this process
};

inline tcam_entry *l3mac_tcam_of(list_head *l) {
    return list_rec<tcam_entry, &tcam_entry::tcam_lst>(l);
}

int l3mac_create_tcam1();
int l3mac_create_tcam2();
void l3mac_set_vfi_mask(int32_t n);

int sw_l3mac_op_add_idx(uint32_t mac_type, uint32_t *idx, uint32_t want,
                        uint8_t is_gr);
int sw_l3mac_op_del_idx(int tcam_id, uint32_t idx);

int sw_l3mac_add_tcam_entry(const mask_template *tpl, mac_entry *mac);
int sw_l3mac_mark_tcam_entry(const mask_template *tpl, mac_entry *mac);
int sw_l3mac_del_tcam(tcam_entry *entry);
void l3mac_update_tcam_entry(tcam_entry *entry, mac_entry *mac);
void l3mac_del_tcam_db(tcam_entry *entry);

// Publishes an entry as sw_l3mac_add_tcam_entry does: output row, is_hw,
// backup row; counts 133 on a failed write. 0 or the ORed write results.
int l3mac_publish_tcam_entry(tcam_entry *entry);
