// The greedy cover's size without its template list: what the compact
// search holds a cover cut short by its budget against. Internal to the
// compact search (l3mac_mask_compact.cc) and its tests.
#pragma once

#include <cstdint>

#include "decision/l3mac_mask_compact_run.h"

// The entries that l3mac_masklist_calc gives for a set (its value-0 filler
// not counted), and how many of them are among `held`, from the primes of
// the set with value 0 (l3mac_compact_primes), width 12 or 14. 0, or -1
// when memory ran out.
int l3mac_compact_greedy_count(uint32_t width, const compact_cube *primes, uint32_t nprimes,
                               const compact_cube *held, uint32_t nheld, uint32_t *entries,
                               uint32_t *kept);
