// Allocation of every record of the service. Tests can make the n-th
// allocation from now fail; in the daemon the seam is one predictable
// comparison.
#pragma once

#include <cstddef>
#include <cstdlib>

// -1: no failure planned; n >= 0: the allocation after n more succeeds fails.
extern long l3mac_mem_fail_after;

inline bool l3mac_mem_should_fail() {
    if (__builtin_expect(l3mac_mem_fail_after < 0, 1)) return false;
    return l3mac_mem_fail_after-- == 0;
}

inline void *l3mac_malloc(size_t n) {
    return l3mac_mem_should_fail() ? nullptr : std::malloc(n);
}

inline void *l3mac_calloc(size_t n, size_t sz) {
    return l3mac_mem_should_fail() ? nullptr : std::calloc(n, sz);
}

inline void *l3mac_realloc(void *p, size_t n) {
    return l3mac_mem_should_fail() ? nullptr : std::realloc(p, n);
}

inline void l3mac_free(void *p) { std::free(p); }
