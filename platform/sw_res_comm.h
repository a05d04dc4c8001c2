// Index resource manager: pools of TCAM indexes.
#pragma once

#include <cstddef>
#include <cstdint>

// A pool. Only its second and third 32-bit words are public: the limit of
// the pool and the number of indexes in use. The manager owns the rest.
struct sw_res_rm {
    uint32_t algo;
    uint32_t limit;
    uint32_t in_use;
};

// Request record of sw_res_comm_alloc_idx; zero-filled by the caller.
struct sw_res_alloc_req {
    uint8_t one;        // always 1
    uint8_t rsvd1;
    uint8_t is_gr;      // 1: take exactly `want`
    uint8_t rsvd2[5];
    uint32_t count;     // number of indexes, 1
    uint8_t rsvd3[28];
    int64_t want;       // wanted index, 0 when the manager chooses
    uint8_t rsvd4[136];
};
static_assert(offsetof(sw_res_alloc_req, is_gr) == 2);
static_assert(offsetof(sw_res_alloc_req, count) == 8);
static_assert(offsetof(sw_res_alloc_req, want) == 40);
static_assert(sizeof(sw_res_alloc_req) >= 184);

// Creates a pool of `count` indexes; stores the handle in *rm. 0 or a code.
int sw_res_comm_create_rm(int32_t algo, sw_res_rm **rm, int32_t count,
                          int32_t zero, int32_t rsvd_size);

// Takes one index. 0 with the index in *idx, or a code with nothing held.
int sw_res_comm_alloc_idx(const sw_res_alloc_req *req, sw_res_rm *rm,
                          uint32_t *idx);

// Frees `n` indexes starting at idx. 0 or a code.
int sw_res_comm_free_idx_old(uint32_t idx, int32_t n, sw_res_rm *rm);
