// The mask cover search on any VLAN or VFI set, against what its result
// guarantees: templates in ascending level, each a whole sub-cube whose
// members it lists, together matching exactly the set and value 0 and never
// the top value, each the only cover of one of its numbers; the same set
// gives the same list; and a search that runs out of memory gives -1 and
// nothing, and leaves no trace on the next search.
#include <cstdio>
#include <cstdlib>
#include <tuple>
#include <vector>

#include <fuzzer/FuzzedDataProvider.h>

#include "decision/l3mac_mask.h"
#include "frame/l3mac_mem.h"

namespace {

[[noreturn]] void fuzz_fail(const char *what) {
    std::fprintf(stderr, "fuzz: cover: %s\n", what);
    std::abort();
}

using fuzz_list = std::vector<std::tuple<uint32_t, uint32_t, int32_t>>;

// A window of the space filled bit by bit from the input, and now and then
// the numbers at its edges.
evlan_bmp_t fuzz_bitmap(FuzzedDataProvider &in) {
    evlan_bmp_t bmp{};
    bmp.is_vfi = in.ConsumeBool() ? 1 : 0;
    // A VLAN set may carry bits beyond its space, which the search must not read.
    const uint32_t space = bmp.is_vfi || in.ConsumeBool() ? 16384 : 4096;
    const uint32_t base = in.ConsumeIntegralInRange<uint32_t>(0, space - 1);
    for (uint32_t n = base; n < space && in.remaining_bytes() > 0; n += 8) {
        const uint8_t bits = in.ConsumeIntegral<uint8_t>();
        for (uint32_t b = 0; b < 8 && n + b < space; b++)
            if (bits >> b & 1) l3mac_bmp_set(&bmp, n + b);
    }
    return bmp;
}

// Runs the search; the list in order, or nothing with the result in *rv.
fuzz_list fuzz_search(const evlan_bmp_t &bmp, int *rv, std::vector<uint32_t> *cnt) {
    list_head head;
    list_init(&head);
    *rv = l3mac_masklist_calc(&bmp, &head);
    fuzz_list out;
    const uint32_t width = bmp.is_vfi ? 14 : 12;
    const uint32_t low = (1u << width) - 1;
    int32_t last_level = 0;
    for (list_head *p = head.next; p != &head; p = p->next) {
        const mask_template *t = l3mac_mask_of(p);
        if (t->level < last_level || t->level < 0 || t->level >= int32_t(width))
            fuzz_fail("levels out of order or out of range");
        last_level = t->level;
        const uint32_t ignored = ~t->mask;
        if ((ignored & ~low) || __builtin_popcount(ignored) != t->level || (t->key & ignored))
            fuzz_fail("a mask or key that is no sub-cube of the space");
        const uint32_t n = 1u << t->level;
        std::vector<bool> seen(low + 1);
        for (uint32_t i = 0; i < n; i++) {
            const uint32_t m = t->members[i];
            if (m > low || (m & t->mask) != t->key || seen[m]) fuzz_fail("a bad member");
            seen[m] = true;
            if (cnt) (*cnt)[m]++;
        }
        if (t->members[0] != (t->key | ignored)) fuzz_fail("the first member is not the highest");
        out.emplace_back(t->key, t->mask, t->level);
    }
    l3mac_masklist_free(&head);
    return out;
}

void fuzz_exact(const evlan_bmp_t &bmp, const std::vector<uint32_t> &cnt) {
    const uint32_t top = bmp.is_vfi ? 16383 : 4095;
    for (uint32_t v = 0; v <= top; v++) {
        const bool member = v == 0 || (v < top && l3mac_bmp_test(&bmp, v));
        if (member != (cnt[v] > 0)) fuzz_fail(member ? "a member is not covered" : "a non-member is covered");
    }
}

// Every template is the only cover of one of its numbers.
void fuzz_needed(const evlan_bmp_t &bmp, const std::vector<uint32_t> &cnt) {
    list_head head;
    list_init(&head);
    l3mac_masklist_calc(&bmp, &head);
    for (list_head *p = head.next; p != &head; p = p->next) {
        const mask_template *t = l3mac_mask_of(p);
        bool alone = false;
        for (uint32_t i = 0; i < (1u << t->level) && !alone; i++) alone = cnt[t->members[i]] == 1;
        if (!alone) fuzz_fail("a template that could go");
    }
    l3mac_masklist_free(&head);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    FuzzedDataProvider in(data, size);
    const long fail_at = in.ConsumeIntegralInRange<long>(-1, 64);
    const evlan_bmp_t bmp = fuzz_bitmap(in);
    int rv = 0;
    l3mac_mem_fail_after = fail_at;
    const fuzz_list failed = fuzz_search(bmp, &rv, nullptr);
    l3mac_mem_fail_after = -1;
    if (rv != 0 && (rv != -1 || !failed.empty())) fuzz_fail("a failed search left a list");
    std::vector<uint32_t> cnt(16384);
    const fuzz_list full = fuzz_search(bmp, &rv, &cnt);
    if (rv != 0) fuzz_fail("a search with memory to spare failed");
    if (!failed.empty() && failed != full) fuzz_fail("the same set gave another list");
    fuzz_exact(bmp, cnt);
    fuzz_needed(bmp, cnt);
    return 0;
}
