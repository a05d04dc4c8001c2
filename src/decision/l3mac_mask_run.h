// Working storage of one mask cover run, shared by the template list side
// (l3mac_mask.cc) and the sub-cube finder (l3mac_mask_cube.cc). Internal to
// the cover search.
#pragma once

#include <cstdint>

#include "decision/l3mac_mask.h"
#include "frame/l3mac_list.h"

inline constexpr uint32_t MASK_MAX_LEVEL = 13;
// C(13, 6): the most sub-cubes of one level that can pass through a number.
inline constexpr uint32_t MASK_MAX_CUBES = 1716;

// Membership is a bitmap, so that the finder can test the numbers of a
// sub-cube that differ only in their five low bits with one word.
//
// Until the sweep, templates stand in one list per level, newest first, and
// are joined in ascending level at the end. A search inserts its templates
// one after the other at the front of one level, so those found through one
// number stay neighbours there for good: `found` points at the newest of
// them, which lets an insert find the smaller templates inside it from its
// own numbers instead of walking every lower level.
//
// The counts are taken once, before the sweep: they are the same as
// counting at every insert and removal, without the work for the many
// templates that a larger one replaces.
//
// Only the member bitmap is cleared when a run opens: a number's `nbr` word
// is written when it joins, before anything reads it, and only the numbers
// of the final list ever have their count read.
struct mask_run {
    list_head *head;        // the caller's list
    uint32_t width;         // 12 or 14 bits
    uint32_t space;         // 2^width numbers
    int32_t *comb;          // l3mac_ctx.mask_comb of the space
    int32_t *cnt;           // per number: templates on the list that hold it
    uint32_t *nbr;          // bit b: the number and the one across b are members
    mask_template **found;  // per member: newest template found through it
    uint32_t *member;       // bitmap of the members so far
    bool counted;           // counts are taken
    uint32_t level_cnt[MASK_MAX_LEVEL + 1];
    list_head level_head[MASK_MAX_LEVEL + 1];
    uint32_t cubes[MASK_MAX_CUBES];  // bits ignored by each sub-cube found
};

inline bool mask_is_member(const mask_run *r, uint32_t x) {
    return r->member[x / 32] >> (x % 32) & 1u;
}

// The full sub-cubes of the highest level through the member v, among the
// members so far (all below v): the bits each ignores, in r->cubes, in
// lexicographic order of those bits. Result: the level, and their count
// in *count. A member without a neighbour gets the single cube of level 0.
int32_t l3mac_mask_top_cubes(mask_run *r, uint32_t v, uint32_t *count);
