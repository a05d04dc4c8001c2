// Mask cover search: the greedy cover of one VLAN or VFI set by value/mask
// templates. Members join in ascending order; each new member adds the
// largest full sub-cubes through it, dropping the smaller templates inside
// them, and a final sweep drops every template that is the only cover of
// no number. This file keeps the template list; l3mac_mask_cube.cc finds
// the sub-cubes.
#include "decision/l3mac_mask.h"

#include <bit>
#include <cstring>

#include "decision/l3mac_mask_run.h"
#include "frame/l3mac_ctx.h"
#include "frame/l3mac_mem.h"

namespace {

// The search's tables, kept from one search to the next: a decision round
// covers MAC after MAC on the service's only thread, and the tables of the
// VFI space are a quarter of a megabyte, too much to take and give back
// for every MAC. They grow to the widest space searched and stay.
struct mask_scratch {
    uint32_t space;
    int32_t *cnt;
    uint32_t *nbr;
};
mask_scratch g_scratch;

// The neighbour table carries `found` and the member bitmap behind it.
// Every member gets a template in its own search before any later one
// reads its `found` slot.
int open_run(mask_run *r, uint8_t is_vfi, list_head *head) {
    r->head = head;
    r->width = is_vfi ? 14 : 12;
    r->space = 1u << r->width;
    r->comb = is_vfi ? l3mac_ctx.mask_comb.vfi : l3mac_ctx.mask_comb.vlan;
    if (g_scratch.space < r->space) {
        auto *cnt = static_cast<int32_t *>(l3mac_malloc(r->space * sizeof(int32_t)));
        auto *nbr = static_cast<uint32_t *>(l3mac_malloc(
            r->space * (sizeof(uint32_t) + sizeof(mask_template *)) + r->space / 8));
        if (!cnt || !nbr) {
            l3mac_free(cnt);
            l3mac_free(nbr);
            return -1;
        }
        l3mac_free(g_scratch.cnt);
        l3mac_free(g_scratch.nbr);
        g_scratch = {r->space, cnt, nbr};
    }
    r->cnt = g_scratch.cnt;
    r->nbr = g_scratch.nbr;
    r->found = reinterpret_cast<mask_template **>(r->nbr + r->space);
    r->member = reinterpret_cast<uint32_t *>(r->found + r->space);
    std::memset(r->member, 0, r->space / 8);
    r->counted = false;
    for (uint32_t l = 0; l <= MASK_MAX_LEVEL; ++l) {
        r->level_cnt[l] = 0;
        list_init(&r->level_head[l]);
    }
    return 0;
}

// Moves every template of `from` behind those of `to`.
void splice_tail(list_head *from, list_head *to) {
    if (list_empty(from)) return;
    from->next->prev = to->prev;
    to->prev->next = from->next;
    from->prev->next = to;
    to->prev = from->prev;
    list_init(from);
}

// The per-level lists become the caller's list, in ascending level.
void join_levels(mask_run *r) {
    for (list_head &level : r->level_head) splice_tail(&level, r->head);
}

void free_levels(mask_run *r) {
    for (list_head &level : r->level_head) l3mac_masklist_free(&level);
}

void clear_counts(mask_run *r, const mask_template *t) {
    const uint32_t total = 1u << t->level;
    for (uint32_t i = 0; i < total; ++i) r->cnt[t->members[i]] = 0;
}

void count_members(mask_run *r, const mask_template *t, int32_t delta) {
    const uint32_t total = 1u << t->level;
    for (uint32_t i = 0; i < total; ++i) r->cnt[t->members[i]] += delta;
}

// The highest number of a template, the member through which it was found.
uint32_t top_of(const mask_template *t) { return t->members[0]; }

// The template behind t in its level if it was found through the same
// number, else null.
mask_template *next_alike(mask_run *r, mask_template *t) {
    list_head *n = t->lst.next;
    if (n == &r->level_head[t->level]) return nullptr;
    mask_template *c = l3mac_mask_of(n);
    return top_of(c) == top_of(t) ? c : nullptr;
}

void l3mac_mask_remove(mask_run *r, mask_template *t) {
    if (r->counted) {
        count_members(r, t, -1);
    } else {
        if (r->found[top_of(t)] == t) r->found[top_of(t)] = next_alike(r, t);
        --r->level_cnt[t->level];
    }
    list_del_init(&t->lst);
    l3mac_free(t);
}

// C lies inside T when T matches C's key and compares no bit that C ignores.
bool lies_inside(const mask_template *c, const mask_template *t) {
    return (c->key & t->mask) == t->key && (c->mask & t->mask) == t->mask;
}

// Removes the lower templates inside t by walking every lower level.
void drop_inside_by_levels(mask_run *r, const mask_template *t) {
    for (int32_t l = 0; l < t->level; ++l)
        L3MAC_LIST_FOR_EACH_SAFE(pos, nxt, &r->level_head[l]) {
            mask_template *c = l3mac_mask_of(pos);
            if (lies_inside(c, t)) l3mac_mask_remove(r, c);
        }
}

// Removes the lower templates inside t through the numbers of t: each was
// found through one of them (not through t's own top, whose search is this
// one). The next template is read before the one in hand may be released.
void drop_inside_by_numbers(mask_run *r, const mask_template *t) {
    const uint32_t total = 1u << t->level;
    for (uint32_t i = 1; i < total; ++i) {
        mask_template *c = r->found[t->members[i]];
        if (!c || c->level >= t->level) continue;
        for (mask_template *nxt; c; c = nxt) {
            nxt = next_alike(r, c);
            if (lies_inside(c, t)) l3mac_mask_remove(r, c);
        }
    }
}

// Drops the smaller templates inside t, by whichever walk is shorter, then
// links t as the first of its level.
void l3mac_mask_insert(mask_run *r, mask_template *t) {
    uint32_t lower = 0;
    for (int32_t l = 0; l < t->level; ++l) lower += r->level_cnt[l];
    if (lower < (1u << t->level))
        drop_inside_by_levels(r, t);
    else
        drop_inside_by_numbers(r, t);
    list_add(&t->lst, &r->level_head[t->level]);
    ++r->level_cnt[t->level];
    r->found[top_of(t)] = t;
}

// A template for the sub-cube of v that ignores `bits`, its numbers from v
// down: v first, then v with each subset of `bits` cleared, in ascending
// order of the subsets. Each bit doubles the numbers so far.
mask_template *new_template(uint32_t v, uint32_t bits, int32_t level) {
    const size_t size = sizeof(mask_template) + (sizeof(uint32_t) << level);
    auto *t = static_cast<mask_template *>(l3mac_malloc(size));
    if (!t) return nullptr;
    list_init(&t->lst);
    t->mask = ~bits;
    t->key = v & ~bits;
    t->level = level;
    t->members[0] = v;
    uint32_t total = 1;
    for (; bits; bits &= bits - 1, total *= 2) {
        const uint32_t b = bits & (0u - bits);
        for (uint32_t i = 0; i < total; ++i) t->members[total + i] = t->members[i] ^ b;
    }
    return t;
}

// Inserts every full sub-cube of the highest level through v, in the
// finder's order, so that the last of them stands first.
int l3mac_mask_search(mask_run *r, uint32_t v) {
    uint32_t count = 0;
    const int32_t level = l3mac_mask_top_cubes(r, v, &count);
    for (uint32_t i = 0; i < count; ++i) {
        mask_template *t = new_template(v, r->cubes[i], level);
        if (!t) return -1;
        l3mac_mask_insert(r, t);
    }
    return 0;
}

// Members join in ascending order, so only the numbers below v, across
// the bits that are 1 in v, can be neighbours already.
int l3mac_mask_add_member(mask_run *r, uint32_t v) {
    r->member[v / 32] |= 1u << (v % 32);
    uint32_t around = 0;
    for (uint32_t ones = v; ones; ones &= ones - 1) {
        const uint32_t b = 1u << std::countr_zero(ones);
        if (mask_is_member(r, v ^ b)) {
            around |= b;
            r->nbr[v ^ b] |= b;
        }
    }
    r->nbr[v] = around;
    return l3mac_mask_search(r, v);
}

bool sole_cover(const mask_run *r, const mask_template *t) {
    const uint32_t total = 1u << t->level;
    for (uint32_t i = 0; i < total; ++i)
        if (r->cnt[t->members[i]] == 1) return true;
    return false;
}

// Smallest templates first, newest first within a level: a template that
// goes lowers the counts seen by those still to come.
void l3mac_mask_sweep(mask_run *r) {
    for (list_head *pos = r->head->next; pos != r->head; pos = pos->next)
        clear_counts(r, l3mac_mask_of(pos));
    for (list_head *pos = r->head->next; pos != r->head; pos = pos->next)
        count_members(r, l3mac_mask_of(pos), 1);
    r->counted = true;
    L3MAC_LIST_FOR_EACH_SAFE(pos, nxt, r->head) {
        mask_template *t = l3mac_mask_of(pos);
        if (t->level != 0 && !sole_cover(r, t)) l3mac_mask_remove(r, t);
    }
}

// Adds every number of the set that the search reads: 1 up to the top
// value minus 1. Bit 0 and the top value's bit are never looked at.
int add_set(mask_run *r, const evlan_bmp_t *bmp) {
    const uint32_t words = r->space / 32;
    for (uint32_t w = 0; w < words; ++w) {
        uint32_t bits = bmp->bmp[w];
        if (w == 0) bits &= ~1u;
        if (w == words - 1) bits &= ~(1u << 31);
        for (; bits; bits &= bits - 1) {
            const uint32_t v = w * 32 + std::countr_zero(bits);
            if (l3mac_mask_add_member(r, v) != 0) return -1;
        }
    }
    return 0;
}

}  // namespace

int l3mac_masklist_calc(const evlan_bmp_t *bmp, list_head *head) {
    mask_run r;
    if (open_run(&r, bmp->is_vfi, head) != 0) return -1;
    int rv = l3mac_mask_add_member(&r, 0);
    if (rv == 0) rv = add_set(&r, bmp);
    if (rv == 0) {
        join_levels(&r);
        l3mac_mask_sweep(&r);
    } else {
        free_levels(&r);
    }
    return rv == 0 ? 0 : -1;
}

int l3mac_masklist_free(list_head *head) {
    L3MAC_LIST_FOR_EACH_SAFE(pos, nxt, head) {
        list_del_init(pos);
        l3mac_free(l3mac_mask_of(pos));
    }
    return 0;
}
