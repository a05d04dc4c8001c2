// Compact cover search of one MAC's set: the fewest sub-cubes (core in
// l3mac_mask_compact_core.cc), held against the MAC's entries and against
// the greedy cover, and turned into the template list of the decision
// round.
//
// Which cover is given, in this order:
//  - the entries the MAC holds, when they cover the set exactly and are no
//    more than the best cover found, so that an unchanged set never moves
//    an entry, whatever mode placed them;
//  - the compact search's cover when it ran to its end: no cover has fewer
//    entries, nor keeps more of the held ones at that size;
//  - otherwise the better of the compact search's best and the greedy
//    cover (fewer entries, then more held entries kept), the greedy one on
//    a tie, so that a search cut short by its budget never costs a TCAM
//    entry more than the greedy cover would. The greedy cover comes without
//    a template that it keeps for value 0 alone: this mode need not match
//    value 0, and such a template would be a TCAM entry spent on nothing.
#include "decision/l3mac_mask_compact.h"

#include <algorithm>
#include <bit>
#include <cstring>

#include "decision/l3mac_mask.h"
#include "decision/l3mac_mask_compact_greedy.h"
#include "decision/l3mac_mask_compact_run.h"
#include "frame/l3mac_mem.h"

namespace {

struct compact_call {
    uint32_t width, space, top;
    uint64_t set[L3MAC_BMP_BITS / 64];
    compact_cube *held;  // the held entries as sub-cubes
    uint32_t nheld;
};

void open_call(compact_call *c, const evlan_bmp_t *bmp) {
    c->width = bmp->is_vfi ? 14 : 12;
    c->space = 1u << c->width;
    c->top = c->space - 1;
    for (uint32_t i = 0; i < c->space / 64; ++i)
        c->set[i] = bmp->bmp[2 * i] | static_cast<uint64_t>(bmp->bmp[2 * i + 1]) << 32;
    c->set[0] &= ~1ull;                    // value 0 is not read
    c->set[c->top / 64] &= ~(1ull << 63);  // nor the top value
}

compact_cube cube_of(const compact_call *c, uint32_t key, uint32_t mask) {
    return {key, ~mask & c->top};
}

bool set_has(const compact_call *c, uint32_t x) { return c->set[x / 64] >> (x % 64) & 1u; }

// Whether the held entries match the set exactly (value 0 allowed).
bool held_covers_exactly(const compact_call *c) {
    uint64_t covered[L3MAC_BMP_BITS / 64] = {};
    for (uint32_t h = 0; h < c->nheld; ++h) {
        const compact_cube &q = c->held[h];
        if ((q.key & ~c->top) || (q.key & q.free)) return false;
        uint32_t s = 0;
        do {
            const uint32_t x = q.key | s;
            if (x != 0 && !set_has(c, x)) return false;
            covered[x / 64] |= 1ull << (x % 64);
            s = (s - q.free) & q.free;
        } while (s != 0);
    }
    for (uint32_t i = 0; i < c->space / 64; ++i)
        if (c->set[i] & ~covered[i]) return false;
    return true;
}

// A template as the greedy search makes them: its numbers highest first,
// then each lower one by clearing subsets of the ignored bits.
mask_template *new_template(const compact_cube &q) {
    const int32_t level = compact_bits(q.free);
    auto *t = static_cast<mask_template *>(
        l3mac_malloc(sizeof(mask_template) + (sizeof(uint32_t) << level)));
    if (!t) return nullptr;
    list_init(&t->lst);
    t->mask = ~q.free;
    t->key = q.key;
    t->level = level;
    t->members[0] = q.key | q.free;
    uint32_t total = 1;
    for (uint32_t bits = q.free; bits; bits &= bits - 1, total *= 2) {
        const uint32_t b = bits & (0u - bits);
        for (uint32_t i = 0; i < total; ++i) t->members[total + i] = t->members[i] ^ b;
    }
    return t;
}

// The list in the order of `cubes` (ascending level, key, mask).
int fill_list(const compact_cube *cubes, uint32_t n, list_head *head) {
    for (uint32_t k = 0; k < n; ++k) {
        mask_template *t = new_template(cubes[k]);
        if (!t) {
            l3mac_masklist_free(head);
            return -1;
        }
        list_add_tail(&t->lst, head);
    }
    return 0;
}

bool cube_order(const compact_cube &a, const compact_cube &b) {
    const int la = compact_bits(a.free), lb = compact_bits(b.free);
    if (la != lb) return la < lb;
    return a.key != b.key ? a.key < b.key : a.free < b.free;
}

// The held entries, when they are the cover. -1 without memory.
int give_held(compact_call *c, list_head *head) {
    std::sort(c->held, c->held + c->nheld, cube_order);
    return fill_list(c->held, c->nheld, head);
}

// The greedy cover matches value 0 always, and may keep a template above
// level 0 for that alone, its other numbers matched by the rest. Only one
// template can be value 0's only cover, and a template through value 0
// that is not its only cover has another number of its own, or the greedy
// sweep had dropped it. Dropping that one gives no other template a reason
// to go: it only takes matches away.
void drop_value_zero_template(list_head *head) {
    mask_template *zero = nullptr;
    for (list_head *p = head->next; p != head; p = p->next) {
        mask_template *t = l3mac_mask_of(p);
        if (t->key != 0 || t->level == 0) continue;
        if (zero) return;
        zero = t;
    }
    if (!zero) return;
    uint64_t others[L3MAC_BMP_BITS / 64] = {};
    for (list_head *p = head->next; p != head; p = p->next) {
        const mask_template *t = l3mac_mask_of(p);
        if (t == zero) continue;
        for (uint32_t i = 0; i < (1u << t->level); ++i)
            others[t->members[i] / 64] |= 1ull << (t->members[i] % 64);
    }
    for (uint32_t i = 0; i < (1u << zero->level); ++i) {
        const uint32_t x = zero->members[i];
        if (x != 0 && !(others[x / 64] >> (x % 64) & 1u)) return;
    }
    list_del_init(&zero->lst);
    l3mac_free(zero);
}

// Chooses between the compact search's answer and the greedy cover. The
// greedy cover is only counted; it is built when it is the one given.
int give_best(compact_call *c, const evlan_bmp_t *bmp, const compact_output *out,
              list_head *head) {
    const bool held_fits = held_covers_exactly(c);
    if (out->exact) {
        if (held_fits && c->nheld <= out->count) return give_held(c, head);
        return fill_list(out->cubes, out->count, head);
    }
    uint32_t entries = 0, kept = 0;
    if (l3mac_compact_greedy_count(c->width, c->set, c->held, c->nheld, &entries, &kept) != 0)
        return -1;
    const bool compact_wins =
        out->count < entries || (out->count == entries && out->kept > kept);
    const uint32_t best = compact_wins ? out->count : entries;
    if (held_fits && c->nheld <= best) return give_held(c, head);
    if (compact_wins) return fill_list(out->cubes, out->count, head);
    if (l3mac_masklist_calc(bmp, head) != 0) return -1;
    drop_value_zero_template(head);
    return 0;
}

}  // namespace

int l3mac_masklist_calc_compact(const evlan_bmp_t *bmp, const mask_held *have,
                                uint32_t have_cnt, list_head *head) {
    compact_call c;
    open_call(&c, bmp);
    c.nheld = have_cnt;
    c.held = static_cast<compact_cube *>(l3mac_malloc((have_cnt + 1) * sizeof(compact_cube)));
    if (!c.held) return -1;
    for (uint32_t h = 0; h < have_cnt; ++h)
        c.held[h] = cube_of(&c, have[h].evlan, have[h].evlan_mask);
    const compact_input in = {c.width, c.set, c.held, c.nheld,
                              bmp->is_vfi ? COMPACT_BUDGET_VFI : COMPACT_BUDGET_VLAN};
    compact_output out;
    int rv = l3mac_compact_cover(&in, &out);
    if (rv == 0) rv = give_best(&c, bmp, &out, head);
    l3mac_compact_release(&out);
    l3mac_free(c.held);
    return rv == 0 ? 0 : -1;
}
