// Allocation of every record of the service. Tests can make the n-th
// allocation from now fail; in the daemon the seam is one predictable
// comparison.
#pragma once

#include <cstddef>
#include <cstdint>
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

// Room for one more item after `count` in a growing array of *room items:
// twice the room when full, `first` items at the start. False when memory
// ran out; the array is then as it was.
template <class T> bool l3mac_room_for_one(T **items, uint32_t count, uint32_t *room,
                                           uint32_t first) {
    if (count < *room) return true;
    const uint32_t grown_room = *room ? *room * 2 : first;
    auto *grown = static_cast<T *>(l3mac_realloc(*items, grown_room * sizeof(T)));
    if (!grown) return false;
    *items = grown;
    *room = grown_room;
    return true;
}
