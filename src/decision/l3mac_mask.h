// Mask cover search: turns a VLAN or VFI set into a list of value/mask
// templates, each a future TCAM entry. Pure computation on the event thread;
// the scratch arrays of l3mac_ctx.mask_comb make two runs unable to overlap.
#pragma once

#include <cstdint>

#include "decision/l3mac_bmp.h"
#include "frame/l3mac_list.h"

// One cover entry: every number v with (v & mask) == key. The record is one
// allocation with room for 2^level members.
struct mask_template {
    list_head lst;        // place in the template list (next, prev)
    uint32_t mask;        // 1 bits compared; bits above the width are 1
    uint32_t key;         // lowest number of the sub-cube
    int32_t level;        // ignored bits, 0 for a single number
    uint32_t members[];   // the 2^level numbers, highest first
};

// Fills the empty, self-linked list `head` with the cover of `bmp`, in
// ascending level, newest first within a level. 0, or -1 when memory ran
// out, with the list left empty.
int l3mac_masklist_calc(const evlan_bmp_t *bmp, list_head *head);

// Unlinks and releases every template; the head is left self-linked. 0.
int l3mac_masklist_free(list_head *head);

inline mask_template *l3mac_mask_of(list_head *l) {
    return list_rec<mask_template, &mask_template::lst>(l);
}
