// TCAM entries and the index pools of the one or two my-station TCAMs.
#pragma once

#include <cstdint>

#include "decision/l3mac_mac.h"
#include "decision/l3mac_mask.h"
#include "frame/l3mac_ctx.h"
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

// An evlan outside its space: 4095 is the first invalid VLAN value, and the
// last number of the VFI space (vfi_mask) is invalid too.
#define L3MAC_TCAM_EVLAN_INVALID(evlan, is_vfi) \
    ((evlan) >= ((is_vfi) ? l3mac_ctx.vfi_mask : 4095u))

// Pools. Each returns 0 or the pool's code; a missing second TCAM is no
// failure.
int l3mac_create_tcam1();
int l3mac_create_tcam2();
// The VFI space mask for n VFI numbers: all ones, at least 1 and enough
// bits for n; set_vfi_mask makes it the service's.
uint32_t l3mac_vfi_mask_of(int32_t n);
void l3mac_set_vfi_mask(int32_t n);

// Takes an index of the pool of the mac_type's TCAM into *idx; with is_gr 1
// exactly `want`. 0 or the pool's code (also for a TCAM without a pool).
int sw_l3mac_op_add_idx(uint32_t mac_type, uint32_t *idx, uint32_t want,
                        uint8_t is_gr);
int sw_l3mac_op_del_idx(int tcam_id, uint32_t idx);

// Makes sure that the template's entry of the MAC exists, holds an index,
// is linked and claimed, and is published. 0, -2 or a pool or table code.
int sw_l3mac_add_tcam_entry(const mask_template *tpl, mac_entry *mac);
// Claims the template's entry if it exists (keyed with phyid 0); creates
// nothing. 0, or -4 for the filler template.
int sw_l3mac_mark_tcam_entry(const mask_template *tpl, mac_entry *mac);
// Frees the index, withdraws both rows and frees the record, which the
// caller has taken off its list. 0.
int sw_l3mac_del_tcam(tcam_entry *entry);

// Links the entry into the MAC's tcam_head if it is on no list; one claim.
void l3mac_update_tcam_entry(tcam_entry *entry, mac_entry *mac);
void l3mac_del_tcam_db(tcam_entry *entry);

// Publishes an entry as sw_l3mac_add_tcam_entry does: output row, is_hw,
// backup row; counts 133 on a failed write. 0 or the ORed write results.
int l3mac_publish_tcam_entry(tcam_entry *entry);
