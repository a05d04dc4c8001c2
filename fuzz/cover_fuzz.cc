// The mask cover search on any VLAN or VFI set, greedy or compact, against
// what its result guarantees (support/cover_check.h): the same set gives the
// same list, a search that runs out of memory gives -1 and nothing, and
// leaves no trace on the next search; a compact cover never takes more
// entries than the greedy one.
#include <cstdio>
#include <cstdlib>

#include <fuzzer/FuzzedDataProvider.h>

#include "frame/l3mac_mem.h"
#include "tests/support/cover_check.h"

namespace {

[[noreturn]] void fuzz_fail(const std::string &what) {
    std::fprintf(stderr, "fuzz: cover: %s\n", what.c_str());
    std::abort();
}

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

// TCAM entries of a list: the templates but the filler.
size_t entries_of(const cover_run &r, bool vfi) {
    const uint32_t wm = vfi ? 0x3FFF : 0xFFF;
    size_t n = 0;
    for (const cover_row &t : r.list) n += !(std::get<0>(t) == 0 && std::get<1>(t) == wm);
    return n;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    FuzzedDataProvider in(data, size);
    const bool compact = in.ConsumeBool();
    const long fail_at = in.ConsumeIntegralInRange<long>(-1, 64);
    const evlan_bmp_t bmp = fuzz_bitmap(in);
    // A search cut short by a failed allocation comes first, so that the
    // full search after it shows it left no trace. Without a drawn failure
    // the first search would only repeat the second.
    cover_run failed{.rv = -1};
    if (fail_at >= 0) {
        l3mac_mem_fail_after = fail_at;
        failed = l3mac_cover_run(bmp, compact);
        l3mac_mem_fail_after = -1;
        if (failed.rv != 0 && failed.rv != -1) fuzz_fail("a search failed with another code");
        if (!failed.fault.empty()) fuzz_fail(failed.fault);
    }
    const cover_run full = l3mac_cover_run(bmp, compact);
    if (full.rv != 0) fuzz_fail("a search with memory to spare failed");
    if (!full.fault.empty()) fuzz_fail(full.fault);
    if (failed.rv == 0 && failed.list != full.list) fuzz_fail("the same set gave another list");
    if (compact && entries_of(full, bmp.is_vfi) > entries_of(l3mac_cover_run(bmp), bmp.is_vfi))
        fuzz_fail("a compact cover took more entries than the greedy one");
    return 0;
}
