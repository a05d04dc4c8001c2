// The greedy cover's size without its template list: what the compact
// search holds a cover cut short by its budget against. Internal to the
// compact search (l3mac_mask_compact.cc) and its tests.
#pragma once

#include <cstdint>

#include "decision/l3mac_mask_compact_run.h"

// The entries that l3mac_masklist_calc gives for a set (its value-0 filler
// not counted), and how many of them are among `held`. `on` is the set, a
// bitmap of 2^width bits, width 12 or 14; value 0 counts as a member and
// the top value not, whatever their bits. 0, or -1 when memory ran out.
int l3mac_compact_greedy_count(uint32_t width, const uint64_t *on, const compact_cube *held,
                               uint32_t nheld, uint32_t *entries, uint32_t *kept);
