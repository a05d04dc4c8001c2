// What every finished cover list guarantees, checked without a test
// framework, so that the search's tests and its fuzz target share it.
#pragma once

#include <cstdint>
#include <string>
#include <tuple>
#include <vector>

#include "decision/l3mac_mask.h"
#include "decision/l3mac_mask_compact.h"

// A template as (key, mask cut to the width of the space, level).
using cover_row = std::tuple<uint32_t, uint32_t, int32_t>;

// The first broken guarantee of the list at `head` for the set `b`, or ""
// when it holds: ascending levels, each template a whole sub-cube whose
// members it lists highest first, together exactly the set and value 0
// (never the top value), each the only cover of one of its numbers. A
// compact cover may leave value 0 out, and owes it no template of its own;
// one that kept held entries as they were need not make every one count.
inline std::string l3mac_cover_fault(const evlan_bmp_t &b, list_head *head, bool compact = false,
                                     bool each_counts = true) {
    const uint32_t wm = b.is_vfi ? 0x3FFF : 0xFFF;
    std::vector<int> covered(wm + 1);
    int32_t last = 0;
    for (list_head *p = head->next; p != head; p = p->next) {
        const mask_template *t = l3mac_mask_of(p);
        const uint32_t ignored = ~t->mask;
        if (t->level < last || t->level >= __builtin_popcount(wm)) return "levels out of order or range";
        last = t->level;
        if ((ignored & ~wm) || __builtin_popcount(ignored) != t->level || (t->key & ignored))
            return "a mask or key that is no sub-cube of the space";
        if (t->members[0] != (t->key | ignored)) return "the first member is not the highest";
        std::vector<bool> seen(wm + 1);
        for (uint32_t i = 0; i < (1u << t->level); i++) {
            const uint32_t m = t->members[i];
            if (m > wm || (m & t->mask) != t->key || seen[m]) return "a bad member";
            seen[m] = true;
            covered[m]++;
        }
    }
    for (uint32_t v = compact ? 1 : 0; v <= wm; v++)
        if ((v == 0 || (v < wm && l3mac_bmp_test(&b, v))) != (covered[v] > 0))
            return "not an exact cover at " + std::to_string(v);
    for (list_head *p = head->next; p != head; p = p->next) {
        const mask_template *t = l3mac_mask_of(p);
        bool own = false;
        for (uint32_t i = 0; i < (1u << t->level); i++)
            own |= covered[t->members[i]] == 1 && (!compact || t->members[i] != 0);
        // The greedy cover's filler {0} is no TCAM entry: a compact search
        // that gives that cover unchanged gives its filler too.
        const bool filler = t->level == 0 && t->key == 0;
        if (!own && each_counts && !(compact && filler))
            return "template " + std::to_string(t->key) + " could go";
    }
    return "";
}

struct cover_run {
    int rv;
    std::vector<cover_row> list;
    std::string fault;  // a broken guarantee; a failed search must leave nothing
};

// One search over `b`, its list released again: the greedy search, or the
// compact one for a MAC that holds the entries `have`.
inline cover_run l3mac_cover_run(const evlan_bmp_t &b, bool compact = false,
                                 const std::vector<mask_held> &have = {}) {
    list_head head;
    list_init(&head);
    const int rv = compact ? l3mac_masklist_calc_compact(&b, have.data(),
                                                         static_cast<uint32_t>(have.size()), &head)
                           : l3mac_masklist_calc(&b, &head);
    cover_run r{rv, {}, ""};
    r.fault = r.rv == 0 ? l3mac_cover_fault(b, &head, compact, have.empty())
              : list_empty(&head) ? ""
                                  : "a failed search left a list";
    for (list_head *p = head.next; p != &head; p = p->next) {
        const mask_template *t = l3mac_mask_of(p);
        r.list.emplace_back(t->key, t->mask & (b.is_vfi ? 0x3FFF : 0xFFF), t->level);
    }
    l3mac_masklist_free(&head);
    if (!list_empty(&head)) r.fault = "the list stays after its release";
    return r;
}
