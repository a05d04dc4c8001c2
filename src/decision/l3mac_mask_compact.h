// Compact cover search, the mode that a board chooses with the capability
// "s_route/l3mac/ability/compact-cover": the fewest value/mask templates
// for a VLAN or VFI set, value 0 matched or not, the top value never.
// Pure computation on the event thread, bounded by a step budget, so that
// the same set and the same held entries always give the same list.
#pragma once

#include <cstdint>

#include "decision/l3mac_bmp.h"
#include "frame/l3mac_list.h"

// An entry the MAC holds, as its TCAM entry's key has it.
struct mask_held {
    uint32_t evlan;
    uint32_t evlan_mask;  // cut to the width of the space
};

// Fills the empty, self-linked list `head` with the compact cover of `bmp`,
// in ascending level, then key, then mask. It never has more templates
// that take a TCAM entry than l3mac_masklist_calc gives; among covers of
// the fewest it keeps the most of `have`, and when `have` already covers
// the set exactly with no more entries, it is the cover. 0, or -1 when
// memory ran out, with the list left empty.
int l3mac_masklist_calc_compact(const evlan_bmp_t *bmp, const mask_held *have,
                                uint32_t have_cnt, list_head *head);
