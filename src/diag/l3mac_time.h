// Timing probe: a ring of decision times, sampled around the decisions that
// the service starts on its own (an add within its budget, a timer tick).
// Off by default; while off the two steps cost two field tests.
#pragma once

#include <cstdint>

#include "platform/kw_runtime.h"

struct l3mac_time_sample {
    kw_timeval input;   // entering the decision
    kw_timeval output;  // leaving the decision
    uint32_t cnt;       // `count` at the start; 0: never written
    uint32_t ip;        // first tag
    int32_t mask;       // second tag
};

struct l3mac_time_ring_t {
    uint32_t count;     // decisions seen while the probe was on
    uint32_t per_cnt;   // one decision in this many is sampled; 0 off
    uint32_t size;      // samples in the ring; 0 not initialised
    uint32_t cur_idx;   // sample last started
    l3mac_time_sample *samples;
};

// Largest ring that `time-init-l3mac` makes: the probe stays small beside
// the service it measures.
inline constexpr uint32_t L3MAC_TIME_RING_MAX = 65536;

// The two steps around sw_l3mac_mac_decision. Tags: an add gives its
// mac_type and 0, the timer tick 0 and 1.
void l3mac_time_start(uint32_t ip, int32_t mask);
void l3mac_time_end();

// Handlers of time-init-l3mac (ring size), time-set-l3mac (sampling
// period) and time-dump-l3mac. 0; -4 when the ring is not there or the
// size is refused; -2 when the ring cannot be allocated.
int l3mac_at_time_init(int32_t size);
int l3mac_at_time_set(int32_t per_cnt);
int l3mac_at_time_dump();
