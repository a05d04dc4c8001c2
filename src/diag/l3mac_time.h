// Timing probe: a ring of decision times, sampled around the decisions that
// the service starts on its own (an add within its budget, a timer tick).
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

void l3mac_time_start(uint32_t ip, int32_t mask);
void l3mac_time_end();

int l3mac_at_time_init(int32_t size);
int l3mac_at_time_set(int32_t per_cnt);
int l3mac_at_time_dump();
